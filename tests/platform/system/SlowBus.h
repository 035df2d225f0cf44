#pragma once

#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/Handle.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gio/gio.h>
#include <gio/gunixfdlist.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <vector>

/// A system bus of one connection at a time that says nothing but what a test has it say, when the test says so. While
/// it lives, `DBUS_SYSTEM_BUS_ADDRESS` names it.
class SlowBus final {
public:
    using MessagePtr = platform::Handle<GDBusMessage, g_object_unref>;

    SlowBus()
    {
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        std::strncpy(name.sun_path, folder_.path("socket").c_str(), sizeof name.sun_path - 1);
        EXPECT_EQ(bind(listening_.get(), reinterpret_cast<const sockaddr*>(&name), sizeof name), 0);
        EXPECT_EQ(listen(listening_.get(), 4), 0);
        limitWaiting(listening_.get());
    }

    /// Takes in the next client, as far as that it may send messages.
    void takeIn()
    {
        client_.reset(accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        ASSERT_TRUE(client_);
        limitWaiting(client_.get());
        for (std::string line; line != "BEGIN";) {
            line = receiveLine();
            ASSERT_FALSE(line.empty());
            if (line.find("AUTH EXTERNAL") != std::string::npos)
                sendText("OK 0123456789abcdef0123456789abcdef\r\n");
            else if (line == "NEGOTIATE_UNIX_FD")
                sendText("AGREE_UNIX_FD\r\n");
            else if (line != "BEGIN")
                sendText("REJECTED EXTERNAL\r\n");
        }
    }

    /// Null if none comes.
    MessagePtr receive() const
    {
        constexpr size_t kHeadBytes = 16;
        std::string bytes = receiveBytes(kHeadBytes);
        const auto needed = g_dbus_message_bytes_needed(reinterpret_cast<guchar*>(bytes.data()), bytes.size(), nullptr);
        if (needed < 0)
            return nullptr;
        bytes += receiveBytes(static_cast<size_t>(needed) - bytes.size());
        return MessagePtr(g_dbus_message_new_from_blob(reinterpret_cast<guchar*>(bytes.data()), bytes.size(),
                                                       G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
    }

    /// Answers a call; a client that is gone does not hear it.
    /// @param body        used up
    /// @param descriptor  handed over with it, unless it is negative; stays open
    void answer(const MessagePtr& call, GVariant* body, int descriptor = -1) const
    {
        const MessagePtr reply(g_dbus_message_new_method_reply(call.get()));
        g_dbus_message_set_serial(reply.get(), 1);
        g_dbus_message_set_body(reply.get(), body);
        if (descriptor >= 0) {
            const platform::Handle<GUnixFDList, g_object_unref> descriptors(g_unix_fd_list_new());
            g_unix_fd_list_append(descriptors.get(), descriptor, nullptr);
            g_dbus_message_set_unix_fd_list(reply.get(), descriptors.get());
        }
        gsize length = 0;
        const platform::Handle<guchar, g_free> bytes(
            g_dbus_message_to_blob(reply.get(), &length, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
        ASSERT_TRUE(bytes);
        iovec part{bytes.get(), length};
        alignas(cmsghdr) char space[CMSG_SPACE(sizeof descriptor)] = {};
        msghdr message{};
        message.msg_iov = &part;
        message.msg_iovlen = 1;
        if (descriptor >= 0) {
            message.msg_control = space;
            message.msg_controllen = sizeof space;
            cmsghdr* const head = CMSG_FIRSTHDR(&message);
            head->cmsg_level = SOL_SOCKET;
            head->cmsg_type = SCM_RIGHTS;
            head->cmsg_len = CMSG_LEN(sizeof descriptor);
            std::memcpy(CMSG_DATA(head), &descriptor, sizeof descriptor);
        }
        const bool isSent = sendmsg(client_.get(), &message, MSG_NOSIGNAL) > 0;
        EXPECT_TRUE(isSent || errno == EPIPE || errno == ECONNRESET) << strerror(errno);
    }

    /// Whether the client ends its connection, now or soon.
    bool isLeft() const
    {
        char byte = 0;
        ssize_t count = 0;
        while ((count = recv(client_.get(), &byte, 1, 0)) > 0) {
        }
        return count == 0 || errno == ECONNRESET;
    }

private:
    static void limitWaiting(int socket)
    {
        const timeval patience{.tv_sec = 60, .tv_usec = 0};
        setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }

    void sendText(std::string_view text) const
    {
        EXPECT_EQ(send(client_.get(), text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }

    /// Without its end; empty if none comes.
    std::string receiveLine() const
    {
        std::string line;
        while (!line.ends_with("\r\n")) {
            const std::string byte = receiveBytes(1);
            if (byte.empty())
                return {};
            line += byte;
        }
        return line.substr(0, line.size() - 2);
    }

    /// Fewer where the client goes away.
    std::string receiveBytes(size_t count) const
    {
        std::string bytes(count, '\0');
        const ssize_t received = recv(client_.get(), bytes.data(), count, MSG_WAITALL);
        bytes.resize(received > 0 ? static_cast<size_t>(received) : 0);
        return bytes;
    }

    const TemporaryFolder folder_;
    const EnvironmentVariable address_{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + folder_.path("socket")};
    const platform::FileDescriptor listening_{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    platform::FileDescriptor client_;
};
