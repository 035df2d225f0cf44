#pragma once

#include "platform/connection/NSXPCConnection.h"
#include "platform/foundation/NSError.h"

#include <memory>

namespace platform {

class NSXPCListener;

class NSXPCListenerDelegate {
public:
    virtual ~NSXPCListenerDelegate() = default;

    /// Sets a new connection up and resumes it; false closes it. Its peer is a process of the same user. May be called
    /// on several threads at once, for a connection each.
    virtual bool listener(NSXPCListener& listener, const NSXPCConnectionPtr& shouldAcceptNewConnection) = 0;
};

/// Takes the connections of clients from a socket that listens, or the one client of a connected socket.
class NSXPCListener final {
public:
    /// The listener on the socket that the process was started with: descriptor 3, by `LISTEN_FDS` and `LISTEN_PID`.
    /// Made on the first call, which takes both out of the environment.
    /// @return null if there is no such socket
    [[nodiscard]] static std::shared_ptr<NSXPCListener> serviceListener(NSError* error = nullptr);

    /// A listener on `socket`, which it takes over, also on failure: a UNIX stream socket, listening or connected.
    [[nodiscard]] static std::shared_ptr<NSXPCListener> listenerWithSocket(int socket, NSError* error = nullptr);

    ~NSXPCListener();
    NSXPCListener(const NSXPCListener&) = delete;
    NSXPCListener& operator=(const NSXPCListener&) = delete;

    /// Not kept alive by the listener. Before `resume`.
    void setDelegate(std::weak_ptr<NSXPCListenerDelegate> delegate);

    /// Takes connections and runs the main queue on this thread. Returns when the only client of a connected socket
    /// has gone, on `invalidate`, on SIGTERM and, with a listening socket, on SIGINT; connections are then invalidated.
    /// Once.
    void resume();

    /// Makes `resume` return. Any thread.
    void invalidate();

private:
    struct Core;
    explicit NSXPCListener(std::shared_ptr<Core> core);

    const std::shared_ptr<Core> core_;
};

} // namespace platform
