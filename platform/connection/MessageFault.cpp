#include "platform/connection/MessageFault.h"

#include <gio/gio.h>

#include <array>
#include <utility>

namespace platform {

std::string faultOfMessage(GDBusMessage* message)
{
    static constexpr std::array<std::pair<GDBusMessageHeaderField, const char*>, 9> kFields{{
        {G_DBUS_MESSAGE_HEADER_FIELD_PATH, "o"},
        {G_DBUS_MESSAGE_HEADER_FIELD_INTERFACE, "s"},
        {G_DBUS_MESSAGE_HEADER_FIELD_MEMBER, "s"},
        {G_DBUS_MESSAGE_HEADER_FIELD_ERROR_NAME, "s"},
        {G_DBUS_MESSAGE_HEADER_FIELD_REPLY_SERIAL, "u"},
        {G_DBUS_MESSAGE_HEADER_FIELD_DESTINATION, "s"},
        {G_DBUS_MESSAGE_HEADER_FIELD_SENDER, "s"},
        {G_DBUS_MESSAGE_HEADER_FIELD_SIGNATURE, "g"},
        {G_DBUS_MESSAGE_HEADER_FIELD_NUM_UNIX_FDS, "u"},
    }};
    if (g_dbus_message_get_serial(message) == 0)
        return "its serial is 0";
    for (const auto& [field, type] : kFields)
        if (GVariant* value = g_dbus_message_get_header(message, field);
            value && !g_variant_is_of_type(value, G_VARIANT_TYPE(type)))
            return "header field " + std::to_string(field) + " is of the type " + g_variant_get_type_string(value);
    const auto has = [message](GDBusMessageHeaderField field) {
        return g_dbus_message_get_header(message, field) != nullptr;
    };
    if (const char* name = g_dbus_message_get_interface(message); name && !g_dbus_is_interface_name(name))
        return "its interface has no valid name";
    if (const char* name = g_dbus_message_get_member(message); name && !g_dbus_is_member_name(name))
        return "its member has no valid name";
    // An answer goes to the sender.
    if (const char* name = g_dbus_message_get_sender(message); name && !g_dbus_is_name(name))
        return "its sender has no valid name";
    if (const char* name = g_dbus_message_get_destination(message); name && !g_dbus_is_name(name))
        return "its destination has no valid name";
    switch (g_dbus_message_get_message_type(message)) {
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        return has(G_DBUS_MESSAGE_HEADER_FIELD_PATH) && has(G_DBUS_MESSAGE_HEADER_FIELD_MEMBER)
                   ? ""
                   : "a call without path or member";
    case G_DBUS_MESSAGE_TYPE_METHOD_RETURN:
        return g_dbus_message_get_reply_serial(message) != 0 ? "" : "an answer to nothing";
    case G_DBUS_MESSAGE_TYPE_ERROR:
        return g_dbus_message_get_reply_serial(message) != 0 && has(G_DBUS_MESSAGE_HEADER_FIELD_ERROR_NAME)
                   ? ""
                   : "an error without name or of nothing";
    default:
        return "";
    }
}

} // namespace platform
