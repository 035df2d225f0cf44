#include "platform/connection/MessageFault.h"

#include "platform/foundation/Handle.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

using namespace platform;

namespace {

using Message = Handle<GDBusMessage, g_object_unref>;

struct Field {
    uint8_t code;
    /// "s", "o", "g" or "u"
    char type;
    std::string_view text;
    uint32_t number = 0;
};

constexpr Field kPath{1, 'o', "/a"};
constexpr Field kInterface{2, 's', "a.b"};
constexpr Field kMember{3, 's', "Call"};
constexpr Field kErrorName{4, 's', "a.b.Error"};
constexpr Field kReplySerial{5, 'u', {}, 7};

void append(std::string& bytes, uint32_t number)
{
    for (int shift = 0; shift < 32; shift += 8)
        bytes += static_cast<char>(number >> shift);
}

void align(std::string& bytes, size_t to)
{
    while (bytes.size() % to != 0)
        bytes += '\0';
}

/// As it comes over a socket, which lets more in than GLib's own functions for making one.
Message messageOf(int type, uint32_t serial, const std::vector<Field>& fields)
{
    std::string header;
    for (const Field& field : fields) {
        align(header, 8);
        header += {static_cast<char>(field.code), 1, field.type, 0};
        if (field.type == 'g') {
            header += static_cast<char>(field.text.size());
            header += field.text;
            header += '\0';
            continue;
        }
        align(header, 4);
        append(header, field.type == 'u' ? field.number : static_cast<uint32_t>(field.text.size()));
        if (field.type != 'u') {
            header += field.text;
            header += '\0';
        }
    }
    std::string bytes{'l', static_cast<char>(type), 0, 1};
    append(bytes, 0);
    append(bytes, serial);
    append(bytes, static_cast<uint32_t>(header.size()));
    bytes += header;
    align(bytes, 8);
    return Message(g_dbus_message_new_from_blob(reinterpret_cast<guchar*>(bytes.data()), bytes.size(),
                                                G_DBUS_CAPABILITY_FLAGS_NONE, nullptr));
}

constexpr int kCall = G_DBUS_MESSAGE_TYPE_METHOD_CALL;
constexpr int kReturn = G_DBUS_MESSAGE_TYPE_METHOD_RETURN;
constexpr int kError = G_DBUS_MESSAGE_TYPE_ERROR;

} // namespace

TEST(MessageFault, IsNoneOfWhatCanBeAnswered)
{
    const std::array<Message, 4> messages{
        messageOf(kCall, 1, {kPath, kMember}), messageOf(kCall, UINT32_MAX, {kPath, kInterface, kMember}),
        messageOf(kReturn, 1, {kReplySerial}), messageOf(kError, 1, {kReplySerial, kErrorName})};
    for (const Message& message : messages) {
        ASSERT_TRUE(message);
        EXPECT_EQ(faultOfMessage(message.get()), "");
    }
}

TEST(MessageFault, IsTold)
{
    struct Row {
        const char* name;
        int type;
        uint32_t serial;
        std::vector<Field> fields;
        const char* fault;
    };
    const std::array<Row, 13> rows{{
        {"serial", kCall, 0, {kPath, kMember}, "its serial is 0"},
        {"no path", kCall, 1, {kMember}, "a call without path or member"},
        {"no member", kCall, 1, {kPath}, "a call without path or member"},
        {"path", kCall, 1, {{1, 's', "/a"}, kMember}, "header field 1 is of the type s"},
        {"interface", kCall, 1, {kPath, {2, 'o', "/a"}, kMember}, "header field 2 is of the type o"},
        {"member", kCall, 1, {kPath, {3, 'u', {}, 1}}, "header field 3 is of the type u"},
        {"sender", kCall, 1, {kPath, kMember, {7, 'u', {}, 1}}, "header field 7 is of the type u"},
        {"member's name", kCall, 1, {kPath, {3, 's', "a.b"}}, "its member has no valid name"},
        {"interface's name", kCall, 1, {kPath, {2, 's', "a"}, kMember}, "its interface has no valid name"},
        {"sender's name", kCall, 1, {kPath, kMember, {7, 's', "a"}}, "its sender has no valid name"},
        {"destination's name", kCall, 1, {kPath, kMember, {6, 's', "//"}}, "its destination has no valid name"},
        {"answer", kReturn, 1, {{5, 'u', {}, 0}}, "an answer to nothing"},
        {"error", kError, 1, {{5, 'u', {}, 0}, kErrorName}, "an error without name or of nothing"},
    }};
    for (const Row& row : rows) {
        const Message message = messageOf(row.type, row.serial, row.fields);
        // What GLib lets in.
        if (message)
            EXPECT_EQ(faultOfMessage(message.get()), row.fault) << row.name;
        else
            EXPECT_STRNE(row.name, "serial") << "is let in, and would end the process";
    }
}
