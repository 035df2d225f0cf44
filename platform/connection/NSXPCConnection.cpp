#include "platform/connection/NSXPCConnection.h"

#include "platform/connection/MainLoopThread.h"
#include "platform/connection/MessageCoding.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/Handle.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSLog.h"

#include <gio/gio.h>

#include <atomic>
#include <cassert>
#include <cerrno>
#include <map>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";
constexpr const char* kBusPath = "/org/freedesktop/DBus";

/// What the tools of a bus ask a bus for when they connect or look a name up.
constexpr const char* kBusInterface = R"(
<node>
  <interface name="org.freedesktop.DBus">
    <method name="Hello"><arg name="name" type="s" direction="out"/></method>
    <method name="AddMatch"><arg name="rule" type="s" direction="in"/></method>
    <method name="RemoveMatch"><arg name="rule" type="s" direction="in"/></method>
    <method name="ListNames"><arg name="names" type="as" direction="out"/></method>
    <method name="NameHasOwner">
      <arg name="name" type="s" direction="in"/><arg name="hasOwner" type="b" direction="out"/>
    </method>
    <method name="GetNameOwner">
      <arg name="name" type="s" direction="in"/><arg name="owner" type="s" direction="out"/>
    </method>
  </interface>
</node>)";

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
    std::string message() const { return error_ ? error_->message : "unknown reason"; }

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

NSError lostConnection(std::string_view selector)
{
    return {std::string(kNSCocoaErrorDomain), kNSXPCConnectionInvalid,
            std::string(selector) + ": the connection has ended"};
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
    std::function<void()> invalidationHandler GUARDED_BY(lock);
    std::function<void()> endHandler GUARDED_BY(lock);
    std::map<uint32_t, WaitingReply> waitingReplies GUARDED_BY(lock);
    /// Keeps a resumed connection alive.
    NSXPCConnectionPtr self GUARDED_BY(lock);

    /// What GLib knows this by: it keeps numbers, not memory, and asks for them on threads of its own.
    static std::shared_ptr<Core> withNumber(gpointer number);
    gpointer addNumber();
    void removeNumber();

    // Only on the main loop's thread.
    gpointer number = nullptr;
    guint filter = 0;
    gulong closedSignal = 0;
    std::vector<guint> objects;
    std::string uniqueName;

    static NSXPCConnectionPtr connect(int socket, Side side, NSError* error, double timeoutSeconds);

    void start();
    void end();
    void registerObject(const char* path, const char* xml, std::string_view interfaceName,
                        const GDBusInterfaceVTable* vtable);

    /// On the thread that reads sockets: keeps what is for us.
    GDBusMessage* filterMessage(GDBusMessage* message);
    /// On the connection's own queue.
    void receiveCall(GDBusMessage* message, const std::shared_ptr<const NSXPCInterface>& interface);
    void receiveReply(GDBusMessage* message, WaitingReply waiting, const NSXPCInterface& interface);

    void sendReply(GDBusMessage* call, const NSXPCInterface& interface, const std::string& selector,
                   std::optional<NSXPCValues> values, const NSError& error);
    void send(GDBusMessage* message);
    GDBusMessage* newCall(const NSXPCInterface& interface, std::string_view selector, const NSXPCValues& arguments,
                          NSError* error) const;

    void answerBusCall(GDBusMethodInvocation* invocation, std::string_view method, GVariant* parameters);
};

namespace {

// Calls of the exported interface are taken by the filter; only what it lets through arrives here.
void refuseCall(GDBusConnection*, const char*, const char*, const char*, const char* method, GVariant*,
                GDBusMethodInvocation* invocation, gpointer)
{
    g_dbus_method_invocation_return_error(invocation, G_DBUS_ERROR, G_DBUS_ERROR_UNKNOWN_METHOD, "No such method: %s",
                                          method);
}

} // namespace

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

NSXPCConnectionPtr NSXPCConnection::Core::connect(int socket, Side side, NSError* error, double timeoutSeconds)
{
    const std::string who = side == Side::Client ? "Connection to the service" : "Connection of a client";
    const auto credentials = peerCredentials(socket);
    ErrorHolder reason;
    const ObjectPtr<GSocket> socketObject(g_socket_new_from_fd(socket, reason.out()));
    if (!socketObject) {
        close(socket);
        fail(error, kNSPOSIXErrorDomain, ENOTSOCK, who + " failed: " + reason.message());
        return nullptr;
    }
    if (!credentials || credentials->uid != geteuid()) {
        fail(error, kNSPOSIXErrorDomain, EACCES, who + " failed: the peer is no process of the same user");
        return nullptr;
    }
    const ObjectPtr<GSocketConnection> stream(g_socket_connection_factory_create_connection(socketObject.get()));
    const ObjectPtr<GDBusAuthObserver> observer(g_dbus_auth_observer_new());
    g_signal_connect(observer.get(), "allow-mechanism", G_CALLBACK(allowsMechanism), nullptr);
    g_signal_connect(observer.get(), "authorize-authenticated-peer", G_CALLBACK(authorizesPeer), nullptr);

    auto flags = static_cast<int>(G_DBUS_CONNECTION_FLAGS_DELAY_MESSAGE_PROCESSING);
    if (side == Side::Client)
        flags |= G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT;
    else
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
             who + " failed: " + reason.message());
        return nullptr;
    }
    auto core = std::make_shared<Core>(side, std::move(handle), credentials->pid);
    return NSXPCConnectionPtr(new NSXPCConnection(std::move(core)));
}

void NSXPCConnection::Core::registerObject(const char* path, const char* xml, std::string_view interfaceName,
                                           const GDBusInterfaceVTable* vtable)
{
    MainLoopThread::shared().assertCurrent();
    const Handle<GDBusNodeInfo, g_dbus_node_info_unref> node(g_dbus_node_info_new_for_xml(xml, nullptr));
    auto* info = g_dbus_node_info_lookup_interface(node.get(), std::string(interfaceName).c_str());
    ErrorHolder reason;
    const auto identifier =
        g_dbus_connection_register_object(handle.get(), path, info, vtable, number, nullptr, reason.out());
    if (identifier == 0)
        logFailure("NSXPCConnection resume", std::string(path) + " cannot be exported: " + reason.message());
    else
        objects.push_back(identifier);
}

void NSXPCConnection::Core::start()
{
    MainLoopThread::shared().assertCurrent();
    std::shared_ptr<const NSXPCInterface> interface;
    {
        LockGuard guard(lock);
        if (isEnded)
            return;
        interface = exportedInterface;
    }
    static constexpr GDBusInterfaceVTable exportedTable{refuseCall, nullptr, nullptr, {}};
    static const GDBusInterfaceVTable busTable{
        [](GDBusConnection*, const char*, const char*, const char*, const char* method, GVariant* parameters,
           GDBusMethodInvocation* invocation, gpointer data) {
            if (const auto core = withNumber(data))
                core->answerBusCall(invocation, method, parameters);
            else
                g_dbus_method_invocation_return_dbus_error(invocation, kFailed, "The connection has ended");
        },
        nullptr,
        nullptr,
        {}};
    number = addNumber();
    if (interface) {
        registerObject(interface->objectPath().c_str(), interface->introspectionXML().c_str(), interface->name(),
                       &exportedTable);
    }
    if (side == Side::Service)
        registerObject(kBusPath, kBusInterface, "org.freedesktop.DBus", &busTable);
    filter = g_dbus_connection_add_filter(
        handle.get(),
        [](GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer data) {
            const auto core = isIncoming ? withNumber(data) : nullptr;
            return core ? core->filterMessage(message) : message;
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
        if (core->filter != 0)
            g_dbus_connection_remove_filter(core->handle.get(), std::exchange(core->filter, 0));
        for (const auto identifier : std::exchange(core->objects, {}))
            g_dbus_connection_unregister_object(core->handle.get(), identifier);
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

GDBusMessage* NSXPCConnection::Core::filterMessage(GDBusMessage* message)
{
    const auto type = g_dbus_message_get_message_type(message);
    if (type == G_DBUS_MESSAGE_TYPE_METHOD_RETURN || type == G_DBUS_MESSAGE_TYPE_ERROR) {
        LockGuard guard(lock);
        const auto found = waitingReplies.find(g_dbus_message_get_reply_serial(message));
        if (found == waitingReplies.end())
            return message;
        queue->async([core = shared_from_this(), held = ObjectPtr<GDBusMessage>(message),
                      waiting = std::move(found->second), interface = remoteInterface]() mutable {
            core->receiveReply(held.get(), std::move(waiting), *interface);
        });
        waitingReplies.erase(found);
        return nullptr;
    }
    if (type != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return message;
    LockGuard guard(lock);
    const char* path = g_dbus_message_get_path(message);
    const char* name = g_dbus_message_get_interface(message);
    const char* member = g_dbus_message_get_member(message);
    // Calls without an interface are allowed and mean the one that has the operation.
    if (!exportedInterface || !path || !member || path != exportedInterface->objectPath() ||
        (name && name != exportedInterface->name()) || !exportedInterface->operation(member))
        return message;
    queue->async([core = shared_from_this(), held = ObjectPtr<GDBusMessage>(message), interface = exportedInterface] {
        core->receiveCall(held.get(), interface);
    });
    return nullptr;
}

void NSXPCConnection::Core::receiveCall(GDBusMessage* message, const std::shared_ptr<const NSXPCInterface>& interface)
{
    assertOnQueue(*queue);
    std::shared_ptr<NSXPCExportedObject> object;
    {
        LockGuard guard(lock);
        object = exportedObject;
    }
    const std::string selector = g_dbus_message_get_member(message);
    NSError error;
    auto arguments = decodeValues(g_dbus_message_get_body(message), *interface, selector, false, &error);
    if (!arguments) {
        logFailure(selector, "refused: " + error.localizedDescription);
        if (!(g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED)) {
            const ObjectPtr<GDBusMessage> answer(
                g_dbus_message_new_method_error_literal(message, kInvalidArgs, error.localizedDescription.c_str()));
            send(answer.get());
        }
        return;
    }
    // Gone since the message came.
    if (!object)
        return;
    object->invoke(selector, std::move(*arguments),
                   NSXPCReply(selector, [core = shared_from_this(), interface, selector,
                                         held = ObjectPtr<GDBusMessage>(G_DBUS_MESSAGE(g_object_ref(message)))](
                                            std::optional<NSXPCValues> values, const NSError& failure) {
                       core->sendReply(held.get(), *interface, selector, std::move(values), failure);
                   }));
}

void NSXPCConnection::Core::sendReply(GDBusMessage* call, const NSXPCInterface& interface, const std::string& selector,
                                      std::optional<NSXPCValues> values, const NSError& error)
{
    if (g_dbus_message_get_flags(call) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED)
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
    ErrorHolder reason;
    if (!g_dbus_connection_send_message(handle.get(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, reason.out()) &&
        !g_dbus_connection_is_closed(handle.get()))
        logFailure("NSXPCConnection", "message was not sent: " + reason.message());
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

void NSXPCConnection::Core::answerBusCall(GDBusMethodInvocation* invocation, std::string_view method,
                                          GVariant* parameters)
{
    static std::atomic<uint64_t> lastName{0};
    if (uniqueName.empty())
        uniqueName = ":1." + std::to_string(++lastName);
    const char* name = nullptr;
    if (parameters && g_variant_is_of_type(parameters, G_VARIANT_TYPE("(s)")))
        g_variant_get(parameters, "(&s)", &name);
    // There is nobody at the other end but the service, whatever it is called.
    if (method == "Hello")
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", uniqueName.c_str()));
    else if (method == "ListNames") {
        const char* names[] = {"org.freedesktop.DBus", uniqueName.c_str()};
        g_dbus_method_invocation_return_value(invocation,
                                              g_variant_new("(@as)", g_variant_new_strv(names, std::size(names))));
    } else if (method == "NameHasOwner")
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(b)", TRUE));
    else if (method == "GetNameOwner")
        g_dbus_method_invocation_return_value(invocation, g_variant_new("(s)", name));
    else
        g_dbus_method_invocation_return_value(invocation, nullptr);
}

NSXPCConnection::NSXPCConnection(std::shared_ptr<Core> core) : core_(std::move(core)) {}

NSXPCConnection::~NSXPCConnection()
{
    core_->end();
}

NSXPCConnectionPtr NSXPCConnection::connectionWithSocket(int socket, NSError* error, double timeoutSeconds)
{
    return Core::connect(socket, Side::Client, error, timeoutSeconds);
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

void NSXPCProxy::call(std::string_view selector, const NSXPCValues& arguments) const
{
    const auto& core = connection_->core_;
    std::shared_ptr<const NSXPCInterface> interface;
    {
        LockGuard guard(core->lock);
        if (core->isEnded || !core->remoteInterface)
            return;
        interface = core->remoteInterface;
    }
    const ObjectPtr<GDBusMessage> message(core->newCall(*interface, selector, arguments, nullptr));
    if (!message)
        return;
    g_dbus_message_set_flags(message.get(), G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
    core->send(message.get());
    g_dbus_connection_flush_sync(core->handle.get(), core->ended.get(), nullptr);
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
