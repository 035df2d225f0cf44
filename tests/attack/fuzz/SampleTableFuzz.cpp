#include "platform/movie/SampleTable.h"
#include "tests/attack/fuzz/Checked.h"

using namespace platform;

// The index of a movie that is written anew; the first byte tells how long a picture may stand.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    if (length == 0)
        return 0;
    const auto boxes = readIndexBoxes({bytes + 1, length - 1});
    if (!boxes)
        return 0;
    for (const IndexBox& box : *boxes) {
        (void)readChunkOffsets(box);
        std::string why;
        auto table = SampleTable::read(box, why);
        mustHold(table || !why.empty(), "a refusal has a reason");
        // What a few bytes can claim takes longer to repeat than there is time to try much.
        if (!table || table->samples().size() > 10000)
            continue;
        const size_t before = table->samples().size();
        if (!table->repeatLongSamples(1000 + 1000U * bytes[0], why) || table->samples().size() > 100000)
            continue;
        mustHold(table->samples().size() >= before, "no picture is lost");
        IndexBox written = box;
        table->write(written, true);
        const auto again = SampleTable::read(written, why);
        mustHold(again && again->samples().size() == table->samples().size(), "what is written can be read");
    }
    return 0;
}
