#include <stillora/Document.h>

#include "tests/attack/fuzz/Checked.h"
#include "tests/support/TemporaryFolder.h"

#include <string_view>

// The list of a document, with its items and settings; a document that can be opened can be saved and opened again.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    static const TemporaryFolder folder;
    static const std::string place = folder.makeFolder("Fuzzed.stillora");
    folder.makeFile("Fuzzed.stillora/Document.plist", {reinterpret_cast<const char*>(bytes), length});
    auto document = stillora::Document::load(place);
    if (!document)
        return 0;
    for (const auto& photo : document->photos())
        mustHold(photo.state == stillora::DocumentItem::State::Good || !photo.fault.empty(), "what is wrong is told");
    (void)document->soundtracks();
    auto settings = document->settings();
    settings.timePerPhoto = stillora::Seconds(2.5);
    document->setSettings(settings);
    if (!document->save())
        return 0;
    const auto again = stillora::Document::load(place);
    mustHold(again && again->settings().timePerPhoto == settings.timePerPhoto, "what is saved can be read");
    mustHold(again->photos().size() == document->photos().size(), "no photo is lost");
    return 0;
}
