#include "platform/system/IOPMAssertion.h"

#include "platform/foundation/FileDescriptor.h"
#include "platform/system/NSProcessInfo.h"
#include "tests/platform/system/SlowBus.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/PrivateSystemBus.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace platform;

namespace {

constexpr const char* kNoInhibitors = "(@a(ssssuu) [],)";

IOReturn create(const std::string& name, IOPMAssertionID* assertion)
{
    return IOPMAssertionCreateWithName(kIOPMAssertPreventUserIdleSystemSleep, kIOPMAssertionLevelOn, name, assertion);
}

/// Creates one whose bus has taken in the client.
/// @return the client's greeting, which is not answered; null if none came
SlowBus::MessagePtr createdAndGreeted(SlowBus& bus, IOPMAssertionID* assertion)
{
    EXPECT_EQ(create("x", assertion), kIOReturnSuccess);
    bus.takeIn();
    return testing::Test::HasFatalFailure() ? nullptr : bus.receive();
}

} // namespace

TEST(IOPMAssertion, HoldsOffIdleSleepUntilItIsReleased)
{
    const PrivateSystemBus bus(PrivateSystemBus::LoginManager::Mocked);
    EXPECT_EQ(bus.inhibitors(), kNoInhibitors);
    NSProcessInfo::processInfo().setProcessName("Program");
    IOPMAssertionID assertion = 0;
    EXPECT_EQ(create("Making a movie", &assertion), kIOReturnSuccess);
    EXPECT_NE(assertion, kIOPMNullAssertionID);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("the inhibitor", [&] {
        return bus.inhibitors() == "([('idle', 'Program', 'Making a movie', 'block', uint32 1000, uint32 123456)],)";
    }));
    EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("the release", [&] { return bus.inhibitors() == kNoInhibitors; }));
    EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnNotFound);
    NSProcessInfo::processInfo().setProcessName("");
}

TEST(IOPMAssertion, GivesEachAssertionItsOwnIdentifier)
{
    const PrivateSystemBus bus(PrivateSystemBus::LoginManager::Mocked);
    IOPMAssertionID one = 0;
    IOPMAssertionID other = 0;
    EXPECT_EQ(create("one", &one), kIOReturnSuccess);
    EXPECT_EQ(create("other", &other), kIOReturnSuccess);
    EXPECT_NE(one, other);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("both inhibitors", [&] {
        const auto text = bus.inhibitors();
        return text.find("'one'") != std::string::npos && text.find("'other'") != std::string::npos;
    }));
    EXPECT_EQ(IOPMAssertionRelease(one), kIOReturnSuccess);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("the release", [&] {
        const auto text = bus.inhibitors();
        return text.find("'one'") == std::string::npos && text.find("'other'") != std::string::npos;
    }));
    EXPECT_EQ(IOPMAssertionRelease(other), kIOReturnSuccess);
}

TEST(IOPMAssertion, HoldsNothingOffWhereThereIsNoLoginManager)
{
    const LogRecorder log;
    const PrivateSystemBus bus(PrivateSystemBus::LoginManager::None);
    IOPMAssertionID assertion = 0;
    EXPECT_EQ(create("x", &assertion), kIOReturnSuccess);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("the reason in the log", [&] { return !log.lines().empty(); }));
    EXPECT_NE(log.lines()[0].find("org.freedesktop.login1"), std::string::npos) << log.lines()[0];
    EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
}

TEST(IOPMAssertion, HoldsNothingOffWhereThereIsNoSystemBus)
{
    const LogRecorder log;
    const EnvironmentVariable address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/socket");
    IOPMAssertionID assertion = 0;
    EXPECT_EQ(create("x", &assertion), kIOReturnSuccess);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("the reason in the log", [&] { return !log.lines().empty(); }));
    EXPECT_TRUE(log.lines()[0].starts_with("IOPMAssertionCreateWithName - ")) << log.lines()[0];
    EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
}

TEST(IOPMAssertion, UsesTheConnectionThatWasMadeBefore)
{
    for (const char* kind : {"path", "abstract"}) {
        const std::string name = "stillora-test-" + std::to_string(getpid());
        const TemporaryFolder folder;
        const FileDescriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const bool hasPath = std::string_view(kind) == "path";
        const std::string place = hasPath ? folder.path("a socket") : name;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        place.copy(address.sun_path + !hasPath, sizeof address.sun_path - 2);
        const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + place.size());
        ASSERT_EQ(bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), length), 0) << kind;
        ASSERT_EQ(listen(listening.get(), 4), 0);
        const std::string escaped = hasPath ? folder.path("a%20socket") : name;
        const EnvironmentVariable variable("DBUS_SYSTEM_BUS_ADDRESS",
                                           "tcp:host=nowhere;unix:" + std::string(kind) + "=" + escaped + ",guid=1");
        IOPMAssertionConnect();
        const FileDescriptor asked(accept4(listening.get(), nullptr, nullptr, SOCK_CLOEXEC));
        ASSERT_TRUE(asked);
        IOPMAssertionID assertion = 0;
        EXPECT_EQ(create("x", &assertion), kIOReturnSuccess);
        const timeval patience{.tv_sec = 60, .tv_usec = 0};
        setsockopt(asked.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        char greeting = 0;
        EXPECT_EQ(recv(asked.get(), &greeting, 1, 0), 1) << kind;
        EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
    }
}

TEST(IOPMAssertion, ConnectsToNothingWhereThereIsNoBus)
{
    for (const char* address : {"unix:path=/nonexistent/socket", "", "unix:", "unix:path=", "nonsense;;"}) {
        const EnvironmentVariable variable("DBUS_SYSTEM_BUS_ADDRESS", address);
        IOPMAssertionConnect();
        const LogRecorder log;
        IOPMAssertionID assertion = 0;
        EXPECT_EQ(create("x", &assertion), kIOReturnSuccess);
        EXPECT_TRUE(PrivateSystemBus::waitUntil("the reason in the log", [&] { return !log.lines().empty(); }))
            << address;
        EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
    }
}

TEST(IOPMAssertion, IsMadeAtOnceWhereTheBusSaysNothing)
{
    const TemporaryFolder folder;
    const FileDescriptor listening(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, folder.path("socket").c_str(), sizeof name.sun_path - 1);
    ASSERT_EQ(bind(listening.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(listening.get(), 4), 0);
    const EnvironmentVariable address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + folder.path("socket"));
    IOPMAssertionID assertion = 0;
    EXPECT_EQ(create("x", &assertion), kIOReturnSuccess);
    EXPECT_NE(assertion, kIOPMNullAssertionID);

    // In the background the bus is asked for as long as the assertion is wanted.
    const timeval patience{.tv_sec = 60, .tv_usec = 0};
    setsockopt(listening.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const FileDescriptor asked(accept(listening.get(), nullptr, nullptr));
    ASSERT_TRUE(asked);
    setsockopt(asked.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    std::array<char, 256> greeting{};
    EXPECT_GT(recv(asked.get(), greeting.data(), greeting.size(), 0), 0);
    EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
    ssize_t length = 0;
    while ((length = recv(asked.get(), greeting.data(), greeting.size(), 0)) > 0) {
    }
    EXPECT_EQ(length, 0);
}

TEST(IOPMAssertion, HoldsNothingWhereTheInhibitorComesAtTheMomentOfTheRelease)
{
    constexpr int kRounds = 300;
    SlowBus bus;
    for (int round = 0; round < kRounds; ++round) {
        IOPMAssertionID assertion = 0;
        const auto hello = createdAndGreeted(bus, &assertion);
        ASSERT_TRUE(hello);
        bus.answer(hello, g_variant_new("(s)", ":1.1"));
        const auto call = bus.receive();
        ASSERT_TRUE(call);
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        const FileDescriptor watched(ends[0]);
        FileDescriptor inhibitor(ends[1]);
        // Before the answer, with it, and while it is on its way to who asked.
        if (round % 10 == 0) {
            EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
        }
        bus.answer(call, g_variant_new("(h)", 0), inhibitor.get());
        inhibitor.reset();
        const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(round % 100);
        while (std::chrono::steady_clock::now() < end) {
        }
        if (round % 10 != 0) {
            EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
        }
        pollfd wait{watched.get(), 0, 0};
        ASSERT_EQ(poll(&wait, 1, 60'000), 1) << "kept in round " << round;
        ASSERT_TRUE(bus.isLeft()) << round;
    }
}

TEST(IOPMAssertion, LeavesABusThatTakesItInAtTheMomentOfTheRelease)
{
    constexpr int kRounds = 100;
    SlowBus bus;
    for (int round = 0; round < kRounds; ++round) {
        IOPMAssertionID assertion = 0;
        const auto hello = createdAndGreeted(bus, &assertion);
        ASSERT_TRUE(hello);
        if (round % 2 == 0) {
            EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
        }
        bus.answer(hello, g_variant_new("(s)", ":1.1"));
        if (round % 2 != 0) {
            EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
        }
        ASSERT_TRUE(bus.isLeft()) << round;
    }
}

TEST(IOPMAssertion, TellsWhetherIdleSleepCanBeHeldOff)
{
    std::string reason;
    {
        const PrivateSystemBus bus(PrivateSystemBus::LoginManager::Mocked);
        EXPECT_TRUE(IOPMAssertionIsPossible(std::chrono::seconds(60), &reason)) << reason;
        EXPECT_TRUE(PrivateSystemBus::waitUntil("the release", [&] { return bus.inhibitors() == kNoInhibitors; }));
    }
    const TemporaryFolder folder;
    const EnvironmentVariable address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + folder.path("none"));
    EXPECT_FALSE(IOPMAssertionIsPossible(std::chrono::seconds(60), &reason));
    EXPECT_FALSE(reason.empty());
}

TEST(IOPMAssertion, HoldsNothingOffAtLevelOff)
{
    const EnvironmentVariable address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/socket");
    IOPMAssertionID assertion = 0;
    EXPECT_EQ(
        IOPMAssertionCreateWithName(kIOPMAssertPreventUserIdleSystemSleep, kIOPMAssertionLevelOff, "x", &assertion),
        kIOReturnSuccess);
    EXPECT_EQ(IOPMAssertionRelease(assertion), kIOReturnSuccess);
}

TEST(IOPMAssertion, KnowsNoOtherType)
{
    IOPMAssertionID assertion = 7;
    EXPECT_EQ(IOPMAssertionCreateWithName("PreventDisplaySleep", kIOPMAssertionLevelOn, "x", &assertion),
              kIOReturnBadArgument);
    EXPECT_EQ(assertion, kIOPMNullAssertionID);
}

TEST(IOPMAssertion, ReleasesNothingThatWasNeverMade)
{
    EXPECT_EQ(IOPMAssertionRelease(kIOPMNullAssertionID), kIOReturnNotFound);
    EXPECT_EQ(IOPMAssertionRelease(123456), kIOReturnNotFound);
}
