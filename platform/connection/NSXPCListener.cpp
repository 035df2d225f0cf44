#include "platform/connection/NSXPCListener.h"

#include "platform/connection/MainLoopThread.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSLog.h"

#include <glib-unix.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr int kFirstPassedDescriptor = 3;
/// Seconds that a client has to prove who it is.
constexpr double kAuthenticationTimeout = 30;
/// How long no connection is taken when the process is out of descriptors.
constexpr guint kAcceptPauseMilliseconds = 500;

int socketOption(int socket, int option)
{
    int value = -1;
    socklen_t length = sizeof value;
    return getsockopt(socket, SOL_SOCKET, option, &value, &length) == 0 ? value : -1;
}

struct UnrefSource {
    void operator()(GSource* source) const
    {
        g_source_destroy(source);
        g_source_unref(source);
    }
};
using SourcePtr = std::unique_ptr<GSource, UnrefSource>;

} // namespace

struct NSXPCListener::Core final : std::enable_shared_from_this<Core> {
    Core(int theSocket, bool listens) : socket(theSocket), isListening(listens) {}

    const int socket;
    const bool isListening;

    Lock lock;
    std::weak_ptr<NSXPCListener> listener GUARDED_BY(lock);
    std::weak_ptr<NSXPCListenerDelegate> delegate GUARDED_BY(lock);
    bool isStopped GUARDED_BY(lock) = false;
    std::vector<std::weak_ptr<NSXPCConnection>> connections GUARDED_BY(lock);

    // Only on the main loop's thread.
    SourcePtr acceptSource;
    SourcePtr pauseSource;
    std::vector<SourcePtr> signalSources;

    void start();
    void watchSignal(int number);
    void watchSocket();
    void acceptConnections();
    void serve(int connectedSocket);
    void stop();
};

void NSXPCListener::Core::watchSignal(int number)
{
    MainLoopThread::shared().assertCurrent();
    auto* source = g_unix_signal_source_new(number);
    g_source_set_callback(
        source,
        [](gpointer data) -> gboolean {
            static_cast<NSXPCListener::Core*>(data)->stop();
            return G_SOURCE_CONTINUE;
        },
        this, nullptr);
    g_source_attach(source, MainLoopThread::shared().context());
    signalSources.emplace_back(source);
}

void NSXPCListener::Core::watchSocket()
{
    MainLoopThread::shared().assertCurrent();
    auto* source = g_unix_fd_source_new(socket, G_IO_IN);
    const GUnixFDSourceFunc accept = [](gint, GIOCondition, gpointer data) -> gboolean {
        static_cast<NSXPCListener::Core*>(data)->acceptConnections();
        return G_SOURCE_CONTINUE;
    };
    g_source_set_callback(source, G_SOURCE_FUNC(accept), this, nullptr);
    g_source_attach(source, MainLoopThread::shared().context());
    acceptSource.reset(source);
}

void NSXPCListener::Core::start()
{
    MainLoopThread::shared().assertCurrent();
    watchSignal(SIGTERM);
    if (isListening) {
        watchSignal(SIGINT);
        watchSocket();
    }
}

void NSXPCListener::Core::acceptConnections()
{
    MainLoopThread::shared().assertCurrent();
    for (;;) {
        const int connectedSocket = accept4(socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (connectedSocket >= 0) {
            serve(connectedSocket);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return;
        // Out of descriptors, most likely: the client waits until another has gone.
        logFailure("NSXPCListener", std::string("a connection could not be accepted: ") + std::strerror(errno));
        acceptSource.reset();
        pauseSource.reset(g_timeout_source_new(kAcceptPauseMilliseconds));
        g_source_set_callback(
            pauseSource.get(),
            [](gpointer data) -> gboolean {
                static_cast<NSXPCListener::Core*>(data)->watchSocket();
                return G_SOURCE_REMOVE;
            },
            this, nullptr);
        g_source_attach(pauseSource.get(), MainLoopThread::shared().context());
        return;
    }
}

void NSXPCListener::Core::serve(int connectedSocket)
{
    // Not on the main loop's thread: a peer may take its time to prove who it is.
    DispatchQueue::global()->async([core = shared_from_this(), connectedSocket] {
        NSError error;
        const auto connection =
            NSXPCConnection::acceptedConnectionWithSocket(connectedSocket, &error, kAuthenticationTimeout);
        const auto isOnly = !core->isListening;
        if (!connection) {
            logFailure("NSXPCListener", error.localizedDescription);
            if (isOnly)
                core->stop();
            return;
        }
        connection->setEndHandler([weak = std::weak_ptr(core), isOnly] {
            if (const auto still = weak.lock(); still && isOnly)
                still->stop();
        });
        std::shared_ptr<NSXPCListener> asking;
        std::shared_ptr<NSXPCListenerDelegate> asked;
        {
            LockGuard guard(core->lock);
            if (!core->isStopped) {
                std::erase_if(core->connections, [](const auto& other) { return other.expired(); });
                core->connections.push_back(connection);
                asking = core->listener.lock();
                asked = core->delegate.lock();
            }
        }
        if (!asking || !asked || !asked->listener(*asking, connection))
            connection->invalidate();
    });
}

void NSXPCListener::Core::stop()
{
    {
        LockGuard guard(lock);
        if (std::exchange(isStopped, true))
            return;
    }
    DispatchQueue::stopMain();
}

NSXPCListener::NSXPCListener(std::shared_ptr<Core> core) : core_(std::move(core)) {}

NSXPCListener::~NSXPCListener()
{
    if (core_->isListening)
        close(core_->socket);
}

std::shared_ptr<NSXPCListener> NSXPCListener::serviceListener(NSError* error)
{
    static Lock lock;
    // Never destroyed: connections may still arrive while the process ends.
    static auto& listener = *new std::shared_ptr<NSXPCListener>;
    LockGuard guard(lock);
    if (listener)
        return listener;
    const char* process = std::getenv("LISTEN_PID");
    const char* count = std::getenv("LISTEN_FDS");
    const bool isPassed =
        process && count && std::strtoll(process, nullptr, 10) == getpid() && std::strtoll(count, nullptr, 10) >= 1;
    // Not for the programs that this one may start.
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        unsetenv(name);
    if (!isPassed) {
        fail(error, kNSPOSIXErrorDomain, ENOTCONN,
             localized("no socket was passed to this process (LISTEN_FDS, LISTEN_PID)"));
        return nullptr;
    }
    listener = listenerWithSocket(kFirstPassedDescriptor, error);
    return listener;
}

std::shared_ptr<NSXPCListener> NSXPCListener::listenerWithSocket(int socket, NSError* error)
{
    const int family = socketOption(socket, SO_DOMAIN);
    if (family != AF_UNIX || socketOption(socket, SO_TYPE) != SOCK_STREAM) {
        if (fcntl(socket, F_GETFD) >= 0)
            close(socket);
        fail(error, kNSPOSIXErrorDomain, ENOTSOCK,
             localized("descriptor {} is no UNIX stream socket", {std::to_string(socket)}));
        return nullptr;
    }
    fcntl(socket, F_SETFD, FD_CLOEXEC);
    fcntl(socket, F_SETFL, fcntl(socket, F_GETFL) | O_NONBLOCK);
    const auto core = std::make_shared<Core>(socket, socketOption(socket, SO_ACCEPTCONN) == 1);
    std::shared_ptr<NSXPCListener> listener(new NSXPCListener(core));
    {
        LockGuard guard(core->lock);
        core->listener = listener;
    }
    return listener;
}

void NSXPCListener::setDelegate(std::weak_ptr<NSXPCListenerDelegate> delegate)
{
    LockGuard guard(core_->lock);
    core_->delegate = std::move(delegate);
}

void NSXPCListener::resume()
{
    MainLoopThread::shared().sync([core = core_] { core->start(); });
    if (!core_->isListening)
        core_->serve(core_->socket);
    DispatchQueue::runMain();
    core_->stop();
    MainLoopThread::shared().sync([core = core_] {
        core->acceptSource.reset();
        core->pauseSource.reset();
        core->signalSources.clear();
    });
    std::vector<std::weak_ptr<NSXPCConnection>> connections;
    {
        LockGuard guard(core_->lock);
        connections = std::exchange(core_->connections, {});
    }
    for (const auto& weak : connections) {
        if (const auto connection = weak.lock())
            connection->invalidate();
    }
}

void NSXPCListener::invalidate()
{
    core_->stop();
}

} // namespace platform
