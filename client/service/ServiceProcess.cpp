#include "client/service/ServiceProcess.h"

#include "client/processes/ChildEnvironment.h"
#include "client/processes/ChildProgram.h"
#include "client/text/ClientError.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "platform/sandbox/SandboxFileList.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace stillora {

namespace {

/// More services than one program starts at once; further ones are not stopped with it.
constexpr size_t kMostStopped = 16;

/// The descriptors of running services, for signal handlers. A descriptor cannot come to mean another process, as a
/// number can.
struct RunningService {
    std::atomic<int> descriptor{-1};
};
std::array<RunningService, kMostStopped> running;

/// The first descriptor that socket activation hands over.
constexpr int kSocketDescriptor = 3;
/// The list of files, where there is one.
constexpr int kListDescriptor = 4;

constexpr size_t kMaxLogLines = 200;
/// An address of a file may be three times as long as its name.
constexpr size_t kMaxLineBytes = 16384;

/// What is read of the log in one go, so that there is time for something else: what a pipe holds.
constexpr size_t kLogBytesAtOnce = 65536;

/// A pair of connected descriptors: the ends of a pipe (reading end first) or of a socket pair.
struct DescriptorPair {
    platform::FileDescriptor first;
    platform::FileDescriptor second;
};

std::optional<DescriptorPair> makePipe()
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return std::nullopt;
    return DescriptorPair{platform::FileDescriptor(ends[0]), platform::FileDescriptor(ends[1])};
}

/// Everything that the child needs between fork and exec, made ready before: there, only calls that are safe in a
/// signal handler are allowed, since another thread may have held any lock at the fork.
struct ChildSetup {
    const char* program = nullptr;
    std::vector<char*> arguments;
    std::vector<char*> environment;
    /// "LISTEN_PID=" and room for the digits, which only the child knows.
    std::array<char, 32> listenPid{};
    size_t listenPidLength = 0;
    int socket = -1;
    /// None without a list.
    int list = -1;
    int log = -1;
    int failure = -1;
    int null = -1;
    int parent = 0;
};

void appendNumber(std::array<char, 32>& text, size_t length, unsigned number)
{
    std::array<char, 12> digits{};
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number > 0);
    while (count > 0)
        text[length++] = digits[--count];
    text[length] = '\0';
}

/// Above the numbers that are given to the program, so that putting one there never closes another.
int movedUp(int descriptor)
{
    return fcntl(descriptor, F_DUPFD_CLOEXEC, 16);
}

[[noreturn]] void runChild(ChildSetup& setup)
{
    const auto leave = [&](int descriptor) {
        const int reason = errno;
        static_cast<void>(!write(descriptor, &reason, sizeof reason));
        _exit(127);
    };
    // Apart from the terminal, whose signals are for the client, which then asks the service to stop.
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != setup.parent)
        _exit(127);

    const int failure = movedUp(setup.failure);
    const int socket = movedUp(setup.socket);
    const int log = movedUp(setup.log);
    const int null = movedUp(setup.null);
    const int list = setup.list < 0 ? -1 : movedUp(setup.list);
    if (failure < 0 || socket < 0 || log < 0 || null < 0 || (setup.list >= 0 && list < 0))
        leave(setup.failure);
    if (dup2(null, STDIN_FILENO) < 0 || dup2(log, STDOUT_FILENO) < 0 || dup2(log, STDERR_FILENO) < 0 ||
        dup2(socket, kSocketDescriptor) < 0 || (list >= 0 && dup2(list, kListDescriptor) < 0))
        leave(failure);
        // Whatever this process has open besides is none of the service's business; the report of a failure stays open
        // until the program runs.
#ifdef SYS_close_range
    syscall(SYS_close_range, (list < 0 ? kSocketDescriptor : kListDescriptor) + 1, failure - 1, 0);
    syscall(SYS_close_range, failure + 1, ~0U, 0);
#endif

    for (const int signal : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD})
        std::signal(signal, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);

    appendNumber(setup.listenPid, setup.listenPidLength, static_cast<unsigned>(getpid()));
    execve(setup.program, setup.arguments.data(), setup.environment.data());
    leave(failure);
    _exit(127);
}

std::string notFound(const std::string& places, const char* variable)
{
    return localized("the rendering service was not found as {}; {} may name it", places, variable);
}

} // namespace

std::optional<std::string> ServiceProcess::findProgram(platform::NSError* error)
{
    return ChildProgram{"stillora-video-creator", "STILLORA_VIDEO_CREATOR", notFound}.find(error);
}

std::unique_ptr<ServiceProcess> ServiceProcess::start(const std::string& program, std::vector<std::string> arguments,
                                                      platform::NSError* error)
{
    return start(program, std::move(arguments), std::nullopt, error);
}

std::unique_ptr<ServiceProcess> ServiceProcess::start(const std::string& program, std::vector<std::string> arguments,
                                                      const std::optional<Rights>& rights, platform::NSError* error)
{
    const auto refuse = [&](int errnoValue) {
        fail(error, ErrorCode::ServiceNotStarted,
             localized("the rendering service {} cannot be started: {}", program, reasonOfErrno(errnoValue)));
        return nullptr;
    };
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return refuse(errno);
    DescriptorPair sockets{platform::FileDescriptor(ends[0]), platform::FileDescriptor(ends[1])};
    auto log = makePipe();
    auto failure = makePipe();
    const platform::FileDescriptor null(open("/dev/null", O_RDWR | O_CLOEXEC));
    if (!log || !failure || !null)
        return refuse(errno);
    fcntl(log->first.get(), F_SETFL, O_NONBLOCK);
    platform::FileDescriptor list;
    if (rights) {
        list = platform::writeSandboxFiles(rights->files);
        if (!list)
            return refuse(errno);
        arguments.insert(arguments.end(), {"--files", std::to_string(kListDescriptor)});
    }

    ChildSetup setup;
    std::string programName = program;
    std::string listenFds = "LISTEN_FDS=1";
    const std::string listenPid = "LISTEN_PID=";
    std::copy(listenPid.begin(), listenPid.end(), setup.listenPid.begin());
    setup.listenPidLength = listenPid.size();
    std::vector<std::string> variables = environmentForChild();
    if (rights) {
        std::erase_if(variables, [](const std::string& variable) { return variable.starts_with("TMPDIR="); });
        variables.push_back("TMPDIR=" + rights->temporaryFolder);
    }
    for (std::string& variable : variables)
        setup.environment.push_back(variable.data());
    setup.environment.insert(setup.environment.end(), {listenFds.data(), setup.listenPid.data(), nullptr});
    setup.program = program.c_str();
    setup.arguments.push_back(programName.data());
    for (std::string& argument : arguments)
        setup.arguments.push_back(argument.data());
    setup.arguments.push_back(nullptr);
    setup.socket = sockets.second.get();
    setup.list = list.get();
    setup.log = log->second.get();
    setup.failure = failure->second.get();
    setup.null = null.get();
    setup.parent = getpid();

    // No handler of this process may run in the child.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const int pid = fork();
    if (pid == 0)
        runChild(setup);
    const int forkReason = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (pid < 0)
        return refuse(forkReason);

    sockets.second.reset();
    log->second.reset();
    failure->second.reset();
    int reason = 0;
    ssize_t count = 0;
    while ((count = read(failure->first.get(), &reason, sizeof reason)) < 0 && errno == EINTR) {
    }
    platform::FileDescriptor ended(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
    if (count != 0 || !ended) {
        const int why = count != 0 ? reason : errno;
        ::kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        return refuse(why);
    }
    return std::unique_ptr<ServiceProcess>(
        new ServiceProcess(pid, std::move(ended), std::move(sockets.first), std::move(log->first)));
}

ServiceProcess::ServiceProcess(int pid, platform::FileDescriptor ended, platform::FileDescriptor socket,
                               platform::FileDescriptor log)
    : pid_(pid), ended_(std::move(ended)), socket_(std::move(socket)), log_(std::move(log))
{
    for (RunningService& place : running) {
        int none = -1;
        if (place.descriptor.compare_exchange_strong(none, ended_.get())) {
            place_ = &place.descriptor;
            break;
        }
    }
}

ServiceProcess::~ServiceProcess()
{
    kill();
    if (place_)
        *place_ = -1;
}

void ServiceProcess::signalAll(int signal) noexcept
{
    const int before = errno;
    for (const RunningService& place : running)
        if (const int descriptor = place.descriptor; descriptor >= 0)
            syscall(SYS_pidfd_send_signal, descriptor, signal, nullptr, 0);
    errno = before;
}

void ServiceProcess::takeLine()
{
    logLines_.push_back(std::exchange(unfinishedLine_, {}));
    if (lineHandler_)
        lineHandler_(logLines_.back());
    if (logLines_.size() > kMaxLogLines)
        logLines_.erase(logLines_.begin());
}

bool ServiceProcess::readLog()
{
    std::array<char, 4096> buffer{};
    for (size_t taken = 0; taken < kLogBytesAtOnce;) {
        const ssize_t count = read(log_.get(), buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN)
            return true;
        if (count <= 0) {
            if (!unfinishedLine_.empty())
                takeLine();
            return false;
        }
        taken += static_cast<size_t>(count);
        for (const char c : std::string_view(buffer.data(), static_cast<size_t>(count))) {
            if (c != '\n') {
                if (unfinishedLine_.size() < kMaxLineBytes)
                    unfinishedLine_ += c;
                continue;
            }
            takeLine();
        }
    }
    return true;
}

std::optional<Seconds> ServiceProcess::processorTime() const
{
    clockid_t clock = 0;
    timespec time = {};
    if (status_ || clock_getcpuclockid(pid_, &clock) != 0 || clock_gettime(clock, &time) != 0)
        return std::nullopt;
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

bool ServiceProcess::waitForEnd(std::chrono::milliseconds limit)
{
    if (status_)
        return true;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) {
            status_ = status;
            return true;
        }
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0)
            return false;
        // A process whose log nobody reads would wait for room in the pipe.
        const bool hasLog = readLog();
        std::array<pollfd, 2> waits{pollfd{ended_.get(), POLLIN, 0}, pollfd{hasLog ? log_.get() : -1, POLLIN, 0}};
        poll(waits.data(), waits.size(), static_cast<int>(left.count()) + 1);
    }
}

void ServiceProcess::kill()
{
    if (status_)
        return;
    ::kill(pid_, SIGKILL);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    status_ = status;
}

std::string ServiceProcess::howItEnded() const
{
    return status_ ? stillora::howItEnded(*status_) : std::string();
}

} // namespace stillora
