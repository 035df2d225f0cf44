#include "tests/attack/fuzz/Checked.h"
#include "window/state/document/SessionFile.h"

#include <string>
#include <string_view>

// What a window keeps of a document that has no name yet.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    using namespace stillora::window;
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    mustHold(unescapedWord(escapedWord(text.substr(0, text.find('\0')))) == text.substr(0, text.find('\0')),
             "any name goes into a word");
    const auto session = sessionOfText(text);
    if (!session)
        return 0;
    const std::string written = textOfSession(*session);
    const auto again = sessionOfText(written);
    mustHold(again.has_value(), "what is written can be read");
    mustHold(*again == *session, "it is the same");
    return 0;
}
