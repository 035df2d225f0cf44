#pragma once

#include "platform/connection/NSXPCConnection.h"
#include "platform/dispatch/DispatchQueue.h"
#include "tests/support/Journal.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TestSockets.h"

#include <gio/gio.h>
#include <gio/gunixsocketaddress.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <future>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

/// What both ends of the tests' connections use: one operation for each kind of value, and an object to answer it.

inline constexpr auto kDeadline = std::chrono::seconds(30);

inline constexpr const char* kTestDocument = R"document(
<node name="/test/Object">
  <interface name="test.Interface">
    <method name="everything">
      <arg name="flag" type="b" direction="in"/>
      <arg name="number" type="x" direction="in"/>
      <arg name="real" type="d" direction="in"/>
      <arg name="text" type="s" direction="in"/>
      <arg name="data" type="ay" direction="in"/>
      <arg name="things" type="a(sa{sv})" direction="in"/>
      <arg name="failure" type="a(sxs)" direction="in"/>
      <arg name="flagBack" type="b" direction="out"/>
      <arg name="numberBack" type="x" direction="out"/>
      <arg name="realBack" type="d" direction="out"/>
      <arg name="textBack" type="s" direction="out"/>
      <arg name="dataBack" type="ay" direction="out"/>
      <arg name="thingsBack" type="a(sa{sv})" direction="out"/>
      <arg name="failureBack" type="a(sxs)" direction="out"/>
    </method>
    <method name="things"><arg name="list" type="a(sa{sv})" direction="in"/></method>
    <method name="data"><arg name="bytes" type="ay" direction="in"/></method>
    <method name="ping"/>
    <method name="tell">
      <annotation name="org.freedesktop.DBus.Method.NoReply" value="true"/>
      <arg name="text" type="s" direction="in"/>
    </method>
  </interface>
</node>)document";

/// An object with one value of each class.
struct Thing final : platform::NSSecureCoding {
    platform::NSCoder coder;

    std::string className() const override { return "Thing"; }
    void encodeWithCoder(platform::NSCoder& target) const override { target = coder; }

    /// Needs a key "name" that holds text; refuses the name "nothing" without an error.
    static std::shared_ptr<platform::NSSecureCoding> initWithCoder(const platform::NSCoder& coder,
                                                                   platform::NSError* error)
    {
        auto name = coder.decodeObjectOfClass(platform::CodedClass::String, "name", error);
        if (!name || std::get<std::string>(*name) == "nothing")
            return nullptr;
        auto thing = std::make_shared<Thing>();
        thing->coder = coder;
        return thing;
    }
};

inline std::shared_ptr<Thing> thingNamed(const std::string& name)
{
    auto thing = std::make_shared<Thing>();
    thing->coder.encodeObject(platform::CodedValue(name), "name");
    return thing;
}

inline std::shared_ptr<platform::NSXPCInterface> testInterface()
{
    auto interface = platform::NSXPCInterface::interfaceWithProtocol(kTestDocument);
    const platform::NSXPCClass thing{"Thing", Thing::initWithCoder};
    interface->setClasses({platform::NSXPCClass::array(), thing}, "everything:", 5, false);
    interface->setClasses({platform::NSXPCClass::array(), thing}, "everything:", 5, true);
    interface->setClasses({platform::NSXPCClass::array(), thing}, "things:", 0, false);
    interface->setClasses({platform::NSXPCClass::data()}, "data:", 0, false);
    return interface;
}

/// Sends the arguments of "everything" back; notes the rest.
class EchoObject : public platform::NSXPCExportedObject {
public:
    void invoke(const std::string& selector, platform::NSXPCValues arguments, platform::NSXPCReply reply) override
    {
        if (selector == "tell") {
            journal.add(std::get<std::string>(arguments[0]));
            reply({});
            return;
        }
        journal.add(selector);
        if (selector == "everything")
            reply(std::move(arguments));
        else
            reply({});
    }

    Journal journal;
};

/// Keeps replies to answer later.
class SilentObject : public platform::NSXPCExportedObject {
public:
    void invoke(const std::string& selector, platform::NSXPCValues, platform::NSXPCReply reply) override
    {
        {
            const std::lock_guard guard(mutex_);
            replies_.push_back(std::move(reply));
        }
        journal.add(selector);
    }
    std::vector<platform::NSXPCReply> takeReplies()
    {
        const std::lock_guard guard(mutex_);
        return std::move(replies_);
    }

    Journal journal;

private:
    std::mutex mutex_;
    std::vector<platform::NSXPCReply> replies_;
};

/// The service's end, while something else is the client.
inline std::future<platform::NSXPCConnectionPtr> acceptLater(int socket, std::string* message = nullptr)
{
    return std::async(std::launch::async, [socket, message] {
        platform::NSError error;
        auto connection = platform::NSXPCConnection::acceptedConnectionWithSocket(socket, &error);
        if (message)
            *message = error.localizedDescription;
        return connection;
    });
}

struct ConnectionPair {
    platform::NSXPCConnectionPtr service;
    platform::NSXPCConnectionPtr client;

    ConnectionPair()
    {
        const auto [one, other] = socketPair();
        auto accepted = acceptLater(one);
        client = platform::NSXPCConnection::connectionWithSocket(other);
        service = accepted.get();
        EXPECT_TRUE(service && client);
        for (const auto& connection : {service, client}) {
            connection->setExportedInterface(testInterface());
            connection->setRemoteObjectInterface(testInterface());
        }
    }
    ~ConnectionPair()
    {
        service->invalidate();
        client->invalidate();
    }
};

struct Answer {
    std::optional<platform::NSXPCValues> values;
    platform::NSError error;
};

inline std::future<Answer> ask(const platform::NSXPCConnectionPtr& connection, std::string_view selector,
                               const platform::NSXPCValues& arguments)
{
    auto promise = std::make_shared<std::promise<Answer>>();
    auto future = promise->get_future();
    connection->remoteObjectProxy().call(
        selector, arguments, [promise](std::optional<platform::NSXPCValues> values, const platform::NSError& error) {
            promise->set_value({std::move(values), error});
        });
    return future;
}

inline Answer get(std::future<Answer> future)
{
    if (future.wait_for(kDeadline) != std::future_status::ready) {
        ADD_FAILURE() << "no answer";
        return {};
    }
    return future.get();
}

/// A client that is an ordinary D-Bus library and knows nothing of this project.
class PlainClient {
public:
    explicit PlainClient(int socket, GDBusConnectionFlags extraFlags = G_DBUS_CONNECTION_FLAGS_NONE)
    {
        GSocket* object = g_socket_new_from_fd(socket, nullptr);
        GSocketConnection* stream = g_socket_connection_factory_create_connection(object);
        GError* error = nullptr;
        connection_ = g_dbus_connection_new_sync(
            G_IO_STREAM(stream), nullptr,
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT | extraFlags), nullptr,
            nullptr, &error);
        if (error) {
            failure = error->message;
            g_error_free(error);
        }
        g_object_unref(stream);
        g_object_unref(object);
    }
    PlainClient(const PlainClient&) = delete;
    PlainClient& operator=(const PlainClient&) = delete;
    ~PlainClient()
    {
        if (!connection_)
            return;
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_object_unref(connection_);
    }

    /// The reply as text, or "error name: message". Takes `arguments` over.
    std::string call(const char* path, const char* interface, const char* method, GVariant* arguments,
                     const char* destination = nullptr)
    {
        GError* error = nullptr;
        GVariant* reply = g_dbus_connection_call_sync(connection_, destination, path, interface, method, arguments,
                                                      nullptr, G_DBUS_CALL_FLAGS_NONE, 30000, nullptr, &error);
        std::string text;
        if (reply) {
            char* printed = g_variant_print(reply, FALSE);
            text = printed;
            g_free(printed);
            g_variant_unref(reply);
        } else {
            char* name = g_dbus_error_get_remote_error(error);
            g_dbus_error_strip_remote_error(error);
            text = std::string(name ? name : "local") + ": " + error->message;
            g_free(name);
            g_error_free(error);
        }
        return text;
    }
    std::string callText(const char* method, const char* arguments)
    {
        GVariant* body = g_variant_new_parsed(arguments);
        return call("/test/Object", "test.Interface", method, body);
    }
    const char* uniqueName() const { return g_dbus_connection_get_unique_name(connection_); }
    GDBusConnection* connection() { return connection_; }

    std::string failure;

private:
    GDBusConnection* connection_ = nullptr;
};

/// A socket's bare bytes.
class RawClient {
public:
    explicit RawClient(int socket) : socket_(socket) {}
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;
    ~RawClient() { close(); }

    void send(std::string_view bytes)
    {
        while (!bytes.empty()) {
            const auto sent = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent <= 0)
                return;
            bytes.remove_prefix(static_cast<size_t>(sent));
        }
    }
    /// One line of the authentication, without its end; empty when the peer has closed.
    std::string receiveLine()
    {
        std::string line;
        char character = 0;
        while (waitReadable() && recv(socket_, &character, 1, 0) == 1) {
            if (character == '\n')
                break;
            if (character != '\r')
                line += character;
        }
        return line;
    }
    bool authenticate()
    {
        std::string uid;
        for (const char digit : std::to_string(geteuid())) {
            uid += "3";
            uid += digit;
        }
        send(std::string_view("\0", 1));
        send("AUTH EXTERNAL " + uid + "\r\n");
        if (!receiveLine().starts_with("OK "))
            return false;
        send("BEGIN\r\n");
        return true;
    }
    /// Reads one whole little-endian message; false when the peer has closed.
    bool receiveMessage()
    {
        std::array<uint32_t, 4> start{};
        if (!receiveBytes(start.data(), sizeof start))
            return false;
        std::vector<char> rest((start[3] + 7) / 8 * 8 + start[1]);
        return receiveBytes(rest.data(), rest.size());
    }
    void stopSending() { shutdown(socket_, SHUT_WR); }
    /// Whether the peer closes within the deadline.
    bool waitForEnd()
    {
        std::array<char, 4096> bytes{};
        while (waitReadable()) {
            if (recv(socket_, bytes.data(), bytes.size(), 0) <= 0)
                return true;
        }
        return false;
    }
    void close()
    {
        if (socket_ >= 0)
            ::close(std::exchange(socket_, -1));
    }

private:
    bool receiveBytes(void* bytes, size_t count)
    {
        return waitReadable() && recv(socket_, bytes, count, MSG_WAITALL) == static_cast<ssize_t>(count);
    }
    bool waitReadable()
    {
        pollfd entry{socket_, POLLIN, 0};
        return poll(&entry, 1, 30000) == 1;
    }

    int socket_;
};

/// Bytes of a little-endian method call with this body.
inline std::string methodCall(const std::string& signature, const std::string& body)
{
    std::string message;
    const auto number = [&](uint32_t value) {
        for (int shift = 0; shift < 32; shift += 8)
            message += static_cast<char>(value >> shift & 0xFF);
    };
    const auto align = [&](size_t to) {
        while (message.size() % to != 0)
            message += '\0';
    };
    const auto field = [&](char code, const char* type, const std::string& value) {
        align(8);
        message += code;
        message += '\1';
        message += type;
        message += '\0';
        if (*type == 'g')
            message += static_cast<char>(value.size());
        else
            number(static_cast<uint32_t>(value.size()));
        message += value;
        message += '\0';
    };
    message = std::string("l\1\0\1", 4);
    number(static_cast<uint32_t>(body.size()));
    number(1);
    number(0);
    field(1, "o", "/test/Object");
    field(2, "s", "test.Interface");
    field(3, "s", "things");
    field(8, "g", signature);
    const auto length = static_cast<uint32_t>(message.size() - 16);
    std::memcpy(message.data() + 12, &length, 4);
    align(8);
    return message + body;
}
