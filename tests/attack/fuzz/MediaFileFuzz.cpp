#include "platform/movie/MediaInspection.h"
#include "tests/attack/fuzz/FuzzedFile.h"

// A movie's index and the times of its pictures.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const FuzzedFile file({bytes, length});
    (void)platform::inspectMedia(file.url());
    return 0;
}
