#include "platform/media/FileTags.h"
#include "tests/attack/fuzz/FuzzedFile.h"

// Tags of every kind: ID3, of MPEG-4, FLAC, Ogg, RIFF, AIFF and CAF, with the covers in them.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const FuzzedFile file({bytes, length});
    (void)platform::readFileTags(file.url());
    return 0;
}
