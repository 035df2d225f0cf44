#pragma once

#include "platform/connection/NSXPCInterface.h"
#include "platform/connection/NSXPCValue.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

extern "C" {
struct _GVariant;
}

namespace platform {

/// Whether one of the kinds of NSXPCValue stands for the signature.
bool isValueSignature(std::string_view signature);

/// The body of a message: a tuple with a floating reference. Text that is not UTF-8 is mended, since the wire allows no
/// other. Null if the values do not match the arguments in number and kind.
_GVariant* encodeValues(const NSXPCValues& values, const std::vector<NSXPCInterface::Argument>& arguments);

/// Reads the body of a message under the restrictions of the interface.
///
/// @param body   a tuple, or null for none
/// @param error  out: one sentence that names the argument, the position and the reason
[[nodiscard]] std::optional<NSXPCValues> decodeValues(_GVariant* body, const NSXPCInterface& interface,
                                                      const std::string& selector, bool ofReply, NSError* error);

} // namespace platform
