#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteSource.h"
#include "platform/libav/ID3Head.h"
#include "platform/libav/MovieBoxes.h"
#include "platform/libav/WAVEnd.h"
#include "tests/attack/fuzz/Checked.h"

using namespace platform;

// The boxes of movies and pictures, where the tags before a sound end, and how far a WAV file may be read.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const MemoryBytes file({bytes, length});
    (void)readMovieBoxes(file);
    const BoxWalker walker(file);
    int count = 0;
    const int64_t end = walker.forEachBox(0, walker.size(), [&](const Box& box) {
        mustHold(box.begin >= 8 && box.begin <= box.end && box.end <= walker.size(), "a box lies in its file");
        ++count;
        (void)walker.forEachBox(box.begin, box.end, [](const Box&) {});
    });
    mustHold(end >= 0 && end <= walker.size(), "a walk ends in its file");
    mustHold(count <= BoxWalker::kMaxBoxes, "a walk ends");
    mustHold(endOfID3Tags(file) >= 0, "tags end behind their start");
    mustHold(endOfWAVFile(file) >= 0, "a file ends behind its start");
    return 0;
}
