#pragma once

#include "platform/propertylists/NSPropertyListSerialization.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// Counts down what the values of a property list may still take of memory, all together: a few bytes could otherwise
/// stand for many values.
class PropertyListBudget final {
public:
    /// Deeper nesting is refused.
    static constexpr int kMaximumDepth = 64;

    bool take(uint64_t bytes)
    {
        if (bytes > left_)
            return false;
        left_ -= bytes;
        return true;
    }
    bool takeValue() { return take(sizeof(PropertyList) + 64); }

private:
    uint64_t left_ = uint64_t{64} << 20;
};

/// Reads the XML format, of anyone. A dictionary of the one key "CF$UID" is a reference.
/// @return nothing for what is none, or is damaged
std::optional<PropertyList> readPropertyListXML(std::string_view text);

/// Adds a character in UTF-8.
void appendUTF8(std::string& text, uint32_t character);

} // namespace platform
