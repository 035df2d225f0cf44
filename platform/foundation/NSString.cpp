#include "platform/foundation/NSString.h"

#include <charconv>
#include <clocale>
#include <cstdlib>
#include <limits>

namespace platform {

namespace {

/// Bytes of the well-formed UTF-8 sequence that `text` begins with; 0 if there is none. Overlong forms, surrogates and
/// what lies above U+10FFFF are not well-formed.
size_t sequenceLength(std::string_view text)
{
    const auto byteAt = [text](size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned lead = byteAt(0);
    if (lead < 0x80)
        return 1;
    if (lead < 0xC2 || lead > 0xF4)
        return 0;
    const size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (text.size() < length)
        return 0;
    unsigned low = 0x80;
    unsigned high = 0xBF;
    if (lead == 0xE0)
        low = 0xA0;
    else if (lead == 0xED)
        high = 0x9F;
    else if (lead == 0xF0)
        low = 0x90;
    else if (lead == 0xF4)
        high = 0x8F;
    if (byteAt(1) < low || byteAt(1) > high)
        return 0;
    for (size_t i = 2; i < length; ++i) {
        if ((byteAt(i) & 0xC0) != 0x80)
            return 0;
    }
    return length;
}

} // namespace

double doubleValue(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t\n\v\f\r");
    if (begin == std::string_view::npos)
        return 0;
    text.remove_prefix(begin);
    // strtod would also read hex, "inf" and "nan": it sees only the characters of plain numbers.
    const std::string number(text.substr(0, text.find_first_not_of("0123456789+-.eE")));
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    return strtod_l(number.c_str(), nullptr, cLocale);
}

int64_t integerValue(std::string_view text)
{
    const size_t begin = text.find_first_not_of(" \t\n\v\f\r");
    if (begin == std::string_view::npos)
        return 0;
    text.remove_prefix(begin);
    const bool isNegative = text.front() == '-';
    // The number is read with its own minus sign alone.
    if (text.front() == '+' && !text.substr(1).starts_with('-'))
        text.remove_prefix(1);
    int64_t value = 0;
    if (std::from_chars(text.data(), text.data() + text.size(), value).ec == std::errc::result_out_of_range)
        return isNegative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    return value;
}

size_t lengthInUTF16(std::string_view text)
{
    size_t length = 0;
    while (!text.empty()) {
        const size_t bytes = sequenceLength(text);
        length += bytes == 4 ? 2 : 1;
        text.remove_prefix(bytes ? bytes : 1);
    }
    return length;
}

bool isValidUTF8(std::string_view text)
{
    while (!text.empty()) {
        const size_t bytes = sequenceLength(text);
        if (!bytes)
            return false;
        text.remove_prefix(bytes);
    }
    return true;
}

std::string stringByReplacingInvalidUTF8(std::string_view text)
{
    std::string valid;
    valid.reserve(text.size());
    while (!text.empty()) {
        const size_t bytes = sequenceLength(text);
        valid += bytes ? text.substr(0, bytes) : std::string_view("\uFFFD");
        text.remove_prefix(bytes ? bytes : 1);
    }
    return valid;
}

std::string lowercaseASCII(std::string_view text)
{
    std::string lower(text);
    for (char& c : lower)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return lower;
}

std::string stringWithSixDecimals(double value)
{
    // Sign, digits of the largest double, point and six decimals.
    char text[std::numeric_limits<double>::max_exponent10 + 16];
    const auto result = std::to_chars(text, text + sizeof text, value, std::chars_format::fixed, 6);
    return {text, result.ptr};
}

} // namespace platform
