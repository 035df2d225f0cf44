#include "platform/foundation/NSGeometry.h"

#include <charconv>
#include <clocale>
#include <cstdlib>

namespace platform {

namespace {

void appendNumber(std::string& text, double value)
{
    char number[40];
    const auto result = std::to_chars(number, number + sizeof number, value, std::chars_format::general, 17);
    text.append(number, result.ptr);
}

/// Skips to the next digit or "-", reads the number there and moves `text` behind it.
double scanNumber(std::string_view& text)
{
    const size_t begin = text.find_first_of("0123456789-");
    if (begin == std::string_view::npos) {
        text = {};
        return 0;
    }
    text.remove_prefix(begin);
    const std::string number(text.substr(0, text.find_first_not_of("0123456789+-.eE")));
    static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    const double value = strtod_l(number.c_str(), &end, cLocale);
    // A "-" that starts no number stands for a zero and is used up.
    const size_t used = static_cast<size_t>(end - number.c_str());
    text.remove_prefix(used ? used : 1);
    return value;
}

} // namespace

std::string NSStringFromSize(CGSize size)
{
    std::string text = "{";
    appendNumber(text, size.width);
    text += ", ";
    appendNumber(text, size.height);
    text += "}";
    return text;
}

CGSize NSSizeFromString(std::string_view text)
{
    CGSize size;
    size.width = scanNumber(text);
    size.height = scanNumber(text);
    return size;
}

} // namespace platform
