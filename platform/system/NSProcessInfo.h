#pragma once

#include "platform/foundation/Lock.h"

#include <cstdint>
#include <string>
#include <vector>

namespace platform {

/// This process. Any thread.
class NSProcessInfo final {
public:
    static NSProcessInfo& processInfo();

    /// The processors that the machine is configured with, not only those that this process may use.
    uint64_t processorCount() const;
    /// The machine's, in bytes.
    uint64_t physicalMemory() const;

    /// How the process calls itself to the user; the program's name until set.
    std::string processName() const EXCLUDES(lock_);
    void setProcessName(std::string name) EXCLUDES(lock_);

    /// @name Whether the system may end the process while it is idle.
    /// Nothing here ends idle processes, so what was asked for is kept and can be read.
    /// @{
    void setAutomaticTerminationSupportEnabled(bool isEnabled) EXCLUDES(lock_);
    void enableSuddenTermination() EXCLUDES(lock_);
    void disableSuddenTermination() EXCLUDES(lock_);
    void enableAutomaticTermination(const std::string& reason) EXCLUDES(lock_);
    void disableAutomaticTermination(const std::string& reason) EXCLUDES(lock_);

    struct Termination {
        bool automaticTerminationSupportEnabled = false;
        /// Disablings less enablings; may be negative.
        int64_t suddenTerminationDisabled = 0;
        int64_t automaticTerminationDisabled = 0;
        /// The last operations, the newest last, as "enableAutomaticTermination: reason"; at most kKept.
        static constexpr size_t kKept = 16;
        std::vector<std::string> operations;
    };
    Termination termination() const EXCLUDES(lock_);
    /// @}

private:
    NSProcessInfo() = default;
    void note(std::string operation) REQUIRES(lock_);

    mutable Lock lock_;
    std::string processName_ GUARDED_BY(lock_);
    Termination termination_ GUARDED_BY(lock_);
};

} // namespace platform
