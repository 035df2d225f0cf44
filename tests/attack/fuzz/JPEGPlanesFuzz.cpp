#include "tests/attack/fuzz/Checked.h"
#include "tests/support/JPEGComparison.h"

// Baseline pictures, whose codes are read here and not by the library, at the size that the first byte says.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    constexpr uint64_t kMostPixels = 1 << 16;
    if (length == 0)
        return 0;
    const auto outcome = test::compareJPEG({bytes + 1, length - 1}, 1U << (bytes[0] & 3), kMostPixels);
    mustHold(outcome != test::JPEGOutcome::Different, "a picture is as the library shows it");
    return 0;
}
