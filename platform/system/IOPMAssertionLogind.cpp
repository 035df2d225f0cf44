#include "platform/system/IOPMAssertion.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/dispatch/Lock.h"
#include "platform/foundation/NSLog.h"
#include "platform/system/NSProcessInfo.h"

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

using namespace std::chrono_literals;

/// How long a job's start may be held up by a bus that does not answer.
constexpr auto kPatience = 3s;

struct UnrefObject {
    void operator()(gpointer object) const { g_object_unref(object); }
};
template <typename Object>
using ObjectPtr = std::unique_ptr<Object, UnrefObject>;

struct UnrefVariant {
    void operator()(GVariant* variant) const { g_variant_unref(variant); }
};

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};

struct FreeError {
    void operator()(GError* error) const { g_error_free(error); }
};
using ErrorPtr = std::unique_ptr<GError, FreeError>;

/// A descriptor that is closed with its owner; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor()
    {
        if (descriptor_ >= 0)
            close(descriptor_);
    }
    bool isOpen() const { return descriptor_ >= 0; }

private:
    int descriptor_;
};

/// One question to the login manager, which may come to nothing before its asker loses patience.
struct Attempt {
    const ObjectPtr<GCancellable> cancellable{g_cancellable_new()};
    Lock lock;
    Condition finished;
    bool isFinished GUARDED_BY(lock) = false;
    Descriptor inhibitor GUARDED_BY(lock);
};

/// The inhibitor, which holds for as long as its descriptor is open.
Descriptor inhibit(const std::string& who, const std::string& why, GCancellable* cancellable)
{
    GError* error = nullptr;
    const auto failed = [&] {
        const ErrorPtr reason(std::exchange(error, nullptr));
        logFailure("IOPMAssertionCreateWithName", reason ? reason->message : "no answer");
        return Descriptor();
    };
    const std::unique_ptr<char, FreeText> address(
        g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, cancellable, &error));
    if (!address)
        return failed();
    // A connection of its own, so that a bus which hangs holds up nobody else.
    const ObjectPtr<GDBusConnection> bus(g_dbus_connection_new_for_address_sync(
        address.get(),
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
        nullptr, cancellable, &error));
    if (!bus)
        return failed();
    GUnixFDList* rawDescriptors = nullptr;
    // Idle alone: a user who closes the lid or asks for sleep gets it. Without a login manager none is started, which
    // could take until a time-out.
    const std::unique_ptr<GVariant, UnrefVariant> reply(g_dbus_connection_call_with_unix_fd_list_sync(
        bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Inhibit",
        g_variant_new("(ssss)", "idle", who.c_str(), why.c_str(), "block"), G_VARIANT_TYPE("(h)"),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, &rawDescriptors, cancellable, &error));
    const ObjectPtr<GUnixFDList> descriptors(rawDescriptors);
    g_dbus_connection_close(bus.get(), nullptr, nullptr, nullptr);
    if (!reply)
        return failed();
    gint32 index = -1;
    g_variant_get(reply.get(), "(h)", &index);
    const int descriptor = descriptors ? g_unix_fd_list_get(descriptors.get(), index, &error) : -1;
    return descriptor < 0 ? failed() : Descriptor(descriptor);
}

std::string validText(const std::string& text)
{
    const std::unique_ptr<char, FreeText> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return valid.get();
}

/// Assertions that are held.
struct Assertions {
    Lock lock;
    IOPMAssertionID last GUARDED_BY(lock) = kIOPMNullAssertionID;
    std::map<IOPMAssertionID, Descriptor> held GUARDED_BY(lock);

    static Assertions& shared()
    {
        static auto& assertions = *new Assertions;
        return assertions;
    }

    IOPMAssertionID add(Descriptor inhibitor)
    {
        LockGuard guard(lock);
        while (++last == kIOPMNullAssertionID || held.contains(last)) {
        }
        held.emplace(last, std::move(inhibitor));
        return last;
    }
};

} // namespace

IOReturn IOPMAssertionCreateWithName(std::string_view type, IOPMAssertionLevel level, const std::string& name,
                                     IOPMAssertionID* assertionID)
{
    *assertionID = kIOPMNullAssertionID;
    if (type != kIOPMAssertPreventUserIdleSystemSleep)
        return kIOReturnBadArgument;
    Descriptor inhibitor;
    if (level != kIOPMAssertionLevelOff) {
        const auto attempt = std::make_shared<Attempt>();
        DispatchQueue::global()->async(
            [attempt, who = validText(NSProcessInfo::processInfo().processName()), why = validText(name)] {
                auto result = inhibit(who, why, attempt->cancellable.get());
                LockGuard guard(attempt->lock);
                attempt->inhibitor = std::move(result);
                attempt->isFinished = true;
                attempt->finished.notify_all();
            });
        const auto deadline = std::chrono::steady_clock::now() + kPatience;
        bool isFinished = false;
        {
            LockGuard guard(attempt->lock);
            auto status = std::cv_status::no_timeout;
            while (!attempt->isFinished && status == std::cv_status::no_timeout)
                status = attempt->finished.wait_until(attempt->lock, deadline);
            isFinished = attempt->isFinished;
            inhibitor = std::move(attempt->inhibitor);
        }
        if (!isFinished) {
            g_cancellable_cancel(attempt->cancellable.get());
            return kIOReturnTimeout;
        }
        if (!inhibitor.isOpen())
            return kIOReturnError;
    }
    *assertionID = Assertions::shared().add(std::move(inhibitor));
    return kIOReturnSuccess;
}

IOReturn IOPMAssertionRelease(IOPMAssertionID assertionID)
{
    auto& assertions = Assertions::shared();
    LockGuard guard(assertions.lock);
    return assertions.held.erase(assertionID) == 1 ? kIOReturnSuccess : kIOReturnNotFound;
}

} // namespace platform
