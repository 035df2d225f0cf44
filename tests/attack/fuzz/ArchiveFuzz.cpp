#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "platform/archive/NSKeyedArchiver.h"
#include "tests/attack/fuzz/Checked.h"

using namespace platform;

// Keyed archives, and the items of documents that are saved as such.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const NSData data(bytes, bytes + length);
    if (const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(data))
        if (const auto written = NSKeyedArchiver::archivedDataWithRootObject(*root))
            mustHold(NSKeyedUnarchiver::unarchiveObjectWithData(*written).has_value(), "what is archived can be read");
    const NSURL document = NSURL::fileURLWithPath("/nowhere/Fuzzed.stillora", true);
    if (const auto photo = MORPhoto::photoWithSaveData(data, document)) {
        mustHold(photo->photoURL()->path().starts_with("/nowhere/Fuzzed.stillora/"), "a photo lies in its document");
        if (const auto saved = photo->saveData())
            mustHold(MORPhoto::photoWithSaveData(*saved, document) != nullptr, "a saved photo can be read");
    }
    if (const auto sound = MORSoundtrack::soundtrackWithSaveData(data, document))
        mustHold(sound->soundtrackURL()->path().starts_with("/nowhere/Fuzzed.stillora/"),
                 "a sound lies in its document");
    return 0;
}
