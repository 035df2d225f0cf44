#pragma once

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace platform {

/// A number object; a boolean is a kind of its own, since archives tell them apart.
using NSNumber = std::variant<bool, int64_t, uint64_t, double>;

/// Truncated toward zero; out of range is the nearest limit, not-a-number is 0.
int64_t longLongValue(const NSNumber& number);
/// Not zero.
bool boolValue(const NSNumber& number);

/// One value of a class that items are made of.
using CodedValue = std::variant<NSData, std::string, NSNumber, NSDate, NSColor>;

/// The class of a coded value.
enum class CodedClass { Data, String, Number, Date, Color };
CodedClass classOf(const CodedValue& value);
/// "data", "string", "number", "date" or "colour", for messages.
std::string_view nameOf(CodedClass codedClass);

/// The keyed values of one item on its way across the connection. A value that is not there is not written.
class NSCoder final {
public:
    // One operation for both: with an overload for the plain value a text or number would fit either.
    void encodeObject(std::optional<CodedValue> value, std::string_view key);

    /// The value of a key. Absent is nothing without an error; a value of another class is nothing, and `error` tells
    /// (kNSCoderReadCorruptError, naming the key): the whole message is then refused.
    [[nodiscard]] std::optional<CodedValue> decodeObjectOfClass(CodedClass codedClass, std::string_view key,
                                                                NSError* error) const;

    const std::map<std::string, CodedValue, std::less<>>& values() const { return values_; }

private:
    std::map<std::string, CodedValue, std::less<>> values_;
};

/// What can cross the connection as an object of a class.
class NSSecureCoding {
public:
    virtual ~NSSecureCoding() = default;
    virtual std::string className() const = 0;
    virtual void encodeWithCoder(NSCoder& coder) const = 0;
};

} // namespace platform
