#include "platform/system/IOPMAssertion.h"

#include "platform/foundation/NSLog.h"
#include "platform/system/NSProcessInfo.h"
#include "tests/support/PrivateSystemBus.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

using namespace platform;
using namespace std::chrono_literals;

namespace {

constexpr const char* kNoInhibitors = "(@a(ssssuu) [],)";

IOReturn create(const std::string& name, IOPMAssertionID* assertion)
{
    return IOPMAssertionCreateWithName(kIOPMAssertPreventUserIdleSystemSleep, kIOPMAssertionLevelOn, name, assertion);
}

/// Sets the bus address for a test.
struct BusAddress {
    explicit BusAddress(const std::string& address) { setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1); }
    ~BusAddress() { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }
};

} // namespace

TEST(IOPMAssertion, HoldsOffIdleSleepUntilItIsReleased)
{
    const PrivateSystemBus bus(PrivateSystemBus::LoginManager::Mocked);
    EXPECT_EQ(bus.inhibitors(), kNoInhibitors);
    NSProcessInfo::processInfo().setProcessName("Program");
    IOPMAssertionID assertion = 0;
    EXPECT_EQ(create("Making a movie", &assertion), kIOReturnSuccess);
    EXPECT_NE(assertion, kIOPMNullAssertionID);
    EXPECT_EQ(bus.inhibitors(), "([('idle', 'Program', 'Making a movie', 'block', uint32 1000, uint32 123456)],)");
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
    EXPECT_EQ(IOPMAssertionRelease(one), kIOReturnSuccess);
    EXPECT_TRUE(PrivateSystemBus::waitUntil("the release", [&] {
        const auto text = bus.inhibitors();
        return text.find("'one'") == std::string::npos && text.find("'other'") != std::string::npos;
    }));
    EXPECT_EQ(IOPMAssertionRelease(other), kIOReturnSuccess);
}

TEST(IOPMAssertion, FailsAtOnceWhereThereIsNoLoginManager)
{
    setLogSink([](const std::string&) {});
    const PrivateSystemBus bus(PrivateSystemBus::LoginManager::None);
    IOPMAssertionID assertion = 7;
    // What was waited for in vain has a status of its own.
    EXPECT_EQ(create("x", &assertion), kIOReturnError);
    EXPECT_EQ(assertion, kIOPMNullAssertionID);
    setLogSink(nullptr);
}

TEST(IOPMAssertion, FailsAtOnceWhereThereIsNoSystemBus)
{
    setLogSink([](const std::string&) {});
    const BusAddress address("unix:path=/nonexistent/socket");
    IOPMAssertionID assertion = 7;
    // What was waited for in vain has a status of its own.
    EXPECT_EQ(create("x", &assertion), kIOReturnError);
    EXPECT_EQ(assertion, kIOPMNullAssertionID);
    setLogSink(nullptr);
}

TEST(IOPMAssertion, LosesPatienceWithABusThatSaysNothing)
{
    setLogSink([](const std::string&) {});
    std::string pattern = std::filesystem::temp_directory_path() / "silentbusXXXXXX";
    const std::filesystem::path folder = mkdtemp(pattern.data());
    const int listening = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    std::strncpy(name.sun_path, (folder / "socket").c_str(), sizeof name.sun_path - 1);
    ASSERT_EQ(bind(listening, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
    ASSERT_EQ(listen(listening, 4), 0);
    {
        const BusAddress address("unix:path=" + (folder / "socket").string());
        IOPMAssertionID assertion = 7;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(create("x", &assertion), kIOReturnTimeout);
        EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
        EXPECT_EQ(assertion, kIOPMNullAssertionID);
    }
    close(listening);
    std::filesystem::remove_all(folder);
    setLogSink(nullptr);
}

TEST(IOPMAssertion, HoldsNothingOffAtLevelOff)
{
    const BusAddress address("unix:path=/nonexistent/socket");
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
