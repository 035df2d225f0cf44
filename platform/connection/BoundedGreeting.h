#pragma once

#include <cstddef>

typedef struct _GSocket GSocket;
typedef struct _GSocketConnection GSocketConnection;

namespace platform {

/// A connection over a UNIX socket, through whose stream a peer can send so many bytes and no more: reading on then
/// fails. What proves who the peer is comes through the stream; messages, which are read from the socket itself, do not
/// count.
/// @return the caller's; null if the socket is none of these
GSocketConnection* newConnectionWithBoundedGreeting(GSocket* socket, size_t mostBytes);

} // namespace platform
