#pragma once

#include "platform/archive/NSCoder.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/propertylists/NSPropertyListSerialization.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace platform {

class ArchivedValue;

/// A dictionary of an archive. The entries keep their order; keys are not looked for twice, so give each once.
struct NSDictionary {
    std::vector<std::pair<std::string, ArchivedValue>> entries;
    /// Archives tell a mutable dictionary from one that is not; readers take either.
    bool isMutable = false;

    /// The value of a key; null where there is none.
    const ArchivedValue* objectForKey(std::string_view key) const;
    void setObjectForKey(ArchivedValue value, std::string key);
};

/// An object of a class that is not known here, or a colour that has no RGB components.
struct UnknownObject {
    std::string className;
};

/// One object of an archive with all that it holds. What an archive told about a colour or an unknown object beyond the
/// value is kept, and written back as it was read.
class ArchivedValue final {
public:
    using Value = std::variant<NSData, std::string, NSNumber, NSDate, NSColor, NSDictionary, std::vector<ArchivedValue>,
                               UnknownObject>;

    template <typename T>
    requires(!std::is_same_v<std::remove_cvref_t<T>, ArchivedValue>) ArchivedValue(T&& value)
        : value_(std::forward<T>(value))
    {}
    /// @param stored  the object as an archive has it: the second of these, after nil, which its references lead to
    ArchivedValue(Value value, std::shared_ptr<const PropertyList::Array> stored)
        : value_(std::move(value)), stored_(std::move(stored))
    {}

    const Value& value() const { return value_; }
    /// Null for what was not read from an archive, and where there is nothing beyond the value.
    const PropertyList::Array* stored() const { return stored_.get(); }
    /// The value if it is of that class, else null.
    template <typename T>
    const T* as() const
    {
        return std::get_if<T>(&value_);
    }

private:
    Value value_;
    std::shared_ptr<const PropertyList::Array> stored_;
};

/// Writes keyed archives, as binary property lists.
class NSKeyedArchiver final {
public:
    /// @return nothing if a text is not UTF-8 or holds a zero byte, or an object of an unknown class is in it that was
    ///         not read from an archive (error 512)
    [[nodiscard]] static std::optional<NSData> archivedDataWithRootObject(const ArchivedValue& root,
                                                                          NSError* error = nullptr);
};

/// Reads keyed archives, in the binary or the XML format. The data may come from anyone: depth and the number of
/// objects are limited, and references that lead in a circle are refused.
class NSKeyedUnarchiver final {
public:
    /// Entries of a dictionary that hold nil are left out.
    ///
    /// @return nothing for what is no archive, or a damaged one (kNSCoderReadCorruptError), or where the root is nil
    [[nodiscard]] static std::optional<ArchivedValue> unarchiveObjectWithData(const NSData& data,
                                                                              NSError* error = nullptr);
};

} // namespace platform
