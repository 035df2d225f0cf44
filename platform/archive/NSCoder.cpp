#include "platform/archive/NSCoder.h"

#include "platform/foundation/LocalizedText.h"

#include <cmath>
#include <limits>
#include <type_traits>
#include <utility>

namespace platform {

int64_t longLongValue(const NSNumber& number)
{
    using Limits = std::numeric_limits<int64_t>;
    if (const auto* value = std::get_if<bool>(&number))
        return *value;
    if (const auto* value = std::get_if<int64_t>(&number))
        return *value;
    if (const auto* value = std::get_if<uint64_t>(&number))
        return *value > uint64_t{Limits::max()} ? Limits::max() : static_cast<int64_t>(*value);
    const double value = std::get<double>(number);
    if (std::isnan(value))
        return 0;
    // 2^63 is the first double beyond; the cast of what is smaller truncates.
    constexpr double kBeyond = 9223372036854775808.0;
    if (value >= kBeyond)
        return Limits::max();
    if (value < -kBeyond)
        return Limits::min();
    return static_cast<int64_t>(value);
}

bool boolValue(const NSNumber& number)
{
    return std::visit([](auto value) { return value != 0; }, number);
}

CodedClass classOf(const CodedValue& value)
{
    return static_cast<CodedClass>(value.index());
}

// classOf relies on it.
static_assert(std::is_same_v<std::variant_alternative_t<size_t(CodedClass::Data), CodedValue>, NSData>);
static_assert(std::is_same_v<std::variant_alternative_t<size_t(CodedClass::String), CodedValue>, std::string>);
static_assert(std::is_same_v<std::variant_alternative_t<size_t(CodedClass::Number), CodedValue>, NSNumber>);
static_assert(std::is_same_v<std::variant_alternative_t<size_t(CodedClass::Date), CodedValue>, NSDate>);
static_assert(std::is_same_v<std::variant_alternative_t<size_t(CodedClass::Color), CodedValue>, NSColor>);

std::string_view nameOf(CodedClass codedClass)
{
    switch (codedClass) {
    case CodedClass::Data:
        return "data";
    case CodedClass::String:
        return "string";
    case CodedClass::Number:
        return "number";
    case CodedClass::Date:
        return "date";
    case CodedClass::Color:
        return "colour";
    }
    return "";
}

void NSCoder::encodeObject(std::optional<CodedValue> value, std::string_view key)
{
    if (value)
        values_.insert_or_assign(std::string(key), std::move(*value));
}

std::optional<CodedValue> NSCoder::decodeObjectOfClass(CodedClass codedClass, std::string_view key,
                                                       NSError* error) const
{
    const auto entry = values_.find(key);
    if (entry == values_.end())
        return std::nullopt;
    if (const CodedClass found = classOf(entry->second); found != codedClass) {
        fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError,
             localized("The value for key \"{}\" is of class {}, not {}", {key, nameOf(found), nameOf(codedClass)}));
        return std::nullopt;
    }
    return entry->second;
}

} // namespace platform
