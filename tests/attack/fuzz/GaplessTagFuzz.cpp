#include "platform/bytes/ByteSource.h"
#include "platform/sound/GaplessTag.h"
#include "tests/attack/fuzz/Checked.h"
#include "tests/attack/fuzz/FuzzedFile.h"

using namespace platform;

// Where the sound of a file begins and ends, as its tags tell.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const FuzzedFile fuzzed({bytes, length});
    const FileBytes file(fuzzed.path());
    for (const auto& tag : {gaplessTagOfMP3(file), gaplessTagOfCAF(file)})
        if (tag)
            mustHold(tag->delay >= 0 && tag->length.value_or(0) >= 0, "a part of a sound is no less than nothing");
    return 0;
}
