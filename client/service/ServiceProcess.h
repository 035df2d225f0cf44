#pragma once

#include <stillora/Types.h>

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSError.h"
#include "platform/sandbox/Sandbox.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace stillora {

/// The rendering service as a child of this process, connected by a socket pair. It gets no terminal signals and ends
/// with the thread that started it. One thread, which has to live as long as the object.
class ServiceProcess final {
public:
    /// Where the program is: what the environment variable STILLORA_VIDEO_CREATOR names, else beside this program, else
    /// where the shared library or this project is installed.
    /// @return nothing if it is in none of these places; `error` names them
    [[nodiscard]] static std::optional<std::string> findProgram(platform::NSError* error = nullptr);

    /// What the service works on, where that is known before it starts.
    struct Rights {
        /// It puts all other files of the user out of its own reach.
        platform::SandboxFiles files;
        /// Its folder for temporary files, among those.
        std::string temporaryFolder;
    };

    /// It inherits of the environment what programs need, and nothing that opens doors, such as the addresses of
    /// agents.
    /// @param arguments  those that follow the program's name
    /// @param rights     nothing leaves it the user's files
    /// @return null if the process could not be made or the program not run
    [[nodiscard]] static std::unique_ptr<ServiceProcess> start(const std::string& program,
                                                               std::vector<std::string> arguments,
                                                               const std::optional<Rights>& rights,
                                                               platform::NSError* error = nullptr);
    /// As above, without rights.
    [[nodiscard]] static std::unique_ptr<ServiceProcess>
    start(const std::string& program, std::vector<std::string> arguments = {}, platform::NSError* error = nullptr);

    /// Ends the process at once if it still runs.
    ~ServiceProcess();
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;

    /// The client's end of the socket pair, once; the caller closes it.
    int takeSocket() { return socket_.release(); }

    /// Readable when the process has ended.
    int endedDescriptor() const { return ended_.get(); }
    /// Readable when the process has written to its standard error, or closed it.
    int logDescriptor() const { return log_.get(); }

    /// Takes what the process wrote to its standard error so far, without waiting; of one that writes without end, a
    /// part.
    /// @return false once there will be no more
    bool readLog();
    /// Called with each line as it is read, also with those that are not kept.
    void setLineHandler(std::function<void(const std::string& line)> handler) { lineHandler_ = std::move(handler); }
    /// The last lines it wrote, newest last; never more than a few hundred.
    const std::vector<std::string>& logLines() const { return logLines_; }

    /// What it has taken of the processors' time so far, of all its threads; nothing once it is known to have ended.
    std::optional<Seconds> processorTime() const;

    /// @return whether the process has ended, after waiting for at most so long
    bool waitForEnd(std::chrono::milliseconds limit);
    /// Ends the process without asking it.
    void kill();

    /// @name Stops all services of this program, as the program itself is stopped, and lets them go on
    /// Safe in a signal handler.
    /// @{
    static void stopAll() noexcept { signalAll(SIGSTOP); }
    static void continueAll() noexcept { signalAll(SIGCONT); }
    /// @}

    /// How it ended, as part of a sentence: "with exit status 1", "by signal 9 (Killed)". Empty while it runs.
    std::string howItEnded() const;

private:
    ServiceProcess(int pid, platform::FileDescriptor ended, platform::FileDescriptor socket,
                   platform::FileDescriptor log);

    static void signalAll(int signal) noexcept;
    void takeLine();

    const int pid_;
    const platform::FileDescriptor ended_;
    /// Among those of `signalAll`, as long as the descriptor is open.
    std::atomic<int>* place_ = nullptr;
    platform::FileDescriptor socket_;
    const platform::FileDescriptor log_;
    /// As waitpid gives it, once the process has ended.
    std::optional<int> status_;
    std::string unfinishedLine_;
    std::vector<std::string> logLines_;
    std::function<void(const std::string&)> lineHandler_;
};

} // namespace stillora
