#include "client/service/ServiceProcess.h"

#include "client/processes/WorkingClock.h"
#include "client/text/ClientError.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// A program of shell lines.
std::string program(const TemporaryFolder& folder, std::string_view lines)
{
    const std::string path = folder.makeFile("program", "#!/bin/sh\n" + std::string(lines) + "\n");
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    return path;
}

/// All that the process writes to its socket until it ends.
std::string readSocket(int socket)
{
    std::string text;
    char buffer[256];
    ssize_t count = 0;
    while ((count = read(socket, buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<size_t>(count));
    close(socket);
    return text;
}

TEST(ServiceProcess, HandsOverItsSocketByActivation)
{
    const TemporaryFolder folder;
    setenv("LISTEN_FDNAMES", "leftover", 1);
    const auto process = ServiceProcess::start(
        program(folder, R"(echo "$LISTEN_FDS $(test "$LISTEN_PID" = $$ && echo own) $LISTEN_FDNAMES." >&3)"));
    unsetenv("LISTEN_FDNAMES");
    ASSERT_TRUE(process);
    EXPECT_EQ(readSocket(process->takeSocket()), "1 own .\n");
    EXPECT_TRUE(process->waitForEnd(10s));
    EXPECT_EQ(process->howItEnded(), "with exit status 0");
}

TEST(ServiceProcess, PassesArgumentsOn)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(program(folder, R"(printf '%s|' "$@" >&3)"), {"--one", "two words"});
    ASSERT_TRUE(process);
    EXPECT_EQ(readSocket(process->takeSocket()), "--one|two words|");
}

TEST(ServiceProcess, InheritsNothingElse)
{
    const TemporaryFolder folder;
    // Without close-on-exec, as careless libraries open them.
    const int stray = open("/dev/null", O_RDONLY);
    const int high = fcntl(stray, F_DUPFD, 300);
    const auto process = ServiceProcess::start(program(folder, "exec ls /proc/self/fd >&3"));
    close(stray);
    close(high);
    ASSERT_TRUE(process);
    // The fourth is the one with which ls reads the folder.
    EXPECT_EQ(readSocket(process->takeSocket()), "0\n1\n2\n3\n4\n");
}

TEST(ServiceProcess, InheritsOfTheEnvironmentWhatProgramsNeed)
{
    const TemporaryFolder folder;
    const EnvironmentVariable agent("SSH_AUTH_SOCK", "/door");
    const EnvironmentVariable bus("DBUS_SESSION_BUS_ADDRESS", "unix:path=/door");
    const EnvironmentVariable zone("TZ", "UTC-3");
    const auto process = ServiceProcess::start(program(folder, "env >&3"));
    ASSERT_TRUE(process);
    const std::string variables = readSocket(process->takeSocket());
    EXPECT_THAT(variables, HasSubstr("TZ=UTC-3\n"));
    EXPECT_THAT(variables, HasSubstr("PATH="));
    // What was freed of a large request is there for what comes after.
    EXPECT_THAT(variables, HasSubstr("G_SLICE=always-malloc\n"));
    EXPECT_THAT(variables, Not(HasSubstr("door")));
}

TEST(ServiceProcess, IsToldOfTheFilesThatItIsToWorkOn)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(
        program(folder, R"({ echo "$@"; echo "$TMPDIR"; tr '\000' ';' </proc/self/fd/4; ls /proc/self/fd; } >&3)"),
        {"--one"},
        ServiceProcess::Rights{.files = {.readable = {"/photo"}, .writable = {"/job"}}, .temporaryFolder = "/job/t"});
    ASSERT_TRUE(process);
    // The sixth is the one with which ls reads the folder.
    EXPECT_EQ(readSocket(process->takeSocket()), "--one --files 4\n/job/t\nr/photo;w/job;0\n1\n2\n3\n4\n5\n");
}

TEST(ServiceProcess, TellsWhatItTakesOfTheProcessorsUntilItEnds)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(
        program(folder, "i=0; while [ $i -lt 100000 ]; do i=$((i+1)); done; echo done >&3; exec 3>&-; exec sleep 600"));
    ASSERT_TRUE(process);
    ASSERT_EQ(readSocket(process->takeSocket()), "done\n");
    const auto busy = process->processorTime();
    ASSERT_TRUE(busy);
    EXPECT_GT(*busy, 5ms) << "a hundred thousand turns";
    EXPECT_LT(*busy, 60s);
    process->kill();
    EXPECT_FALSE(process->processorTime()) << "its number may be another's";
}

TEST(ServiceProcess, HasASessionOfItsOwnSoThatTheTerminalDoesNotReachIt)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(program(folder, R"(set -- $(cat /proc/$$/stat); echo "$1 $5 $6" >&3)"));
    ASSERT_TRUE(process);
    std::istringstream numbers(readSocket(process->takeSocket()));
    int pid = 0;
    int group = 0;
    int session = 0;
    numbers >> pid >> group >> session;
    EXPECT_GT(pid, 0);
    EXPECT_EQ(group, pid);
    EXPECT_EQ(session, pid);
}

TEST(ServiceProcess, KeepsTheLastLinesOfItsLog)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(program(folder, "echo first >&2; echo second; printf unfinished >&2"));
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->waitForEnd(10s));
    EXPECT_FALSE(process->readLog()) << "there will be no more";
    EXPECT_THAT(process->logLines(), ElementsAre("first", "second", "unfinished"));
}

TEST(ServiceProcess, BoundsWhatItKeepsOfATalkativeProcess)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(
        program(folder, "i=0; while [ $i -lt 20000 ]; do echo \"line $i\"; i=$((i+1)); done >&2"));
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->waitForEnd(60s)) << "its pipe is emptied while it is waited for";
    process->readLog();
    EXPECT_LE(process->logLines().size(), 200u);
    EXPECT_EQ(process->logLines().back(), "line 19999");
}

TEST(ServiceProcess, TakesTheLogOfAProcessThatWritesWithoutEndInParts)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(program(folder, "exec yes >&2"));
    ASSERT_TRUE(process);
    size_t lines = 0;
    process->setLineHandler([&](const std::string&) { ++lines; });
    for (int i = 0; i < 10; ++i) {
        lines = 0;
        EXPECT_TRUE(process->readLog());
        EXPECT_LT(lines, 40'000U) << "of two bytes each";
    }
    EXPECT_FALSE(process->waitForEnd(100ms));
}

TEST(ServiceProcess, HandsOutEachLineOfItsLog)
{
    const TemporaryFolder folder;
    const auto process =
        ServiceProcess::start(program(folder, "i=0; while [ $i -lt 500 ]; do echo $i; i=$((i+1)); done; printf end"));
    ASSERT_TRUE(process);
    std::vector<std::string> lines;
    process->setLineHandler([&](const std::string& line) { lines.push_back(line); });
    EXPECT_TRUE(process->waitForEnd(60s));
    while (process->readLog()) {
    }
    EXPECT_EQ(lines.size(), 501u);
    EXPECT_EQ(lines.front(), "0");
    EXPECT_EQ(lines.back(), "end");
}

TEST(ServiceProcess, SaysWhichProgramCannotBeRun)
{
    platform::NSError error;
    EXPECT_FALSE(ServiceProcess::start("/nowhere/stillora-video-creator", {}, &error));
    EXPECT_EQ(error.domain, kClientErrorDomain);
    EXPECT_EQ(errorOf(error).code, ErrorCode::ServiceNotStarted);
    EXPECT_THAT(error.localizedDescription, HasSubstr("/nowhere/stillora-video-creator"));
    EXPECT_THAT(error.localizedDescription, HasSubstr("No such file or directory"));
}

TEST(ServiceProcess, TellsTheSignalThatEndedIt)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(program(folder, "kill -SEGV $$"));
    ASSERT_TRUE(process);
    EXPECT_TRUE(process->waitForEnd(10s));
    EXPECT_THAT(process->howItEnded(), HasSubstr("signal 11"));
}

TEST(ServiceProcess, EndsWithItsObject)
{
    const TemporaryFolder folder;
    auto process =
        ServiceProcess::start(program(folder, "echo $$ >&3; trap '' TERM INT HUP; while :; do sleep 1; done"));
    ASSERT_TRUE(process);
    char text[32] = {};
    ASSERT_GT(read(process->takeSocket(), text, sizeof text - 1), 0);
    const int pid = std::atoi(text);
    EXPECT_EQ(kill(pid, 0), 0);
    process.reset();
    EXPECT_EQ(kill(pid, 0), -1) << "ended, and no zombie";
}

TEST(ServiceProcess, EndsWithTheProcessThatStartedIt)
{
    const TemporaryFolder folder;
    const std::string path = program(folder, "echo $$ >&2; exec sleep 1000");
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t starter = fork();
    if (starter == 0) {
        const auto process = ServiceProcess::start(path);
        while (process && process->logLines().empty())
            process->readLog();
        const int pid = process ? std::atoi(process->logLines().back().c_str()) : 0;
        static_cast<void>(!write(ends[1], &pid, sizeof pid));
        _exit(0);
    }
    int pid = 0;
    ASSERT_EQ(read(ends[0], &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
    ASSERT_GT(pid, 0);
    waitpid(starter, nullptr, 0);
    // Nobody here is its parent, so there is only asking.
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    bool isGone = false;
    while (!isGone && std::chrono::steady_clock::now() < deadline) {
        std::ifstream state("/proc/" + std::to_string(pid) + "/stat");
        std::string number;
        std::string name;
        std::string letter;
        state >> number >> name >> letter;
        isGone = !state || letter == "Z" || letter == "X";
        poll(nullptr, 0, 5);
    }
    EXPECT_TRUE(isGone);
    close(ends[0]);
    close(ends[1]);
}

TEST(ServiceProcess, GetsItsSignalsBack)
{
    const TemporaryFolder folder;
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &blocked, &before);
    const auto ignored = signal(SIGPIPE, SIG_IGN);
    const auto process = ServiceProcess::start(program(folder, "grep -E 'Sig(Blk|Ign)' /proc/self/status >&3"));
    signal(SIGPIPE, ignored);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    ASSERT_TRUE(process);
    EXPECT_EQ(readSocket(process->takeSocket()), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n");
}

TEST(ServiceProcess, StandsStillWithItsProgramAndGoesOn)
{
    const TemporaryFolder folder;
    const auto process = ServiceProcess::start(program(folder, "echo $$ >&3; exec sleep 600"));
    ASSERT_TRUE(process);
    const int socket = process->takeSocket();
    char text[32] = {};
    ASSERT_GT(read(socket, text, sizeof text - 1), 0);
    const auto pid = static_cast<id_t>(std::atoi(text));
    // Waits until that is so.
    siginfo_t info = {};
    ServiceProcess::stopAll();
    EXPECT_EQ(waitid(P_PID, pid, &info, WSTOPPED), 0);
    EXPECT_EQ(info.si_code, CLD_STOPPED);
    ServiceProcess::continueAll();
    EXPECT_EQ(waitid(P_PID, pid, &info, WCONTINUED), 0);
    EXPECT_EQ(info.si_code, CLD_CONTINUED);
    close(socket);
}

TEST(WorkingClock, StandsStillWhileTheProgramIsStopped)
{
    const auto before = WorkingClock::now();
    WorkingClock::addStop(std::chrono::hours(1));
    EXPECT_LT(WorkingClock::now(), before - 59min);
    EXPECT_GT(WorkingClock::now(), before - 61min);
}

TEST(ServiceProcess, IsFoundByItsVariableAlone)
{
    const TemporaryFolder folder;
    const std::string path = program(folder, "exit 0");
    setenv("STILLORA_VIDEO_CREATOR", path.c_str(), 1);
    EXPECT_EQ(ServiceProcess::findProgram(), path);
    setenv("STILLORA_VIDEO_CREATOR", "/nowhere/at/all", 1);
    platform::NSError error;
    EXPECT_FALSE(ServiceProcess::findProgram(&error)) << "a wrong name is not passed over in silence";
    EXPECT_EQ(errorOf(error).code, ErrorCode::ServiceNotFound);
    EXPECT_THAT(error.localizedDescription, HasSubstr("/nowhere/at/all"));
    unsetenv("STILLORA_VIDEO_CREATOR");
}

} // namespace
