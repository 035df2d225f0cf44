#pragma once

#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

/// A reference from one object of a keyed archive to another.
struct PropertyListUID {
    uint64_t value = 0;

    friend bool operator==(const PropertyListUID&, const PropertyListUID&) = default;
};

/// One value of a property list with all that it holds.
class PropertyList final {
public:
    using Array = std::vector<PropertyList>;
    using Dictionary = std::map<std::string, PropertyList, std::less<>>;
    /// Integers are `int64_t`; `uint64_t` only where that is too small.
    using Value =
        std::variant<bool, int64_t, uint64_t, double, std::string, NSData, NSDate, PropertyListUID, Array, Dictionary>;

    /// Spelled out, as asking the variant would lead back to this class.
    template <typename T>
    static constexpr bool kIsValueKind =
        std::is_same_v<T, bool> || std::is_same_v<T, int64_t> || std::is_same_v<T, uint64_t> ||
        std::is_same_v<T, double> || std::is_same_v<T, std::string> || std::is_same_v<T, NSData> ||
        std::is_same_v<T, NSDate> || std::is_same_v<T, PropertyListUID> || std::is_same_v<T, Array> ||
        std::is_same_v<T, Dictionary>;

    PropertyList() = default;
    template <typename T>
    requires kIsValueKind<std::remove_cvref_t<T>> PropertyList(T&& value)
        : value_(std::in_place_type<std::remove_cvref_t<T>>, std::forward<T>(value))
    {}

    const Value& value() const { return value_; }

    /// The value if it is of that kind, else null.
    template <typename T>
    const T* as() const
    {
        return std::get_if<T>(&value_);
    }

    /// The entry of a dictionary; null where there is none, and for what is no dictionary.
    const PropertyList* objectForKey(std::string_view key) const;
    /// That entry if it is of that kind, else null.
    template <typename T>
    const T* objectForKey(std::string_view key) const
    {
        const PropertyList* object = objectForKey(key);
        return object ? object->as<T>() : nullptr;
    }

private:
    Value value_;
};

/// Reads a property list in the binary or the XML format. The data may come from anyone: sizes, depth and the number
/// of values are limited, and what is damaged is refused.
/// @return nothing for what is no property list (error 259)
[[nodiscard]] std::optional<PropertyList> propertyListWithData(const NSData& data, NSError* error = nullptr);

/// The binary format.
/// @return nothing if a text is not UTF-8 or holds a zero byte, or a date is more than 68 years from 2001 (error 512)
[[nodiscard]] std::optional<NSData> dataWithPropertyList(const PropertyList& propertyList, NSError* error = nullptr);

} // namespace platform
