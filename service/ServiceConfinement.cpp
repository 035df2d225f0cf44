#include "service/ServiceConfinement.h"

#include "platform/files/NSUserDefaults.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSLog.h"
#include "platform/sandbox/SandboxFileList.h"
#include "platform/system/IOPMAssertion.h"
#include "platform/system/NSProcessInfo.h"

#include <cstdlib>

using platform::FileDescriptor;
using platform::SandboxFiles;
using platform::SandboxRights;
using platform::SandboxSockets;

namespace {

/// Beyond the machine's memory: programs and libraries, the threads' stacks, and what allocators set aside.
constexpr uint64_t kAddressSpaceBesideMemory = uint64_t{8} << 30;

/// What the user keeps for the service, wherever it is.
void addFilesOfTheUser(SandboxFiles& files)
{
    // The folder, as the file is replaced by each change.
    files.readable.push_back(platform::NSUserDefaults::fileURL().URLByDeletingLastPathComponent().path());
    for (const char* name : {"STILLORA_FACES_MODULE", "STILLORA_FACES_MODEL"})
        if (const char* const path = std::getenv(name))
            files.readable.emplace_back(path);
}

} // namespace

bool confineService(std::optional<int> fileList, platform::NSError* error)
{
    SandboxRights rights;
    rights.sockets = SandboxSockets::ThisMachine;
    rights.addressSpaceBytes = platform::NSProcessInfo::processInfo().physicalMemory() + kAddressSpaceBesideMemory;
    if (fileList) {
        const FileDescriptor list(*fileList);
        rights.files = platform::readSandboxFiles(list.get(), error);
        if (!rights.files)
            return false;
        addFilesOfTheUser(*rights.files);
        // Whoever could connect to any socket could have the user's service manager start programs.
        rights.sockets = SandboxSockets::None;
        platform::IOPMAssertionConnect();
    }
    for (const std::string& lack : platform::confineProcess(rights))
        platform::NSLog("*!!* " + lack);
    return true;
}
