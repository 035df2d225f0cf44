#include "platform/system/IOPMAssertion.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSLog.h"
#include "platform/system/NSProcessInfo.h"

#include <gio/gio.h>
#include <gio/gunixfdlist.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>

namespace platform {

namespace {

template <typename Object>
using ObjectPtr = Handle<Object, g_object_unref>;

using ErrorPtr = Handle<GError, g_error_free>;

using SharedCancellable = std::shared_ptr<GCancellable>;

/// A socket that is connected to the system bus and has not said anything.
class EarlySocket final {
public:
    static EarlySocket& shared()
    {
        // Attempts may outlast the end of the process's main function.
        static auto& socket = *new EarlySocket;
        return socket;
    }

    void put(FileDescriptor socket) EXCLUDES(lock_)
    {
        LockGuard guard(lock_);
        socket_ = std::move(socket);
    }

    FileDescriptor take() EXCLUDES(lock_)
    {
        LockGuard guard(lock_);
        return std::move(socket_);
    }

private:
    Lock lock_;
    FileDescriptor socket_ GUARDED_BY(lock_);
};

/// A stream of the caller's own, so that a bus which hangs holds up nobody else.
ObjectPtr<GIOStream> streamToBus(const std::string& address, GCancellable* cancellable, GError** error)
{
    FileDescriptor early = EarlySocket::shared().take();
    if (!early)
        return ObjectPtr<GIOStream>(g_dbus_address_get_stream_sync(address.c_str(), nullptr, cancellable, error));
    const ObjectPtr<GSocket> socket(g_socket_new_from_fd(early.get(), error));
    if (!socket)
        return nullptr;
    early.release();
    return ObjectPtr<GIOStream>(G_IO_STREAM(g_socket_connection_factory_create_connection(socket.get())));
}

/// While it lives, the cancelling ends a stream's socket: who waits for an answer then learns that none will come. The
/// calls are not cancelled themselves, as GLib keeps an answer for ever that arrives at that moment, and with it the
/// inhibitor.
class EndingByCancellable final {
public:
    EndingByCancellable(GIOStream* stream, GCancellable* cancellable) : cancellable_(cancellable)
    {
        if (G_IS_SOCKET_CONNECTION(stream))
            handler_ = g_cancellable_connect(cancellable, G_CALLBACK(+[](GCancellable*, gpointer socket) {
                                                 shutdown(g_socket_get_fd(static_cast<GSocket*>(socket)), SHUT_RDWR);
                                             }),
                                             g_object_ref(g_socket_connection_get_socket(G_SOCKET_CONNECTION(stream))),
                                             g_object_unref);
    }
    EndingByCancellable(const EndingByCancellable&) = delete;
    EndingByCancellable& operator=(const EndingByCancellable&) = delete;
    ~EndingByCancellable() { g_cancellable_disconnect(cancellable_, handler_); }

private:
    GCancellable* const cancellable_;
    gulong handler_ = 0;
};

/// The address of the first place on this machine that a bus's address names: "unix:path=/a,guid=1;unix:abstract=b".
std::optional<sockaddr_un> placeOfBus(const std::string& address)
{
    for (std::string_view rest = address; !rest.empty();) {
        const std::string_view entry = rest.substr(0, rest.find(';'));
        rest.remove_prefix(std::min(entry.size() + 1, rest.size()));
        for (const auto& [key, firstByte] : {std::pair(std::string_view("unix:path="), 0), {"unix:abstract=", 1}}) {
            if (!entry.starts_with(key))
                continue;
            const std::string_view value = entry.substr(key.size(), entry.substr(key.size()).find(','));
            const Handle<char, g_free> path(g_uri_unescape_segment(value.data(), value.data() + value.size(), nullptr));
            sockaddr_un place{};
            place.sun_family = AF_UNIX;
            const size_t length = path ? std::strlen(path.get()) : 0;
            if (length == 0 || length + 1 > sizeof place.sun_path)
                continue;
            std::copy_n(path.get(), length, place.sun_path + firstByte);
            return place;
        }
    }
    return std::nullopt;
}

/// As the kernel counts it: a name without a path has no end of its own.
socklen_t lengthOf(const sockaddr_un& place)
{
    const bool hasPath = place.sun_path[0] != '\0';
    return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + std::strlen(place.sun_path + !hasPath));
}

/// Asks for an inhibitor, which holds for as long as its descriptor is open. Waits for a bus that says nothing until it
/// is cancelled.
/// @param failure  out: why there is none; null to log it
FileDescriptor inhibit(const std::string& address, const std::string& who, const std::string& why,
                       GCancellable* cancellable, std::string* failure)
{
    constexpr auto kFlags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    GError* error = nullptr;
    const auto failed = [&] {
        const bool isCancelled = g_cancellable_is_cancelled(cancellable) != 0;
        if (isCancelled) {
            g_clear_error(&error);
            g_cancellable_set_error_if_cancelled(cancellable, &error);
        }
        const ErrorPtr reason(std::exchange(error, nullptr));
        if (failure)
            *failure = reason ? reason->message : "no answer";
        else if (!isCancelled)
            logFailure("IOPMAssertionCreateWithName", reason ? reason->message : "no answer");
        return FileDescriptor();
    };
    const ObjectPtr<GIOStream> stream = streamToBus(address, cancellable, &error);
    if (!stream)
        return failed();
    const EndingByCancellable ending(stream.get(), cancellable);
    const ObjectPtr<GDBusConnection> bus(
        g_dbus_connection_new_sync(stream.get(), nullptr, kFlags, nullptr, nullptr, &error));
    if (!bus)
        return failed();
    GUnixFDList* rawDescriptors = nullptr;
    // Idle alone: a user who closes the lid or asks for sleep gets it. Without a login manager none is started, which
    // could take until a time-out.
    const Handle<GVariant, g_variant_unref> reply(g_dbus_connection_call_with_unix_fd_list_sync(
        bus.get(), "org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager", "Inhibit",
        g_variant_new("(ssss)", "idle", who.c_str(), why.c_str(), "block"), G_VARIANT_TYPE("(h)"),
        G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr, &rawDescriptors, nullptr, &error));
    const ObjectPtr<GUnixFDList> descriptors(rawDescriptors);
    g_dbus_connection_close(bus.get(), nullptr, nullptr, nullptr);
    if (!reply)
        return failed();
    gint32 index = -1;
    g_variant_get(reply.get(), "(h)", &index);
    const int descriptor = descriptors ? g_unix_fd_list_get(descriptors.get(), index, &error) : -1;
    return descriptor < 0 ? failed() : FileDescriptor(descriptor);
}

std::string validText(const std::string& text)
{
    const Handle<char, g_free> valid(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
    return valid.get();
}

/// Of the system bus; read where it is not in doubt what the environment holds.
std::string busAddress()
{
    const Handle<char, g_free> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SYSTEM, nullptr, nullptr));
    return address ? address.get() : "";
}

/// Those that were made and not released.
class Assertions final {
public:
    static Assertions& shared()
    {
        // Attempts may outlast the end of the process's main function.
        static auto& assertions = *new Assertions;
        return assertions;
    }

    IOPMAssertionID add(SharedCancellable attempt) EXCLUDES(lock_)
    {
        LockGuard guard(lock_);
        while (++last_ == kIOPMNullAssertionID || assertions_.contains(last_)) {
        }
        assertions_.emplace(last_, Assertion{std::move(attempt), {}});
        return last_;
    }

    /// An inhibitor that comes when its assertion is released already is let go of.
    void hold(IOPMAssertionID assertionID, FileDescriptor inhibitor) EXCLUDES(lock_)
    {
        LockGuard guard(lock_);
        if (const auto found = assertions_.find(assertionID); found != assertions_.end())
            found->second.inhibitor = std::move(inhibitor);
    }

    bool release(IOPMAssertionID assertionID) EXCLUDES(lock_)
    {
        decltype(assertions_)::node_type released;
        {
            LockGuard guard(lock_);
            released = assertions_.extract(assertionID);
        }
        if (released)
            g_cancellable_cancel(released.mapped().attempt.get());
        return !released.empty();
    }

private:
    struct Assertion {
        SharedCancellable attempt;
        FileDescriptor inhibitor;
    };

    Lock lock_;
    IOPMAssertionID last_ GUARDED_BY(lock_) = kIOPMNullAssertionID;
    std::map<IOPMAssertionID, Assertion> assertions_ GUARDED_BY(lock_);
};

} // namespace

IOReturn IOPMAssertionCreateWithName(std::string_view type, IOPMAssertionLevel level, const std::string& name,
                                     IOPMAssertionID* assertionID)
{
    *assertionID = kIOPMNullAssertionID;
    if (type != kIOPMAssertPreventUserIdleSystemSleep)
        return kIOReturnBadArgument;
    const SharedCancellable attempt(g_cancellable_new(), FreeWith<g_object_unref>());
    *assertionID = Assertions::shared().add(attempt);
    if (level != kIOPMAssertionLevelOff) {
        DispatchQueue::global()->async([attempt, id = *assertionID, address = busAddress(),
                                        who = validText(NSProcessInfo::processInfo().processName()),
                                        why = validText(name)] {
            Assertions::shared().hold(id, inhibit(address, who, why, attempt.get(), nullptr));
        });
    }
    return kIOReturnSuccess;
}

void IOPMAssertionConnect()
{
    const auto place = placeOfBus(busAddress());
    // A bus that takes nobody in is not waited for.
    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (place && socket && connect(socket.get(), reinterpret_cast<const sockaddr*>(&*place), lengthOf(*place)) == 0)
        EarlySocket::shared().put(std::move(socket));
}

bool IOPMAssertionIsPossible(std::chrono::milliseconds patience, std::string* reason)
{
    struct Attempt {
        const SharedCancellable cancellable{g_cancellable_new(), FreeWith<g_object_unref>()};
        std::string reason;
        std::promise<bool> isHeld;
    };
    const auto attempt = std::make_shared<Attempt>();
    auto isHeld = attempt->isHeld.get_future();
    DispatchQueue::global()->async(
        [attempt, address = busAddress(), who = validText(NSProcessInfo::processInfo().processName())] {
            const auto inhibitor = inhibit(address, who, "trial", attempt->cancellable.get(), &attempt->reason);
            attempt->isHeld.set_value(static_cast<bool>(inhibitor));
        });
    if (isHeld.wait_for(patience) != std::future_status::ready)
        g_cancellable_cancel(attempt->cancellable.get());
    const bool isPossible = isHeld.get();
    if (!isPossible)
        *reason = attempt->reason;
    return isPossible;
}

IOReturn IOPMAssertionRelease(IOPMAssertionID assertionID)
{
    return Assertions::shared().release(assertionID) ? kIOReturnSuccess : kIOReturnNotFound;
}

} // namespace platform
