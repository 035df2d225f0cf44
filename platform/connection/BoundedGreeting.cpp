#include "platform/connection/BoundedGreeting.h"

#include <gio/gio.h>
#include <gio/gunixconnection.h>

#include <algorithm>

namespace platform {

namespace {

/// Reads from another stream until a number of bytes is reached.
struct BoundedInput {
    GFilterInputStream parent;
    size_t left;
};
struct BoundedInputClass {
    GFilterInputStreamClass parent;
};
G_DEFINE_TYPE(BoundedInput, bounded_input, G_TYPE_FILTER_INPUT_STREAM)

/// Made by GLib, as all below.
gssize readBounded(GInputStream* stream, void* buffer, gsize count, GCancellable* cancellable, GError** error)
{
    auto* const self = reinterpret_cast<BoundedInput*>(stream);
    if (self->left == 0) {
        g_set_error_literal(error, G_IO_ERROR, G_IO_ERROR_MESSAGE_TOO_LARGE, "The greeting is too long");
        return -1;
    }
    GInputStream* const base = g_filter_input_stream_get_base_stream(G_FILTER_INPUT_STREAM(stream));
    const gssize length = g_input_stream_read(base, buffer, std::min<gsize>(count, self->left), cancellable, error);
    self->left -= static_cast<size_t>(std::max<gssize>(length, 0));
    return length;
}

void bounded_input_init(BoundedInput*) {}

void bounded_input_class_init(BoundedInputClass* type)
{
    reinterpret_cast<GInputStreamClass*>(type)->read_fn = readBounded;
}

struct BoundedConnection {
    GUnixConnection parent;
    GInputStream* input;
};
struct BoundedConnectionClass {
    GUnixConnectionClass parent;
};
G_DEFINE_TYPE(BoundedConnection, bounded_connection, G_TYPE_UNIX_CONNECTION)

GInputStream* boundedInputOf(GIOStream* stream)
{
    return reinterpret_cast<BoundedConnection*>(stream)->input;
}

void disposeConnection(GObject* object)
{
    // Closing the connection asks for the stream once more.
    G_OBJECT_CLASS(bounded_connection_parent_class)->dispose(object);
    g_clear_object(&reinterpret_cast<BoundedConnection*>(object)->input);
}

void bounded_connection_init(BoundedConnection*) {}

void bounded_connection_class_init(BoundedConnectionClass* type)
{
    reinterpret_cast<GIOStreamClass*>(type)->get_input_stream = boundedInputOf;
    reinterpret_cast<GObjectClass*>(type)->dispose = disposeConnection;
}

} // namespace

GSocketConnection* newConnectionWithBoundedGreeting(GSocket* socket, size_t mostBytes)
{
    if (g_socket_get_family(socket) != G_SOCKET_FAMILY_UNIX)
        return nullptr;
    auto* const object = g_object_new(bounded_connection_get_type(), "socket", socket, nullptr);
    auto* const connection = static_cast<BoundedConnection*>(object);
    GInputStream* const base =
        reinterpret_cast<GIOStreamClass*>(bounded_connection_parent_class)->get_input_stream(G_IO_STREAM(object));
    connection->input = G_INPUT_STREAM(
        g_object_new(bounded_input_get_type(), "base-stream", base, "close-base-stream", FALSE, nullptr));
    reinterpret_cast<BoundedInput*>(connection->input)->left = mostBytes;
    return G_SOCKET_CONNECTION(object);
}

} // namespace platform
