#pragma once

#include "platform/connection/NSXPCInterface.h"

#include <memory>
#include <string>
#include <string_view>

extern "C" {
struct _GDBusMessage;
struct _GVariant;
}

namespace platform {

/// Answers what every object of D-Bus answers, and what a bus does (D-Bus Specification 0.41, "Standard Interfaces" and
/// "Message Bus Messages"), since bus tools ask for it. GLib could, but looks at calls after the end of their
/// connection, and then ends the process. Any thread.
class StandardCalls final {
public:
    enum class Role {
        Peer,
        /// Answers as a bus would whose only other client is the exported object.
        Bus,
    };

    /// @param exported  null for a side that exports nothing
    StandardCalls(std::shared_ptr<const NSXPCInterface> exported, Role role);

    /// A new message: the reply, or the error for what nobody knows.
    ///
    /// @param call  a method call with path and member
    _GDBusMessage* answer(_GDBusMessage* call) const;

private:
    struct Call;
    struct Method;

    _GVariant* machineID(const Call& call) const;
    _GVariant* introspection(const Call& call) const;
    _GVariant* noProperty(const Call& call) const;
    _GVariant* allProperties(const Call& call) const;
    _GVariant* names(const Call& call) const;
    _GVariant* hello(const Call& call) const;

    bool hasObject(std::string_view path) const;
    bool hasInterface(std::string_view path, std::string_view name) const;

    const std::shared_ptr<const NSXPCInterface> exported_;
    const Role role_;
    const std::string uniqueName_;
};

} // namespace platform
