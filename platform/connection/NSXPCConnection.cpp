#include "platform/connection/NSXPCConnection.h"

#include "platform/connection/BoundedGreeting.h"
#include "platform/connection/ClientHandshake.h"
#include "platform/connection/MainLoopThread.h"
#include "platform/connection/MessageCoding.h"
#include "platform/connection/MessageFault.h"
#include "platform/connection/StandardCalls.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSLog.h"

#include <gio/gio.h>

#include <array>
#include <atomic>
#include <cassert>
#include <cerrno>
#include <chrono>
#include <malloc.h>
#include <map>
#include <memory>
#include <semaphore>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";

/// A peer that lets so many answers lie is no client: one that reads never has more than a few under way, and GLib
/// keeps all of them in memory.
constexpr int kMostUnsentAnswers = 10000;

/// Of a client, in bytes: to say who one is takes some dozens.
constexpr size_t kLongestGreeting = 16 * 1024;

/// For a thread to begin, on the busiest machine.
constexpr std::chrono::seconds kLongestThreadStart{5};

template <typename Object>
using ObjectPtr = Handle<Object, g_object_unref>;

/// Receives an error of GLib: pass `out()` to one call.
class ErrorHolder {
public:
    ~ErrorHolder()
    {
        if (error_)
            g_error_free(error_);
    }
    GError** out() { return &error_; }
    std::string message() const { return error_ ? error_->message : localized("unknown reason"); }

private:
    GError* error_ = nullptr;
};

/// The last reference may end the connection's streams: on the thread that made them.
struct UnrefConnectionOnItsThread {
    void operator()(GDBusConnection* connection) const
    {
        MainLoopThread::shared().async([connection] { g_object_unref(connection); });
    }
};
using ConnectionHandle = std::unique_ptr<GDBusConnection, UnrefConnectionOnItsThread>;

enum class Side { Client, Service };

gboolean allowsMechanism(GDBusAuthObserver*, const char* mechanism, gpointer)
{
    return g_strcmp0(mechanism, "EXTERNAL") == 0;
}

/// Only processes of the same user.
gboolean authorizesPeer(GDBusAuthObserver*, GIOStream*, GCredentials* credentials, gpointer)
{
    return credentials && g_credentials_get_unix_user(credentials, nullptr) == geteuid();
}

/// Until the time is over, or `goesOn` says so before.
std::function<bool()> goesOnFor(double seconds, const std::function<bool()>& goesOn)
{
    using Clock = std::chrono::steady_clock;
    return [=, start = Clock::now()] {
        return std::chrono::duration<double>(Clock::now() - start).count() < seconds && (!goesOn || goesOn());
    };
}

gboolean cancel(gpointer cancellable)
{
    g_cancellable_cancel(static_cast<GCancellable*>(cancellable));
    return G_SOURCE_REMOVE;
}

/// The user at the other end, as the kernel saw the socket made; nothing if it is no UNIX socket.
std::optional<ucred> peerCredentials(int socket)
{
    ucred credentials{};
    socklen_t length = sizeof credentials;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0)
        return std::nullopt;
    return credentials;
}

/// Of a call, what its answer needs.
ObjectPtr<GDBusMessage> headOf(GDBusMessage* call)
{
    ObjectPtr<GDBusMessage> head(g_dbus_message_new());
    g_dbus_message_set_message_type(head.get(), G_DBUS_MESSAGE_TYPE_METHOD_CALL);
    g_dbus_message_set_byte_order(head.get(), g_dbus_message_get_byte_order(call));
    g_dbus_message_set_flags(head.get(), g_dbus_message_get_flags(call));
    g_dbus_message_set_serial(head.get(), g_dbus_message_get_serial(call));
    g_dbus_message_set_sender(head.get(), g_dbus_message_get_sender(call));
    return head;
}

/// Frees a message that was decoded: its body takes many times the memory of what came of it.
void letGo(ObjectPtr<GDBusMessage> message)
{
    constexpr size_t kLarge = 64 * 1024;
    GVariant* const body = g_dbus_message_get_body(message.get());
    const bool isLarge = body && g_variant_get_size(body) >= kLarge;
    message.reset();
    // It was made of small pieces by another thread, whose memory no other thread takes.
    if (isLarge)
        malloc_trim(0);
}

bool expectsReply(GDBusMessage* call)
{
    return (g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
}

NSError lostConnection(std::string_view selector)
{
    return {std::string(kNSCocoaErrorDomain), kNSXPCConnectionInvalid,
            localized("{}: the connection has ended", {selector})};
}

} // namespace

struct NSXPCConnection::Core final : std::enable_shared_from_this<Core> {
    struct WaitingReply {
        std::string selector;
        NSXPCProxy::ReplyBlock block;
    };

    Core(Side theSide, ConnectionHandle theHandle, pid_t thePeer)
        : side(theSide), peer(thePeer), handle(std::move(theHandle))
    {}

    const Side side;
    const pid_t peer;
    const ConnectionHandle handle;
    const ObjectPtr<GCancellable> ended{g_cancellable_new()};
    const std::shared_ptr<DispatchQueue> queue = DispatchQueue::create("connection", {});

    mutable Lock lock;
    bool isResumed GUARDED_BY(lock) = false;
    bool isEnded GUARDED_BY(lock) = false;
    std::shared_ptr<const NSXPCInterface> exportedInterface GUARDED_BY(lock);
    std::shared_ptr<NSXPCExportedObject> exportedObject GUARDED_BY(lock);
    std::shared_ptr<const NSXPCInterface> remoteInterface GUARDED_BY(lock);
    /// From `start` on.
    std::shared_ptr<const StandardCalls> standardCalls GUARDED_BY(lock);
    std::function<void()> invalidationHandler GUARDED_BY(lock);
    std::function<void()> endHandler GUARDED_BY(lock);
    std::map<uint32_t, WaitingReply> waitingReplies GUARDED_BY(lock);
    /// Keeps a resumed connection alive.
    NSXPCConnectionPtr self GUARDED_BY(lock);

    /// What GLib knows this by: it keeps numbers, not memory, and asks for them on threads of its own.
    static std::shared_ptr<Core> withNumber(gpointer number);
    gpointer addNumber();
    void removeNumber();

    /// Calls that were not looked at yet, and answers that wait to be written.
    std::atomic<int> unsentAnswers{0};

    // Only on the main loop's thread.
    gpointer number = nullptr;
    gulong closedSignal = 0;
    static NSXPCConnectionPtr connect(int socket, Side side, NSError* error, double timeoutSeconds,
                                      const std::function<bool()>& goesOn = {});

    void start();
    void end();

    /// On the thread that reads sockets.
    void takeMessage(ObjectPtr<GDBusMessage> message);
    void takeCall(ObjectPtr<GDBusMessage> message);
    void takeReply(ObjectPtr<GDBusMessage> message);
    /// On the connection's own queue.
    void receiveCall(ObjectPtr<GDBusMessage> message, const std::shared_ptr<const NSXPCInterface>& interface);
    void receiveReply(GDBusMessage* message, WaitingReply waiting, const NSXPCInterface& interface);

    void sendReply(GDBusMessage* call, const NSXPCInterface& interface, const std::string& selector,
                   std::optional<NSXPCValues> values, const NSError& error);
    void send(GDBusMessage* message);
    /// Counts what GLib or a queue holds for the peer; ends the connection where that is too much.
    void countUnsent(int change);
    GDBusMessage* newCall(const NSXPCInterface& interface, std::string_view selector, const NSXPCValues& arguments,
                          NSError* error) const;
};

struct NSXPCConnection::Registry {
    Lock lock;
    std::map<guintptr, std::shared_ptr<Core>> cores GUARDED_BY(lock);
    guintptr last GUARDED_BY(lock) = 0;

    static Registry& shared()
    {
        // Never destroyed: GLib may still ask for a number while the process ends.
        static auto& registry = *new Registry;
        return registry;
    }
};

std::shared_ptr<NSXPCConnection::Core> NSXPCConnection::Core::withNumber(gpointer number)
{
    auto& registry = Registry::shared();
    LockGuard guard(registry.lock);
    const auto found = registry.cores.find(reinterpret_cast<guintptr>(number));
    return found == registry.cores.end() ? nullptr : found->second;
}

gpointer NSXPCConnection::Core::addNumber()
{
    MainLoopThread::shared().assertCurrent();
    auto& registry = Registry::shared();
    LockGuard guard(registry.lock);
    registry.cores.emplace(++registry.last, shared_from_this());
    return reinterpret_cast<gpointer>(registry.last);
}

void NSXPCConnection::Core::removeNumber()
{
    MainLoopThread::shared().assertCurrent();
    auto& registry = Registry::shared();
    LockGuard guard(registry.lock);
    registry.cores.erase(reinterpret_cast<guintptr>(number));
}

NSXPCConnectionPtr NSXPCConnection::Core::connect(int socket, Side side, NSError* error, double timeoutSeconds,
                                                  const std::function<bool()>& goesOn)
{
    const auto failure = [side](const std::string& why) {
        return side == Side::Client ? localized("Connection to the service failed: {}", {why})
                                    : "Connection of a client failed: " + why;
    };
    const auto credentials = peerCredentials(socket);
    ErrorHolder reason;
    const ObjectPtr<GSocket> socketObject(g_socket_new_from_fd(socket, reason.out()));
    if (!socketObject) {
        close(socket);
        fail(error, kNSPOSIXErrorDomain, ENOTSOCK, failure(reason.message()));
        return nullptr;
    }
    if (!credentials || credentials->uid != geteuid()) {
        fail(error, kNSPOSIXErrorDomain, EACCES, failure(localized("the peer is no process of the same user")));
        return nullptr;
    }
    if (side == Side::Client && !greetService(socket, goesOnFor(timeoutSeconds, goesOn), error))
        return nullptr;
    // Of a client, who has not said yet who it is, no more is read than that takes: GLib would wait for the end of a
    // line for as long as there is memory.
    const ObjectPtr<GSocketConnection> stream(
        side == Side::Service ? newConnectionWithBoundedGreeting(socketObject.get(), kLongestGreeting)
                              : g_socket_connection_factory_create_connection(socketObject.get()));
    if (!stream) {
        fail(error, kNSPOSIXErrorDomain, ENOTSOCK, failure("the socket is no UNIX socket"));
        return nullptr;
    }
    const ObjectPtr<GDBusAuthObserver> observer(g_dbus_auth_observer_new());
    g_signal_connect(observer.get(), "allow-mechanism", G_CALLBACK(allowsMechanism), nullptr);
    g_signal_connect(observer.get(), "authorize-authenticated-peer", G_CALLBACK(authorizesPeer), nullptr);

    auto flags = static_cast<int>(G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING);
    // Of a client, nothing is left to authenticate: GLib would wait for the end of a line for as long as there is
    // memory.
    if (side == Side::Service)
        flags |=
            G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_SERVER | G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_REQUIRE_SAME_USER;

    // Made on the main loop's thread, which is then told of the connection's end; authenticated on this one, since a
    // peer may take its time.
    ConnectionHandle handle;
    const ObjectPtr<GCancellable> tooLate(g_cancellable_new());
    Handle<GSource, g_source_unref> timer;
    MainLoopThread::shared().sync([&] {
        char* guid = g_dbus_generate_guid();
        handle.reset(G_DBUS_CONNECTION(g_object_new(G_TYPE_DBUS_CONNECTION, "stream", stream.get(),
                                                    "authentication-observer", observer.get(), "flags", flags, "guid",
                                                    side == Side::Service ? guid : nullptr, nullptr)));
        g_free(guid);
        timer.reset(g_timeout_source_new(static_cast<guint>(timeoutSeconds * 1000)));
        g_source_set_callback(timer.get(), cancel, g_object_ref(tooLate.get()), g_object_unref);
        g_source_attach(timer.get(), MainLoopThread::shared().context());
    });
    const bool isAuthenticated = g_initable_init(G_INITABLE(handle.get()), tooLate.get(), reason.out());
    g_source_destroy(timer.get());
    if (!isAuthenticated) {
        g_io_stream_close(G_IO_STREAM(stream.get()), nullptr, nullptr);
        fail(error, kNSPOSIXErrorDomain, g_cancellable_is_cancelled(tooLate.get()) ? ETIMEDOUT : EACCES,
             failure(reason.message()));
        return nullptr;
    }
    auto core = std::make_shared<Core>(side, std::move(handle), credentials->pid);
    return NSXPCConnectionPtr(new NSXPCConnection(std::move(core)));
}

void NSXPCConnection::Core::start()
{
    MainLoopThread::shared().assertCurrent();
    {
        LockGuard guard(lock);
        if (isEnded)
            return;
        standardCalls = std::make_shared<StandardCalls>(
            exportedInterface, side == Side::Service ? StandardCalls::Role::Bus : StandardCalls::Role::Peer);
    }
    number = addNumber();
    // GLib carries messages, and gets none to answer: it would at times do so after the end.
    g_dbus_connection_add_filter(
        handle.get(),
        [](GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer data) -> GDBusMessage* {
            const auto core = withNumber(data);
            if (!isIncoming) {
                if (core && g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
                    core->countUnsent(-1);
                return message;
            }
            ObjectPtr<GDBusMessage> received(message);
            if (core)
                core->takeMessage(std::move(received));
            return nullptr;
        },
        number, nullptr);
    closedSignal =
        g_signal_connect(handle.get(), "closed", G_CALLBACK(+[](GDBusConnection*, gboolean, GError*, gpointer data) {
                             if (const auto core = withNumber(data))
                                 core->end();
                         }),
                         number);
    g_dbus_connection_start_message_processing(handle.get());
    // What ended before there was anybody to tell.
    if (g_dbus_connection_is_closed(handle.get()))
        end();
}

void NSXPCConnection::Core::end()
{
    std::map<uint32_t, WaitingReply> lost;
    std::function<void()> handler;
    std::function<void()> atEnd;
    std::shared_ptr<NSXPCExportedObject> object;
    NSXPCConnectionPtr keeper;
    {
        LockGuard guard(lock);
        if (std::exchange(isEnded, true))
            return;
        lost = std::exchange(waitingReplies, {});
        handler = std::exchange(invalidationHandler, nullptr);
        atEnd = std::exchange(endHandler, nullptr);
        object = std::exchange(exportedObject, nullptr);
        keeper = std::exchange(self, nullptr);
    }
    g_cancellable_cancel(ended.get());
    MainLoopThread::shared().async([core = shared_from_this()] {
        if (core->closedSignal != 0)
            g_signal_handler_disconnect(core->handle.get(), std::exchange(core->closedSignal, 0));
        core->removeNumber();
        g_dbus_connection_close(core->handle.get(), nullptr, nullptr, nullptr);
    });
    queue->async([lost = std::move(lost), handler = std::move(handler), atEnd = std::move(atEnd),
                  object = std::move(object), keeper = std::move(keeper)]() mutable {
        for (auto& [serial, waiting] : lost)
            waiting.block(std::nullopt, lostConnection(waiting.selector));
        if (handler)
            handler();
        if (atEnd)
            atEnd();
    });
}

void NSXPCConnection::Core::takeMessage(ObjectPtr<GDBusMessage> message)
{
    if (const std::string fault = faultOfMessage(message.get()); !fault.empty()) {
        logFailure("NSXPCConnection", "ended, since the peer sent what is no message: " + fault);
        end();
        return;
    }
    switch (g_dbus_message_get_message_type(message.get())) {
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        takeCall(std::move(message));
        break;
    case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
    case G_DBUS_MESSAGE_TYPE_ERROR:
        takeReply(std::move(message));
        break;
    default:
        // Nobody listens to signals.
        break;
    }
}

void NSXPCConnection::Core::takeCall(ObjectPtr<GDBusMessage> message)
{
    countUnsent(1);
    LockGuard guard(lock);
    const std::string_view path = g_dbus_message_get_path(message.get());
    const char* name = g_dbus_message_get_interface(message.get());
    // Calls without an interface are allowed and mean the one that has the operation.
    const bool isForUs = exportedInterface && path == exportedInterface->objectPath() &&
                         (!name || name == exportedInterface->name()) &&
                         exportedInterface->operation(g_dbus_message_get_member(message.get()));
    queue->async([core = shared_from_this(), held = std::move(message), isForUs, interface = exportedInterface,
                  standard = standardCalls]() mutable {
        core->countUnsent(-1);
        if (isForUs)
            core->receiveCall(std::move(held), interface);
        else if (expectsReply(held.get()))
            core->send(ObjectPtr<GDBusMessage>(standard->answer(held.get())).get());
    });
}

void NSXPCConnection::Core::takeReply(ObjectPtr<GDBusMessage> message)
{
    LockGuard guard(lock);
    const auto found = waitingReplies.find(g_dbus_message_get_reply_serial(message.get()));
    if (found == waitingReplies.end())
        return;
    queue->async(
        [core = shared_from_this(), held = std::move(message), waiting = std::move(found->second),
         interface = remoteInterface]() mutable { core->receiveReply(held.get(), std::move(waiting), *interface); });
    waitingReplies.erase(found);
}

void NSXPCConnection::Core::receiveCall(ObjectPtr<GDBusMessage> message,
                                        const std::shared_ptr<const NSXPCInterface>& interface)
{
    assertOnQueue(*queue);
    std::shared_ptr<NSXPCExportedObject> object;
    {
        LockGuard guard(lock);
        object = exportedObject;
    }
    const std::string selector = g_dbus_message_get_member(message.get());
    NSError error;
    auto arguments = decodeValues(g_dbus_message_get_body(message.get()), *interface, selector, false, &error);
    auto call = headOf(message.get());
    letGo(std::move(message));
    if (!arguments) {
        logFailure(selector, "refused: " + error.localizedDescription);
        if (expectsReply(call.get())) {
            const ObjectPtr<GDBusMessage> answer(
                g_dbus_message_new_method_error_literal(call.get(), kInvalidArgs, error.localizedDescription.c_str()));
            send(answer.get());
        }
        return;
    }
    // Gone since the message came.
    if (!object)
        return;
    object->invoke(selector, std::move(*arguments),
                   NSXPCReply(selector, [core = shared_from_this(), interface, selector, call = std::move(call)](
                                            std::optional<NSXPCValues> values, const NSError& failure) {
                       core->sendReply(call.get(), *interface, selector, std::move(values), failure);
                   }));
}

void NSXPCConnection::Core::sendReply(GDBusMessage* call, const NSXPCInterface& interface, const std::string& selector,
                                      std::optional<NSXPCValues> values, const NSError& error)
{
    if (!expectsReply(call))
        return;
    std::string reason = error.localizedDescription;
    GVariant* body = nullptr;
    if (values) {
        body = encodeValues(*values, interface.operation(selector)->reply);
        assert(body);
        reason = selector + ": the answer does not match the interface";
    }
    const ObjectPtr<GDBusMessage> message(body
                                              ? g_dbus_message_new_method_reply(call)
                                              : g_dbus_message_new_method_error_literal(call, kFailed, reason.c_str()));
    if (body)
        g_dbus_message_set_body(message.get(), body);
    send(message.get());
}

void NSXPCConnection::Core::send(GDBusMessage* message)
{
    {
        // What is answered because of the end, such as a job that is cancelled by it, is not heard any more, whether or
        // not the socket is closed yet.
        LockGuard guard(lock);
        if (isEnded)
            return;
    }
    if (g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        countUnsent(1);
    ErrorHolder reason;
    if (!g_dbus_connection_send_message(handle.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, reason.out()) &&
        !g_dbus_connection_is_closed(handle.get()))
        logFailure("NSXPCConnection", "message was not sent: " + reason.message());
}

void NSXPCConnection::Core::countUnsent(int change)
{
    if ((unsentAnswers += change) == kMostUnsentAnswers && change > 0) {
        logFailure("NSXPCConnection",
                   "ended, since the peer reads none of its " + std::to_string(kMostUnsentAnswers) + " answers");
        end();
    }
}

void NSXPCConnection::Core::receiveReply(GDBusMessage* message, WaitingReply waiting, const NSXPCInterface& interface)
{
    assertOnQueue(*queue);
    NSError error;
    if (g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_ERROR) {
        const char* name = g_dbus_message_get_error_name(message);
        const char* text = g_dbus_message_get_arg0(message);
        error = {.domain = name ? name : kFailed,
                 .code = 0,
                 .localizedDescription = text ? text : waiting.selector + ": failed without a reason"};
        waiting.block(std::nullopt, error);
        return;
    }
    auto values = decodeValues(g_dbus_message_get_body(message), interface, waiting.selector, true, &error);
    if (!values)
        error.code = kNSXPCConnectionReplyInvalid;
    waiting.block(std::move(values), error);
}

GDBusMessage* NSXPCConnection::Core::newCall(const NSXPCInterface& interface, std::string_view selector,
                                             const NSXPCValues& arguments, NSError* error) const
{
    const std::string member(selector.substr(0, selector.find(':')));
    const auto* operation = interface.operation(member);
    GVariant* body = operation ? encodeValues(arguments, operation->arguments) : nullptr;
    if (!body) {
        assert(!"a call that the interface does not have");
        fail(error, kNSCocoaErrorDomain, kNSXPCConnectionInvalid,
             member + ": the interface has no such operation with these arguments");
        return nullptr;
    }
    auto* message = g_dbus_message_new_method_call(nullptr, interface.objectPath().c_str(), interface.name().c_str(),
                                                   member.c_str());
    g_dbus_message_set_body(message, body);
    return message;
}

namespace {

/// GLib flushes a socket on a thread of its tasks, and waits for ever where it gets none: one that is there stays.
void startTaskThread()
{
    g_thread_pool_set_max_idle_time(0);
    static std::counting_semaphore<> started{0};
    const ObjectPtr<GTask> task(g_task_new(nullptr, nullptr, nullptr, nullptr));
    g_task_run_in_thread(task.get(), [](GTask* own, gpointer, gpointer, GCancellable*) {
        started.release();
        g_task_return_boolean(own, TRUE);
    });
    if (!started.try_acquire_for(kLongestThreadStart))
        throw std::system_error(EAGAIN, std::generic_category(), "no thread can be made");
}

} // namespace

void NSXPCConnection::startThreads()
{
    DispatchQueue::global()->sync([] {});
    startTaskThread();
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return;
    const FileDescriptor other(ends[1]);
    const ObjectPtr<GSocket> socket(g_socket_new_from_fd(ends[0], nullptr));
    if (!socket) {
        close(ends[0]);
        return;
    }
    // GLib's own comes with the first connection, and stays.
    MainLoopThread::shared().sync([&] {
        const ObjectPtr<GSocketConnection> stream(g_socket_connection_factory_create_connection(socket.get()));
        const ObjectPtr<GDBusConnection> connection(g_dbus_connection_new_sync(
            G_IO_STREAM(stream.get()), nullptr, G_DBUS_CONNECTION_FLAGS_NONE, nullptr, nullptr, nullptr));
        if (connection)
            g_dbus_connection_close(connection.get(), nullptr, nullptr, nullptr);
    });
}

NSXPCConnection::NSXPCConnection(std::shared_ptr<Core> core) : core_(std::move(core)) {}

NSXPCConnection::~NSXPCConnection()
{
    core_->end();
}

NSXPCConnectionPtr NSXPCConnection::connectionWithSocket(int socket, NSError* error, double timeoutSeconds,
                                                         const std::function<bool()>& goesOn)
{
    return Core::connect(socket, Side::Client, error, timeoutSeconds, goesOn);
}

NSXPCConnectionPtr NSXPCConnection::acceptedConnectionWithSocket(int socket, NSError* error, double timeoutSeconds)
{
    return Core::connect(socket, Side::Service, error, timeoutSeconds);
}

void NSXPCConnection::setExportedInterface(std::shared_ptr<const NSXPCInterface> interface)
{
    LockGuard guard(core_->lock);
    core_->exportedInterface = std::move(interface);
}

void NSXPCConnection::setExportedObject(std::shared_ptr<NSXPCExportedObject> object)
{
    // The old object ends outside the lock.
    LockGuard guard(core_->lock);
    core_->exportedObject.swap(object);
}

std::shared_ptr<const NSXPCInterface> NSXPCConnection::exportedInterface() const
{
    LockGuard guard(core_->lock);
    return core_->exportedInterface;
}

std::shared_ptr<NSXPCExportedObject> NSXPCConnection::exportedObject() const
{
    LockGuard guard(core_->lock);
    return core_->exportedObject;
}

void NSXPCConnection::setRemoteObjectInterface(std::shared_ptr<const NSXPCInterface> interface)
{
    LockGuard guard(core_->lock);
    core_->remoteInterface = std::move(interface);
}

std::shared_ptr<const NSXPCInterface> NSXPCConnection::remoteObjectInterface() const
{
    LockGuard guard(core_->lock);
    return core_->remoteInterface;
}

NSXPCProxy NSXPCConnection::remoteObjectProxy()
{
    return NSXPCProxy(shared_from_this());
}

void NSXPCConnection::setInvalidationHandler(std::function<void()> handler)
{
    LockGuard guard(core_->lock);
    core_->invalidationHandler = std::move(handler);
}

void NSXPCConnection::setEndHandler(std::function<void()> handler)
{
    LockGuard guard(core_->lock);
    core_->endHandler = std::move(handler);
}

void NSXPCConnection::resume()
{
    {
        LockGuard guard(core_->lock);
        if (core_->isEnded || std::exchange(core_->isResumed, true))
            return;
        core_->self = shared_from_this();
    }
    MainLoopThread::shared().async([core = core_] { core->start(); });
}

void NSXPCConnection::invalidate()
{
    core_->end();
}

bool NSXPCConnection::isValid() const
{
    LockGuard guard(core_->lock);
    return !core_->isEnded;
}

int NSXPCConnection::processIdentifier() const
{
    return core_->peer;
}

bool NSXPCProxy::sendWithoutReply(std::string_view selector, const NSXPCValues& arguments) const
{
    const auto& core = connection_->core_;
    std::shared_ptr<const NSXPCInterface> interface;
    {
        LockGuard guard(core->lock);
        if (core->isEnded || !core->remoteInterface)
            return false;
        interface = core->remoteInterface;
    }
    const ObjectPtr<GDBusMessage> message(core->newCall(*interface, selector, arguments, nullptr));
    if (!message)
        return false;
    g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    core->send(message.get());
    return true;
}

void NSXPCProxy::call(std::string_view selector, const NSXPCValues& arguments) const
{
    const auto& core = connection_->core_;
    if (sendWithoutReply(selector, arguments))
        g_dbus_connection_flush_sync(core->handle.get(), core->ended.get(), nullptr);
}

void NSXPCProxy::post(std::string_view selector, const NSXPCValues& arguments) const
{
    static_cast<void>(sendWithoutReply(selector, arguments));
}

void NSXPCProxy::call(std::string_view selector, const NSXPCValues& arguments, ReplyBlock reply) const
{
    const auto& core = connection_->core_;
    NSError error = lostConnection(selector);
    {
        const auto interface = connection_->remoteObjectInterface();
        const ObjectPtr<GDBusMessage> message(interface ? core->newCall(*interface, selector, arguments, &error)
                                                        : nullptr);
        // Held while sending, so that the reply cannot be there before its block is.
        LockGuard guard(core->lock);
        if (message && !core->isEnded) {
            guint32 serial = 0;
            ErrorHolder reason;
            if (g_dbus_connection_send_message(core->handle.get(), message.get(), G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                               &serial, reason.out())) {
                core->waitingReplies.emplace(
                    serial, NSXPCConnection::Core::WaitingReply{std::string(selector.substr(0, selector.find(':'))),
                                                                std::move(reply)});
                return;
            }
            error.localizedDescription = std::string(selector) + ": not sent: " + reason.message();
        }
    }
    core->queue->async([reply = std::move(reply), error]() mutable { reply(std::nullopt, error); });
}

} // namespace platform
