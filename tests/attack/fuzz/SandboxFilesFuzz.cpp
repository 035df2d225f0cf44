#include "platform/sandbox/SandboxFileList.h"
#include "tests/attack/fuzz/Checked.h"
#include "tests/attack/fuzz/FuzzedFile.h"

#include <fcntl.h>

// The files that are left to a process, as its parent names them.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const FuzzedFile list({bytes, length});
    const platform::FileDescriptor opened(open(list.path().c_str(), O_RDONLY | O_CLOEXEC));
    const auto files = platform::readSandboxFiles(opened.get());
    if (!files)
        return 0;
    const auto written = platform::writeSandboxFiles(*files);
    const auto again = platform::readSandboxFiles(written.get());
    mustHold(again && again->readable == files->readable && again->writable == files->writable,
             "what is written is read as it was");
    return 0;
}
