#pragma once

#include "platform/connection/NSXPCInterface.h"
#include "platform/connection/NSXPCValue.h"

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace platform {

class NSXPCConnection;
using NSXPCConnectionPtr = std::shared_ptr<NSXPCConnection>;

/// Calls the object that the peer exports. Keeps its connection's socket alive, not more. Any thread.
class NSXPCProxy final {
public:
    /// Gets the reply's values, or none and why. On the connection's own queue.
    using ReplyBlock = std::move_only_function<void(std::optional<NSXPCValues> values, const NSError& error)>;

    /// Sends a call without waiting for a reply. Returns when it has left for the peer's socket, so that a slow peer
    /// slows its caller instead of filling memory. To a peer that is gone nothing is sent, silently.
    void call(std::string_view selector, const NSXPCValues& arguments) const;

    /// Sends a call; `reply` is called exactly once, however long that takes, or when the connection ends.
    void call(std::string_view selector, const NSXPCValues& arguments, ReplyBlock reply) const;

    /// Sends a call without waiting for anything, for where a peer that never reads must keep nobody. What it has not
    /// read is held in memory.
    void post(std::string_view selector, const NSXPCValues& arguments) const;

private:
    friend class NSXPCConnection;
    explicit NSXPCProxy(std::shared_ptr<NSXPCConnection> connection) : connection_(std::move(connection)) {}

    /// @return whether there was somebody to send to
    bool sendWithoutReply(std::string_view selector, const NSXPCValues& arguments) const;

    std::shared_ptr<NSXPCConnection> connection_;
};

/// One end of a socket between two processes of one user, each of which may export one object to the other. Speaks the
/// D-Bus wire protocol peer to peer. Set it up, then resume it; operations may be called on any thread. A resumed
/// connection stays alive until the peer goes away or it is invalidated, whether or not anybody else holds it.
class NSXPCConnection final : public std::enable_shared_from_this<NSXPCConnection> {
public:
    /// The client's end. Takes the connected socket over, also on failure, and waits until the peer, a process of the
    /// same user, has answered.
    /// @param goesOn  asked every few hundredths of a second, on the calling thread; false gives the waiting up
    [[nodiscard]] static NSXPCConnectionPtr connectionWithSocket(int socket, NSError* error = nullptr,
                                                                 double timeoutSeconds = 30,
                                                                 const std::function<bool()>& goesOn = {});
    /// The service's end, as above; what a listener does with each connection before it asks its delegate.
    [[nodiscard]] static NSXPCConnectionPtr acceptedConnectionWithSocket(int socket, NSError* error = nullptr,
                                                                         double timeoutSeconds = 30);

    /// Starts the threads that connections run on, which they do by themselves as well. A program that has something to
    /// leave behind does it before, as it ends where the system gives it no thread.
    static void startThreads();

    /// Without `resume` the peer's messages have never been looked at.
    ~NSXPCConnection();
    NSXPCConnection(const NSXPCConnection&) = delete;
    NSXPCConnection& operator=(const NSXPCConnection&) = delete;

    /// @name What the peer may call. Before `resume`.
    /// @{
    void setExportedInterface(std::shared_ptr<const NSXPCInterface> interface);
    void setExportedObject(std::shared_ptr<NSXPCExportedObject> object);
    /// @}
    std::shared_ptr<const NSXPCInterface> exportedInterface() const;
    /// Null once the connection has ended: it lets go of its object then.
    std::shared_ptr<NSXPCExportedObject> exportedObject() const;

    /// What the peer exports. Before `resume`.
    void setRemoteObjectInterface(std::shared_ptr<const NSXPCInterface> interface);
    std::shared_ptr<const NSXPCInterface> remoteObjectInterface() const;
    NSXPCProxy remoteObjectProxy();

    /// Called once, on the connection's own queue, after the peer has gone away or `invalidate` was called; then the
    /// connection lets go of it and of the exported object. Before `resume`.
    void setInvalidationHandler(std::function<void()> handler);

    /// Lets messages through. Once.
    void resume();

    /// Closes the socket. Calls that still wait for a reply fail. Twice is fine.
    void invalidate();
    bool isValid() const;

    /// The process at the other end; 0 where the system does not tell.
    int processIdentifier() const;

private:
    friend class NSXPCListener;
    friend class NSXPCProxy;
    struct Core;
    struct Registry;
    explicit NSXPCConnection(std::shared_ptr<Core> core);
    /// For the listener: called after the invalidation handler.
    void setEndHandler(std::function<void()> handler);

    const std::shared_ptr<Core> core_;
};

} // namespace platform
