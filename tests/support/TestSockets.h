#pragma once

#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

/// Two ends of a connection.
inline std::array<int, 2> socketPair()
{
    std::array<int, 2> sockets{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets.data()), 0);
    return sockets;
}

/// A listening socket in a folder of its own. Whoever is given its descriptor closes it.
class ListeningSocket {
public:
    ListeningSocket() : descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const auto name = address();
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
        EXPECT_EQ(listen(descriptor, 16), 0);
    }

    /// A new connection's other end.
    int connected() const
    {
        const int client = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const auto name = address();
        EXPECT_EQ(connect(client, reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
        return client;
    }
    std::string path() const { return folder_.path("socket"); }

private:
    sockaddr_un address() const
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::strncpy(name.sun_path, path().c_str(), sizeof name.sun_path - 1);
        return name;
    }

    const TemporaryFolder folder_;

public:
    const int descriptor;
};
