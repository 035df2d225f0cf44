#include "platform/system/NSProcessInfo.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>
#include <utility>

namespace platform {

NSProcessInfo& NSProcessInfo::processInfo()
{
    // Never destroyed: a closed connection may allow termination while the process ends.
    static auto& info = *new NSProcessInfo;
    return info;
}

uint64_t NSProcessInfo::processorCount() const
{
    return static_cast<uint64_t>(std::max(1L, sysconf(_SC_NPROCESSORS_CONF)));
}

uint64_t NSProcessInfo::physicalMemory() const
{
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageBytes = sysconf(_SC_PAGESIZE);
    return pages > 0 && pageBytes > 0 ? static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageBytes) : 0;
}

std::string NSProcessInfo::processName() const
{
    LockGuard guard(lock_);
    return processName_.empty() ? program_invocation_short_name : processName_;
}

void NSProcessInfo::setProcessName(std::string name)
{
    LockGuard guard(lock_);
    processName_ = std::move(name);
}

void NSProcessInfo::note(std::string operation)
{
    auto& operations = termination_.operations;
    if (operations.size() == Termination::kKept)
        operations.erase(operations.begin());
    operations.push_back(std::move(operation));
}

void NSProcessInfo::setAutomaticTerminationSupportEnabled(bool isEnabled)
{
    LockGuard guard(lock_);
    termination_.automaticTerminationSupportEnabled = isEnabled;
    note(isEnabled ? "setAutomaticTerminationSupportEnabled: true" : "setAutomaticTerminationSupportEnabled: false");
}

void NSProcessInfo::enableSuddenTermination()
{
    LockGuard guard(lock_);
    --termination_.suddenTerminationDisabled;
    note("enableSuddenTermination");
}

void NSProcessInfo::disableSuddenTermination()
{
    LockGuard guard(lock_);
    ++termination_.suddenTerminationDisabled;
    note("disableSuddenTermination");
}

void NSProcessInfo::enableAutomaticTermination(const std::string& reason)
{
    LockGuard guard(lock_);
    --termination_.automaticTerminationDisabled;
    note("enableAutomaticTermination: " + reason);
}

void NSProcessInfo::disableAutomaticTermination(const std::string& reason)
{
    LockGuard guard(lock_);
    ++termination_.automaticTerminationDisabled;
    note("disableAutomaticTermination: " + reason);
}

NSProcessInfo::Termination NSProcessInfo::termination() const
{
    LockGuard guard(lock_);
    return termination_;
}

} // namespace platform
