// The real program, with real sockets and no stage run: what a process does from its start to its end.

#include "FakeStages.h"

#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/connection/NSXPCConnection.h"
#include "tests/support/TestSockets.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

using platform::NSError;
using platform::NSXPCConnection;

namespace {

using namespace std::chrono_literals;

/// The program as a child, with `socket` as descriptor 3 unless that is -1.
class ServiceProcess {
public:
    explicit ServiceProcess(int socket, const std::string& variables = "LISTEN_FDS=1 LISTEN_PID=$$")
    {
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        if (socket >= 0)
            posix_spawn_file_actions_adddup2(&actions, socket, 3);
        std::array<int, 2> errors{};
        EXPECT_EQ(pipe2(errors.data(), O_CLOEXEC), 0);
        posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
        // The shell knows its own process, which then becomes the program.
        const std::string command = variables + " exec '" VIDEO_CREATOR_PROGRAM "'";
        std::string shell = "/bin/sh";
        std::string option = "-c";
        std::array<char*, 4> arguments{shell.data(), option.data(), const_cast<char*>(command.c_str()), nullptr};
        EXPECT_EQ(posix_spawn(&process_, "/bin/sh", &actions, nullptr, arguments.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
        close(errors[1]);
        if (socket >= 0)
            close(socket);
        errors_ = errors[0];
    }
    ServiceProcess(const ServiceProcess&) = delete;
    ServiceProcess& operator=(const ServiceProcess&) = delete;
    ~ServiceProcess()
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        close(errors_);
    }

    void signal(int number) const { kill(process_, number); }

    /// The exit code, -signal if it was killed, or nothing if it still runs at the deadline.
    std::optional<int> waitForExit()
    {
        const auto deadline = std::chrono::steady_clock::now() + 60s;
        int status = 0;
        while (waitpid(process_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > deadline)
                return std::nullopt;
            std::this_thread::yield();
        }
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    /// All that it has written; only once it has ended.
    std::string standardError() const
    {
        std::string text;
        std::array<char, 1024> buffer{};
        for (ssize_t length = 0; (length = read(errors_, buffer.data(), buffer.size())) > 0;)
            text.append(buffer.data(), static_cast<size_t>(length));
        return text;
    }

private:
    pid_t process_ = 0;
    int errors_ = -1;
};

platform::NSXPCConnectionPtr connectTo(int socket)
{
    NSError error;
    auto connection = NSXPCConnection::connectionWithSocket(socket, &error);
    EXPECT_TRUE(connection) << error.localizedDescription;
    connection->setRemoteObjectInterface(morStilloraVideoCreatorProtocol::interface());
    connection->resume();
    return connection;
}

/// Whether an empty request is answered.
bool answers(const platform::NSXPCConnectionPtr& connection)
{
    std::promise<bool> isCancelled;
    VideoCreatorProxy(connection->remoteObjectProxy())
        .createStillMotionVideoWithPhotos(
            {}, {}, 0, 0, false, 0, std::nullopt, 0, false, {}, {}, {},
            [&](const std::optional<platform::NSData>& movie, const std::optional<NSError>& error, bool cancelled) {
                EXPECT_FALSE(movie);
                EXPECT_FALSE(error) << error->localizedDescription;
                isCancelled.set_value(cancelled);
            });
    auto future = isCancelled.get_future();
    return future.wait_for(60s) == std::future_status::ready && !future.get();
}

std::string outputOf(const std::string& command)
{
    std::string output;
    if (FILE* pipe = popen((command + " 2>&1").c_str(), "r")) {
        std::array<char, 1024> buffer{};
        while (const auto length = fread(buffer.data(), 1, buffer.size(), pipe))
            output.append(buffer.data(), length);
        pclose(pipe);
    }
    return output;
}

} // namespace

TEST(ServiceProcess, SaysThatItHasNoSocketAndFails)
{
    const struct {
        const char* name;
        const char* variables;
    } rows[] = {
        {"nothing passed", ""},
        {"passed to another process", "LISTEN_FDS=1 LISTEN_PID=1"},
        {"no descriptor", "LISTEN_FDS=0 LISTEN_PID=$$"},
    };
    for (const auto& row : rows) {
        ServiceProcess service(-1, row.variables);
        EXPECT_EQ(service.waitForExit(), 1) << row.name;
        EXPECT_NE(service.standardError().find("no socket was passed to this process"), std::string::npos) << row.name;
    }
}

TEST(ServiceProcess, SaysThatWhatItWasPassedIsNoSocketAndFails)
{
    ServiceProcess service(open("/dev/null", O_RDWR | O_CLOEXEC));
    EXPECT_EQ(service.waitForExit(), 1);
    EXPECT_NE(service.standardError().find("descriptor 3 is no UNIX stream socket"), std::string::npos);
}

TEST(ServiceProcess, ReturnsZeroWhenItsOnlyClientHasGone)
{
    const auto [one, other] = socketPair();
    ServiceProcess service(one);
    auto connection = connectTo(other);
    EXPECT_TRUE(answers(connection));
    connection->invalidate();
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, ReturnsZeroWhenItsClientNeverSaysAWord)
{
    const auto [one, other] = socketPair();
    ServiceProcess service(one);
    close(other);
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, EndsCleanlyOnATerminationSignal)
{
    const auto [one, other] = socketPair();
    ServiceProcess service(one);
    const auto connection = connectTo(other);
    EXPECT_TRUE(answers(connection));
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, LeavesATerminalsInterruptToItsClient)
{
    const auto [one, other] = socketPair();
    ServiceProcess service(one);
    const auto connection = connectTo(other);
    EXPECT_TRUE(answers(connection));
    service.signal(SIGINT);
    EXPECT_TRUE(answers(connection));
    connection->invalidate();
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, IsNotEndedByAClientThatWentOrAFullDiskQuota)
{
    const auto [one, other] = socketPair();
    ServiceProcess service(one);
    const auto connection = connectTo(other);
    EXPECT_TRUE(answers(connection));
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
        service.signal(signal);
        EXPECT_TRUE(answers(connection)) << signal;
    }
    connection->invalidate();
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, ServesManyClientsOfAListeningSocketOneAfterAnotherAndAtOnce)
{
    const ListeningSocket socket;
    ServiceProcess service(socket.descriptor);
    const auto first = connectTo(socket.connected());
    EXPECT_TRUE(answers(first));
    {
        const auto second = connectTo(socket.connected());
        EXPECT_TRUE(answers(second));
        second->invalidate();
    }
    EXPECT_TRUE(answers(connectTo(socket.connected())));
    EXPECT_TRUE(answers(first));
    service.signal(SIGINT);
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, IsNotHarmedByAClientThatSendsGarbage)
{
    const ListeningSocket socket;
    ServiceProcess service(socket.descriptor);
    for (const auto& bytes :
         {std::string(100000, 'x'), std::string("\0AUTH ANONYMOUS\r\n", 17), std::string(10, '\0')}) {
        const int garbage = socket.connected();
        (void)send(garbage, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        EXPECT_TRUE(answers(connectTo(socket.connected())));
        close(garbage);
    }
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}

TEST(ServiceProcess, LetsTheToolsOfABusIn)
{
    const ListeningSocket socket;
    ServiceProcess service(socket.descriptor);
    const auto address = "unix:path=" + socket.path();
    const std::string object = "/app/stillora/VideoCreator";
    const std::string interface = "app.stillora.morStilloraVideoCreatorProtocol";

    const auto sent = outputOf("dbus-send --bus=" + address + " --print-reply --dest=app.stillora.VideoCreator " +
                               object + " org.freedesktop.DBus.Peer.Ping");
    EXPECT_TRUE(sent.starts_with("method return")) << sent;
    const auto peer =
        outputOf("dbus-send --peer=" + address + " --print-reply " + object + " " + interface + ".cancelCreation");
    EXPECT_TRUE(peer.starts_with("method return")) << peer;
    const auto introspected = outputOf("gdbus introspect --address " + address + " --dest x.y --object-path " + object);
    EXPECT_NE(introspected.find("createStillMotionVideoWithPhotos(in  a(sa{sv}) photos,"), std::string::npos)
        << introspected;
    const auto called = outputOf("gdbus call --address " + address + " --dest x.y --object-path " + object +
                                 " --method " + interface + ".cancelCreation");
    EXPECT_EQ(called, "()\n");
    // Not in the list of packages: there wherever systemd is.
    if (access("/usr/bin/busctl", X_OK) == 0) {
        const auto tree = outputOf("busctl --address=" + address + " introspect app.stillora.VideoCreator " + object);
        EXPECT_NE(tree.find(".cancelCreation"), std::string::npos) << tree;
        EXPECT_EQ(outputOf("busctl --address=" + address + " call app.stillora.VideoCreator " + object + " " +
                           interface + " cancelCreation"),
                  "");
    }
    service.signal(SIGTERM);
    EXPECT_EQ(service.waitForExit(), 0) << service.standardError();
}
