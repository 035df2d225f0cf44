#include "platform/sandbox/Sandbox.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/sandbox/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::FileDescriptor;
using platform::SandboxFiles;
using platform::SandboxKernel;
using platform::SandboxRights;
using platform::SandboxSockets;

namespace {

/// What a child that confines itself says after it: its own text, or how it ended without one.
std::string saidConfined(const SandboxRights& rights, const std::function<std::string()>& speak,
                         const SandboxKernel& kernel = SandboxKernel::running())
{
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0)
        return "no pipe";
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        std::string text;
        for (const std::string& lack : platform::confineProcess(rights, kernel))
            text += lack + "; ";
        text += speak();
        _exit(write(writing.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : 1);
    }
    writing.reset();
    std::string text;
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    while ((count = read(reading.get(), buffer.data(), buffer.size())) > 0)
        text.append(buffer.data(), static_cast<size_t>(count));
    int status = 0;
    waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        text += "ended with status " + std::to_string(status);
    return text;
}

/// The outcome of a system call, as its name of the error.
std::string outcome(long result)
{
    return result >= 0 ? "done" : strerrorname_np(errno);
}

std::string opened(const std::string& path, int flags = O_RDONLY)
{
    const FileDescriptor file(open(path.c_str(), flags | O_CLOEXEC, 0600));
    return outcome(file.get());
}

bool knowsLandlock()
{
    return SandboxKernel::running().landlockVersion >= 2;
}

SandboxKernel kernelWithoutLandlock()
{
    return {.landlockVersion = 0, .filtersCalls = SandboxKernel::running().filtersCalls};
}

class SandboxFilesTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!knowsLandlock())
            GTEST_SKIP() << "this kernel cannot keep a process from files";
    }

    SandboxRights rights() const { return {.files = SandboxFiles{.readable = {given_}, .writable = {job_}}}; }

    const TemporaryFolder folder_;
    const std::string secret_ = folder_.makeFile("home/.ssh/id", "secret");
    const std::string given_ = folder_.makeFile("photos/given.jpg", "photo");
    const std::string beside_ = folder_.makeFile("photos/beside.jpg", "photo");
    const std::string job_ = folder_.makeFolder("job");
};

} // namespace

TEST_F(SandboxFilesTest, WhatIsGivenIsReadAndNothingBesideIt)
{
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(given_); }), "done");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(beside_); }), "EACCES");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(secret_); }), "EACCES");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(folder_.path("home"), O_RDONLY | O_DIRECTORY); }), "EACCES");
}

TEST_F(SandboxFilesTest, ALinkToElsewhereLeadsNowhere)
{
    const std::string link = folder_.path("job/link");
    ASSERT_EQ(symlink(secret_.c_str(), link.c_str()), 0);
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(link); }), "EACCES");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(job_ + "/../home/.ssh/id"); }), "EACCES");
}

TEST_F(SandboxFilesTest, WhatIsGivenToReadIsNotWritten)
{
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(given_, O_WRONLY); }), "EACCES");
    EXPECT_EQ(saidConfined(rights(), [&] { return outcome(unlink(given_.c_str())); }), "EACCES");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(folder_.path("photos/new"), O_WRONLY | O_CREAT); }), "EACCES");
    EXPECT_EQ(TemporaryFolder::contentsOf(given_), "photo");
}

TEST_F(SandboxFilesTest, AFileIsNotCutWhereTheKernelKnowsOfIt)
{
    if (SandboxKernel::running().landlockVersion < 3)
        GTEST_SKIP() << "this kernel cannot keep a process from cutting files";
    EXPECT_EQ(saidConfined(rights(), [&] { return outcome(truncate(given_.c_str(), 1)); }), "EACCES");
    EXPECT_EQ(TemporaryFolder::contentsOf(given_), "photo");
}

TEST_F(SandboxFilesTest, AFolderThatIsGivenIsWrittenInEveryWayAMovieTakes)
{
    const auto work = [&] {
        const std::string inner = job_ + "/inner";
        const std::string part = inner + "/part";
        const std::string movie = job_ + "/movie";
        std::string said = outcome(mkdir(inner.c_str(), 0700));
        said += " " + opened(part, O_RDWR | O_CREAT | O_EXCL);
        said += " " + outcome(truncate(part.c_str(), 5));
        said += " " + outcome(renameat2(AT_FDCWD, part.c_str(), AT_FDCWD, movie.c_str(), RENAME_NOREPLACE));
        said += " " + opened(inner, O_TMPFILE | O_RDWR);
        return said + " " + outcome(rmdir(inner.c_str()));
    };
    EXPECT_EQ(saidConfined(rights(), work), "done done done done done done");
    EXPECT_THAT(folder_.entries(), testing::Contains("job/movie"));
}

TEST_F(SandboxFilesTest, WhatAnyProgramReadsIsReadAndNotWritten)
{
    EXPECT_EQ(saidConfined(rights(), [&] { return opened("/etc/passwd") + " " + opened("/usr/bin/env"); }),
              "done done");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened("/proc/self/status") + " " + opened("/proc/meminfo"); }),
              "done done");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened("/dev/null", O_RDWR) + " " + opened("/dev/urandom"); }),
              "done done");
    EXPECT_EQ(saidConfined(rights(), [&] { return opened("/etc/new-of-stillora-test", O_WRONLY | O_CREAT); }),
              "EACCES");
}

TEST_F(SandboxFilesTest, OfProcessesItSeesItselfAlone)
{
    const std::string parent = "/proc/" + std::to_string(getpid()) + "/environ";
    EXPECT_EQ(saidConfined(rights(), [&] { return opened(parent); }), "EACCES");
}

TEST_F(SandboxFilesTest, AnOlderKernelIsAskedForWhatItKnowsAlone)
{
    for (int version = 2; version <= SandboxKernel::running().landlockVersion; ++version) {
        const SandboxKernel kernel{.landlockVersion = version, .filtersCalls = false};
        const auto tried = [&] {
            const std::string read = opened(given_) + " " + opened(secret_);
            return read + " " + outcome(truncate(given_.c_str(), 5));
        };
        EXPECT_THAT(saidConfined(rights(), tried, kernel),
                    testing::EndsWith(version < 3 ? "; done EACCES done" : "; done EACCES EACCES"))
            << version;
    }
}

TEST_F(SandboxFilesTest, PathsWhereNothingIsDoNoHarm)
{
    const SandboxRights rights{.files = SandboxFiles{.readable = {folder_.path("missing"), given_ + "/below", ""},
                                                     .writable = {folder_.path("missing too")}}};
    EXPECT_EQ(saidConfined(rights, [&] { return opened(given_); }), "EACCES");
}

TEST_F(SandboxFilesTest, FilesStayAsTheyAreWhereNoneAreNamed)
{
    EXPECT_EQ(saidConfined({}, [&] { return opened(secret_) + " " + opened(job_ + "/new", O_WRONLY | O_CREAT); }),
              "done done");
}

TEST_F(SandboxFilesTest, ThreadsThatComeLaterAreConfinedToo)
{
    EXPECT_EQ(saidConfined(rights(),
                           [&] {
                               std::string said;
                               std::thread([&] { said = opened(given_) + " " + opened(secret_); }).join();
                               return said;
                           }),
              "done EACCES");
}

TEST(Sandbox, SaysWhatTheKernelCannotAndGoesOnWithTheRest)
{
    const TemporaryFolder folder;
    const std::string file = folder.makeFile("file");
    const SandboxRights rights{.files = SandboxFiles{}};
    const SandboxKernel none{};
    EXPECT_EQ(
        saidConfined(
            rights, [&] { return opened(file) + " " + std::to_string(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0)); }, none),
        "The kernel cannot keep a process from files (Landlock is missing or too old); "
        "The kernel cannot keep a process from system calls (seccomp is missing); done 1");
    EXPECT_THAT(saidConfined(rights, [&] { return opened(file); }, {.landlockVersion = 1, .filtersCalls = false}),
                testing::StartsWith("The kernel cannot keep a process from files"));
    EXPECT_EQ(saidConfined(
                  rights, [&] { return outcome(socket(AF_INET, SOCK_STREAM, 0)); }, kernelWithoutLandlock()),
              SandboxKernel::running().filtersCalls
                  ? "The kernel cannot keep a process from files (Landlock is missing or too old); EPERM"
                  : "The kernel cannot keep a process from files (Landlock is missing or too old); "
                    "The kernel cannot keep a process from system calls (seccomp is missing); done");
}

TEST(Sandbox, NewPrivilegesAndCoreDumpsAreGivenUp)
{
    EXPECT_EQ(saidConfined({},
                           [] {
                               rlimit limit{};
                               getrlimit(RLIMIT_CORE, &limit);
                               return std::to_string(prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0)) + " " +
                                      std::to_string(limit.rlim_cur) + " " + std::to_string(limit.rlim_max);
                           }),
              "1 0 0");
}

TEST(Sandbox, AddressSpaceIsLimited)
{
    if (platform::kBuiltWithSanitizer)
        GTEST_SKIP() << "a sanitizer takes terabytes";
    constexpr size_t kHalf = size_t{512} << 20;
    const auto taken = [] {
        void* const place = mmap(nullptr, kHalf, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return outcome(place == MAP_FAILED ? -1 : 0);
    };
    EXPECT_EQ(saidConfined({.addressSpaceBytes = uint64_t{8} << 30}, taken), "done");
    EXPECT_EQ(saidConfined({.addressSpaceBytes = uint64_t{256} << 20}, taken), "ENOMEM");
}

namespace {

class SandboxCallsTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (!SandboxKernel::running().filtersCalls)
            GTEST_SKIP() << "this kernel cannot keep a process from system calls";
    }

    /// Without Landlock, which would refuse some of them too.
    static std::string said(const std::function<std::string()>& speak, SandboxSockets sockets = SandboxSockets::None)
    {
        const std::string text = saidConfined({.sockets = sockets}, speak, kernelWithoutLandlock());
        const size_t lack = text.find("; ");
        return lack == std::string::npos ? text : text.substr(lack + 2);
    }
};

/// A process of this user's that waits until it is ended.
class Bystander final {
public:
    Bystander() : process_(fork())
    {
        if (process_ == 0)
            for (;;)
                pause();
    }
    ~Bystander()
    {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    Bystander(const Bystander&) = delete;
    Bystander& operator=(const Bystander&) = delete;

    pid_t process() const { return process_; }

private:
    const pid_t process_;
};

std::string connectedTo(const std::string& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return socket ? outcome(connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address))
                  : strerrorname_np(errno);
}

} // namespace

TEST_F(SandboxCallsTest, NoProgramIsRunAndNoProcessMade)
{
    const auto run = [] {
        std::string program = "/bin/true";
        const std::array<char*, 2> arguments{program.data(), nullptr};
        return outcome(execv(program.c_str(), arguments.data()));
    };
    EXPECT_EQ(said(run), "EPERM");
    EXPECT_EQ(said([] { return outcome(syscall(SYS_execveat, AT_FDCWD, "/bin/true", nullptr, nullptr, 0)); }), "EPERM");
    if (platform::kBuiltWithSanitizer)
        return;
    const auto made = [] {
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        return outcome(child);
    };
    EXPECT_EQ(said(made), "EPERM");
}

TEST_F(SandboxCallsTest, OtherProcessesAreLeftAlone)
{
    if (platform::kBuiltWithSanitizer)
        GTEST_SKIP() << "sanitizers look at other processes";
    const Bystander other;
    EXPECT_EQ(said([&] { return outcome(ptrace(PTRACE_SEIZE, other.process(), nullptr, nullptr)); }), "EPERM");
    EXPECT_EQ(said([&] { return outcome(kill(other.process(), SIGTERM)); }), "EPERM");
    EXPECT_EQ(said([&] { return outcome(prlimit(other.process(), RLIMIT_CORE, nullptr, nullptr)); }), "EPERM");
    const auto stolen = [&] {
        char letter = 0;
        iovec own{&letter, 1};
        iovec remote{&letter, 1};
        return outcome(process_vm_readv(other.process(), &own, 1, &remote, 1, 0));
    };
    EXPECT_EQ(said(stolen), "EPERM");
}

TEST_F(SandboxCallsTest, NoSocketOfTheNetworkIsMade)
{
    for (const SandboxSockets sockets : {SandboxSockets::None, SandboxSockets::ThisMachine})
        for (const int family : {AF_INET, AF_INET6, AF_NETLINK, AF_PACKET})
            EXPECT_EQ(said([&] { return outcome(socket(family, SOCK_DGRAM, 0)); }, sockets), "EPERM") << family;
}

TEST_F(SandboxCallsTest, NoPairIsMadeToReachOtherSocketsFrom)
{
    // One of datagrams could be used to send to any socket of this machine.
    std::array<int, 2> ends{};
    EXPECT_EQ(said([&] { return outcome(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends.data())); }), "EPERM");
}

TEST_F(SandboxCallsTest, SocketsOfThisMachineAreForThoseAloneThatNeedThem)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("socket");
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const FileDescriptor listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(listener.get(), 1), 0);
    EXPECT_EQ(said([&] { return connectedTo(path); }), "EPERM");
    EXPECT_EQ(said([&] { return connectedTo(path); }, SandboxSockets::ThisMachine), "done");
}

TEST_F(SandboxCallsTest, SocketsThatAreThereAreUsed)
{
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    const FileDescriptor first(ends[0]);
    const FileDescriptor second(ends[1]);
    EXPECT_EQ(said([&] { return outcome(send(first.get(), "x", 1, MSG_NOSIGNAL)); }), "done");
}

TEST_F(SandboxCallsTest, InterfacesOfTheKernelThatNobodyNeedsAreShut)
{
    const auto called = [](long number) { return said([number] { return outcome(syscall(number, 0, 0, 0, 0, 0)); }); };
    for (const long number :
         {SYS_bpf, SYS_perf_event_open, SYS_userfaultfd, SYS_io_uring_setup, SYS_keyctl, SYS_add_key, SYS_mount,
          SYS_unshare, SYS_setns, SYS_init_module, SYS_finit_module, SYS_pidfd_getfd})
        EXPECT_EQ(called(number), "EPERM") << number;
    // A library that tries something new is told that there is none, and does without.
    for (const long number : {SYS_clone3, SYS_modify_ldt, SYS_shmget, SYS_kcmp})
        EXPECT_EQ(called(number), "ENOSYS") << number;
}

TEST_F(SandboxCallsTest, WhatWasWrittenIsNotRun)
{
    constexpr size_t kLength = 4096;
    const auto mapped = [](int protection) {
        void* const place = mmap(nullptr, kLength, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return outcome(place == MAP_FAILED ? -1 : 0);
    };
    EXPECT_EQ(said([&] { return mapped(PROT_READ | PROT_WRITE | PROT_EXEC); }), "EPERM");
    EXPECT_EQ(said([&] { return mapped(PROT_WRITE | PROT_EXEC); }), "EPERM");
    EXPECT_EQ(said([&] { return mapped(PROT_READ | PROT_EXEC); }), "done") << "libraries are loaded so";
    const auto changed = [](int protection) {
        void* const place = mmap(nullptr, kLength, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return outcome(mprotect(place, kLength, protection));
    };
    EXPECT_EQ(said([&] { return changed(PROT_READ | PROT_EXEC); }), "EPERM");
    EXPECT_EQ(said([&] { return changed(PROT_READ); }), "done");
}

TEST_F(SandboxCallsTest, NothingIsTypedIntoATerminal)
{
    EXPECT_EQ(said([] { return outcome(ioctl(STDIN_FILENO, TIOCSTI, "x")); }), "ENOSYS");
}

TEST_F(SandboxCallsTest, ThreadsMemoryAndSignalsToOneselfWork)
{
    const auto work = [] {
        int sum = 0;
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&sum, i] { __atomic_add_fetch(&sum, i, __ATOMIC_SEQ_CST); });
        for (std::thread& thread : threads)
            thread.join();
        std::signal(SIGUSR1, SIG_IGN);
        return std::to_string(sum) + " " + outcome(raise(SIGUSR1)) + " " +
               outcome(prctl(PR_SET_NAME, "confined", 0, 0, 0)) + " " + outcome(setpriority(PRIO_PROCESS, 0, 5));
    };
    EXPECT_EQ(said(work), "6 done done done");
}

TEST_F(SandboxCallsTest, AFaultStillEndsTheProcessAsItDoes)
{
    EXPECT_EQ(said([]() -> std::string { abort(); }), "ended with status " + std::to_string(SIGABRT));
}
