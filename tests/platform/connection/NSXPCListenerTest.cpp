#include "platform/connection/NSXPCListener.h"

#include "Peers.h"
#include "tests/support/TestSockets.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>

using platform::NSError;
using platform::NSXPCConnection;
using platform::NSXPCConnectionPtr;
using platform::NSXPCListener;

namespace {

class Delegate final : public platform::NSXPCListenerDelegate {
public:
    bool listener(NSXPCListener&, const NSXPCConnectionPtr& connection) override
    {
        if (!accepts)
            return false;
        const auto object = std::make_shared<EchoObject>();
        connection->setExportedInterface(testInterface());
        connection->setExportedObject(object);
        // May come after the delegate itself has gone.
        connection->setInvalidationHandler([journal = journal] { journal->add("gone"); });
        {
            const std::lock_guard guard(mutex_);
            objects_.push_back(object);
        }
        connection->resume();
        return true;
    }
    std::vector<std::shared_ptr<EchoObject>> objects() const
    {
        const std::lock_guard guard(mutex_);
        return objects_;
    }

    bool accepts = true;
    const std::shared_ptr<Journal> journal = std::make_shared<Journal>();

private:
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<EchoObject>> objects_;
};

/// A listener that runs on a thread of its own, which stands for the main thread.
struct RunningListener {
    std::shared_ptr<Delegate> delegate = std::make_shared<Delegate>();
    std::shared_ptr<NSXPCListener> listener;
    std::future<void> returned;

    explicit RunningListener(int socket, bool accepts = true)
    {
        delegate->accepts = accepts;
        listener = NSXPCListener::listenerWithSocket(socket);
        EXPECT_TRUE(listener);
        listener->setDelegate(delegate);
        returned = std::async(std::launch::async, [this] { listener->resume(); });
    }
    ~RunningListener() { listener->invalidate(); }
    bool waitForReturn() { return returned.wait_for(kDeadline) == std::future_status::ready; }
};

} // namespace

TEST(NSXPCListener, ReturnsWhenTheOnlyClientOfAConnectedSocketHasGone)
{
    const auto [one, other] = socketPair();
    RunningListener running(one);
    {
        PlainClient client(other);
        EXPECT_EQ(client.callText("ping", "()"), "()");
        EXPECT_EQ(running.returned.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    }
    EXPECT_TRUE(running.waitForReturn());
    EXPECT_EQ(running.delegate->journal->entries(), std::vector<std::string>({"gone"}));
}

TEST(NSXPCListener, ReturnsWhenTheOnlyClientLeavesBeforeItSaysWhoItIs)
{
    const LogRecorder log;
    const auto [one, other] = socketPair();
    RunningListener running(one);
    close(other);
    EXPECT_TRUE(running.waitForReturn());
    EXPECT_TRUE(log.contains("Connection of a client failed"));
}

TEST(NSXPCListener, GivesEachClientOfAListeningSocketItsOwnConnection)
{
    const ListeningSocket socket;
    RunningListener running(socket.descriptor);
    PlainClient one(socket.connected());
    PlainClient other(socket.connected());
    EXPECT_EQ(one.callText("ping", "()"), "()");
    EXPECT_EQ(other.callText("tell", "('hello',)"), "()");
    auto journals = std::vector<std::vector<std::string>>();
    for (const auto& object : running.delegate->objects())
        journals.push_back(object->journal.entries());
    std::ranges::sort(journals);
    EXPECT_EQ(journals, (std::vector<std::vector<std::string>>{{"hello"}, {"ping"}}));
    running.listener->invalidate();
    EXPECT_TRUE(running.waitForReturn());
}

TEST(NSXPCListener, ServesOthersAfterAClientHasGone)
{
    const ListeningSocket socket;
    RunningListener running(socket.descriptor);
    for (size_t i = 1; i <= 3; ++i) {
        {
            PlainClient client(socket.connected());
            EXPECT_EQ(client.callText("ping", "()"), "()");
        }
        EXPECT_TRUE(running.delegate->journal->waitFor(i));
    }
    EXPECT_EQ(running.returned.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    running.listener->invalidate();
    EXPECT_TRUE(running.waitForReturn());
}

TEST(NSXPCListener, ServesOthersWhileManyPeersSayNothingOrGarbage)
{
    const LogRecorder log;
    const ListeningSocket socket;
    RunningListener running(socket.descriptor);
    std::vector<std::unique_ptr<RawClient>> peers;
    for (int i = 0; i < 40; ++i) {
        peers.push_back(std::make_unique<RawClient>(socket.connected()));
        if (i % 2 == 0)
            peers.back()->send(std::string(1000, static_cast<char>(i)));
    }
    PlainClient client(socket.connected());
    EXPECT_EQ(client.callText("ping", "()"), "()");
    running.listener->invalidate();
    EXPECT_TRUE(running.waitForReturn());
}

TEST(NSXPCListener, ClosesAConnectionThatItsDelegateDoesNotWant)
{
    const auto [one, other] = socketPair();
    RunningListener running(one, false);
    PlainClient client(other);
    EXPECT_TRUE(running.waitForReturn());
}

TEST(NSXPCListener, EndsItsConnectionsWhenItIsInvalidated)
{
    const ListeningSocket socket;
    RunningListener running(socket.descriptor);
    PlainClient client(socket.connected());
    EXPECT_EQ(client.callText("ping", "()"), "()");
    running.listener->invalidate();
    EXPECT_TRUE(running.waitForReturn());
    EXPECT_TRUE(running.delegate->journal->waitFor(1));
}

TEST(NSXPCListener, ReturnsOnATerminationSignal)
{
    const auto [one, other] = socketPair();
    RunningListener running(one);
    PlainClient client(other);
    EXPECT_EQ(client.callText("ping", "()"), "()");
    kill(getpid(), SIGTERM);
    EXPECT_TRUE(running.waitForReturn());
    EXPECT_TRUE(running.delegate->journal->waitFor(1));
}

TEST(NSXPCListener, RefusesADescriptorThatIsNoUnixStreamSocket)
{
    NSError error;
    EXPECT_EQ(NSXPCListener::listenerWithSocket(open("/dev/null", O_RDWR | O_CLOEXEC), &error), nullptr);
    EXPECT_TRUE(error.localizedDescription.ends_with("is no UNIX stream socket"));
    EXPECT_EQ(NSXPCListener::listenerWithSocket(socket(AF_UNIX, SOCK_DGRAM, 0), &error), nullptr);
    EXPECT_EQ(NSXPCListener::listenerWithSocket(1000000, &error), nullptr);
}

TEST(NSXPCListener, HasNoServiceListenerWithoutAPassedSocket)
{
    const struct {
        const char* name;
        std::string process;
        std::string count;
    } rows[] = {
        {"nothing", "", ""},
        {"another process", std::to_string(getpid() + 1), "1"},
        {"no descriptor", std::to_string(getpid()), "0"},
        {"no number", std::to_string(getpid()), "one"},
    };
    for (const auto& row : rows) {
        row.process.empty() ? unsetenv("LISTEN_PID") : setenv("LISTEN_PID", row.process.c_str(), 1);
        row.count.empty() ? unsetenv("LISTEN_FDS") : setenv("LISTEN_FDS", row.count.c_str(), 1);
        NSError error;
        EXPECT_EQ(NSXPCListener::serviceListener(&error), nullptr) << row.name;
        EXPECT_EQ(error.localizedDescription, "no socket was passed to this process (LISTEN_FDS, LISTEN_PID)");
        EXPECT_EQ(getenv("LISTEN_FDS"), nullptr);
    }
}
