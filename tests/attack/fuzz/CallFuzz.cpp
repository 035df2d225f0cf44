#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/connection/MessageCoding.h"
#include "platform/connection/MessageFault.h"
#include "platform/connection/StandardCalls.h"
#include "platform/foundation/Handle.h"
#include "tests/attack/fuzz/Checked.h"

#include <string>
#include <string_view>

#include <gio/gio.h>

using namespace platform;

namespace {

using Message = Handle<GDBusMessage, g_object_unref>;

/// What GLib complains of was not looked at before it was handed over.
bool letComplaintsBeFatal()
{
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_FATAL_MASK));
    return true;
}

/// Whether GLib can write it: one that a peer could not read is none.
bool canBeSent(GDBusMessage* answer)
{
    g_dbus_message_set_serial(answer, 1);
    gsize length = 0;
    guchar* const written = g_dbus_message_to_blob(answer, &length, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr);
    g_free(written);
    return written && length > 0;
}

} // namespace

// Whole messages as a client sends them, up to what is answered by every object, or by the service's own operations.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    static const bool isFatal = letComplaintsBeFatal();
    static const auto interface = morStilloraVideoCreatorProtocol::interface();
    static const StandardCalls standard(interface, StandardCalls::Role::Bus);
    // GLib takes no constant bytes, and writes none.
    const Message message(g_dbus_message_new_from_blob(const_cast<guchar*>(bytes), length,
                                                       G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr));
    if (!isFatal || !message || !faultOfMessage(message.get()).empty())
        return 0;
    if (g_dbus_message_get_message_type(message.get()) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
        return 0;
    const Message answer(standard.answer(message.get()));
    mustHold(answer && canBeSent(answer.get()), "every call has an answer");
    const std::string member = g_dbus_message_get_member(message.get());
    if (interface->operation(member)) {
        NSError error;
        const bool isTaken =
            decodeValues(g_dbus_message_get_body(message.get()), *interface, member, false, &error).has_value();
        mustHold(isTaken == error.localizedDescription.empty(), "a refusal has a reason");
    }
    return 0;
}
