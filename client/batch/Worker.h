#pragma once

#include <stillora/Error.h>

#include "client/batch/StateFolder.h"
#include "platform/foundation/FileDescriptor.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// Who makes one movie at a time: a file among the workers, of which each claim is a hard link. The count of the links
/// tells whether a claim was made, also where a network lost the answer, and one change of the file's time renews the
/// lease wherever it is linked. Times are those of the server's clock, so that clocks of machines may differ. One
/// thread, but for `renew`.
class Worker final {
public:
    /// What a worker's file says of it.
    struct Owner {
        std::string name;
        std::string machine;
        int pid = 0;
        /// Whether its process runs on this machine's system, and can be looked for.
        bool isOfThisSystem = false;
        bool isRunning = false;
    };

    /// @param lease  how long after its last sign of life a worker of another machine counts as dead
    static Result<std::unique_ptr<Worker>> create(const StateFolder& state, std::chrono::seconds lease);

    /// Gives up its claim, and removes its file.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Unlike every other's, also of processes that ended.
    const std::string& name() const { return name_; }

    /// Any thread; every few seconds.
    void renew() const;

    enum class Taking {
        Taken,
        /// Somebody else is at work on it.
        Held,
        /// The file system refuses, see `failure`.
        Failed
    };
    /// Claims a movie: as the first, or instead of a worker that is dead.
    Taking take(const std::string& key);
    /// Why `take` has failed, an errno value.
    int failure() const { return failure_; }
    /// Names of the workers that were dead, after it was `Taken` from them: each may have left something.
    const std::vector<std::string>& predecessors() const { return predecessors_; }
    /// Whether nobody has taken the movie since.
    bool stillHolds() const;
    void release();

    /// Puts a text in place of an older one, in one step.
    /// @return 0, or the reason
    int put(const std::filesystem::path& file, std::string_view text) const;
    /// Puts a text where nothing is yet.
    /// @return 0, EEXIST if something is there, or another reason
    int putFirst(const std::filesystem::path& file, std::string_view text) const;

    /// @name Of others
    /// @{
    static std::optional<Owner> ownerOf(const std::filesystem::path& claim);
    /// Whether it has not given a sign of life for the lease's time, by the server's clock, or has ended.
    bool isDead(const std::filesystem::path& claim) const;
    /// Removes the files of workers that are dead and hold nothing.
    void removeDeadWorkers() const;
    /// @}

    static std::string machineName();

    /// Where it writes what is not whole yet; goes with the worker.
    std::filesystem::path draft() const { return state_.workers() / (name_ + ".new"); }

private:
    Worker(const StateFolder& state, std::chrono::seconds lease, std::string name, platform::FileDescriptor file);

    std::filesystem::path path() const { return state_.workers() / name_; }

    const StateFolder state_;
    const std::chrono::seconds lease_;
    const std::string name_;
    const platform::FileDescriptor file_;
    std::string key_;
    int generation_ = 0;
    int failure_ = 0;
    std::vector<std::string> predecessors_;
};

} // namespace stillora
