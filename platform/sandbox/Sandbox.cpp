#include "platform/sandbox/Sandbox.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/sandbox/CallFilter.h"
#include "platform/sandbox/FileView.h"
#include "platform/sandbox/Sanitizers.h"

#include <cerrno>
#include <cstring>

#include <sys/prctl.h>
#include <sys/resource.h>

namespace platform {

namespace {

std::string reasonOfErrno(int errnoValue)
{
    return std::strerror(errnoValue);
}

void note(std::vector<std::string>& lacks, const char* what, int errnoValue)
{
    lacks.push_back(std::string(what).append(": ").append(reasonOfErrno(errnoValue)));
}

/// A limit that is stricter already stays.
bool lowerLimit(__rlimit_resource resource, uint64_t most)
{
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0)
        return false;
    if (limit.rlim_max <= most && limit.rlim_cur <= most)
        return true;
    limit.rlim_max = limit.rlim_max < most ? limit.rlim_max : most;
    limit.rlim_cur = limit.rlim_cur < limit.rlim_max ? limit.rlim_cur : limit.rlim_max;
    return setrlimit(resource, &limit) == 0;
}

} // namespace

SandboxKernel SandboxKernel::running()
{
    return {.landlockVersion = FileView::landlockVersion(), .filtersCalls = CallFilter::isPossible()};
}

std::vector<std::string> confineProcess(const SandboxRights& rights, const SandboxKernel& kernel)
{
    std::vector<std::string> lacks;
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        note(lacks, "New privileges cannot be given up", errno);
    if (!lowerLimit(RLIMIT_CORE, 0))
        note(lacks, "Core dumps cannot be switched off", errno);
    if (rights.addressSpaceBytes && !kBuiltWithSanitizer && !lowerLimit(RLIMIT_AS, *rights.addressSpaceBytes))
        note(lacks, "Memory cannot be limited", errno);

    if (kernel.landlockVersion < FileView::kFirstVersion)
        lacks.emplace_back(
            translatable("The kernel cannot keep a process from files (Landlock is missing or too old)"));
    else if (!FileView::restrictTo(rights.files, rights.sockets, kernel.landlockVersion))
        note(lacks, "Files cannot be put out of reach", errno);
    // Last, as it refuses what the steps above need.
    if (!kernel.filtersCalls)
        lacks.emplace_back(translatable("The kernel cannot keep a process from system calls (seccomp is missing)"));
    else if (const int failure = CallFilter::install(rights.sockets); failure != 0)
        note(lacks, "System calls cannot be refused", failure);
    return lacks;
}

} // namespace platform
