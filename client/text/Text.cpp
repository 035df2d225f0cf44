#include "client/text/Text.h"

#include "client/text/LocalizedText.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cwchar>

#include <fmt/format.h>

namespace stillora {

namespace {

/// One character of UTF-8 text.
struct Character {
    char32_t value = 0;
    /// Bytes; 0 where the text is not UTF-8.
    size_t length = 0;
};

Character characterAt(std::string_view text, size_t position)
{
    const auto byte = [&](size_t offset) { return static_cast<unsigned char>(text[position + offset]); };
    const unsigned char lead = byte(0);
    if (lead < 0x80)
        return {lead, 1};
    const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC2 || lead > 0xF4 || position + length > text.size())
        return {};
    char32_t value = lead & (0xFFu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80)
            return {};
        value = value << 6 | (byte(i) & 0x3F);
    }
    const bool isOverlong = (length == 3 && value < 0x800) || (length == 4 && value < 0x10000);
    if (isOverlong || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return {};
    return {value, length};
}

/// For people, who write a comma in many languages; options and JSON keep the point.
std::string withLocalizedPoint(const std::string& number)
{
    const size_t point = number.find('.');
    return point == std::string::npos ? number : localized("{}.{}", number.substr(0, point), number.substr(point + 1));
}

int columnsOf(char32_t character)
{
    const int width = wcwidth(static_cast<wchar_t>(character));
    return width < 0 ? 1 : width;
}

} // namespace

std::string_view prefixOfBytes(std::string_view text, size_t maxBytes)
{
    if (text.size() <= maxBytes)
        return text;
    size_t end = maxBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return text.substr(0, end);
}

std::string printable(std::string_view text)
{
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        const bool isControl = character.value < 0x20 || (character.value >= 0x7F && character.value < 0xA0);
        if (character.length == 0)
            result += fmt::format("\\x{:02X}", static_cast<unsigned char>(text[i]));
        else
            result += isControl ? "?" : text.substr(i, character.length);
        i += std::max<size_t>(character.length, 1);
    }
    return result;
}

int displayWidth(std::string_view text)
{
    int width = 0;
    for (size_t i = 0; i < text.size();) {
        const Character character = characterAt(text, i);
        width += character.length == 0 ? 1 : columnsOf(character.value);
        i += std::max<size_t>(character.length, 1);
    }
    return width;
}

std::string cutToWidth(std::string_view text, int columns, std::string_view mark)
{
    if (columns <= 0)
        return {};
    if (displayWidth(text) <= columns)
        return std::string(text);
    const int markWidth = displayWidth(mark);
    const bool isMarked = markWidth < columns;
    const int room = isMarked ? columns - markWidth : columns;
    int width = 0;
    size_t end = 0;
    while (end < text.size()) {
        const Character character = characterAt(text, end);
        width += character.length == 0 ? 1 : columnsOf(character.value);
        if (width > room)
            break;
        end += std::max<size_t>(character.length, 1);
    }
    // No blank stands before the mark.
    while (isMarked && end > 0 && text[end - 1] == ' ')
        --end;
    return std::string(text.substr(0, end)) + std::string(isMarked ? mark : "");
}

std::string clockText(Seconds time)
{
    // Beyond a hundred hours an estimate means nothing.
    const auto whole = static_cast<int64_t>(std::ceil(std::clamp(time.count(), 0.0, 359999.0)));
    const int64_t hours = whole / 3600;
    const int64_t minutes = whole / 60 % 60;
    if (hours > 0)
        return fmt::format("{}:{:02}:{:02}", hours, minutes, whole % 60);
    return fmt::format("{}:{:02}", minutes, whole % 60);
}

std::string secondsText(Seconds time)
{
    const double seconds = time.count();
    if (seconds < 60) {
        // At most three decimals, without zeros at the end.
        std::string number = fmt::format("{:.3f}", seconds);
        number.erase(number.find_last_not_of('0') + 1);
        if (number.ends_with('.'))
            number.pop_back();
        return localized("{} s", withLocalizedPoint(number));
    }
    const auto whole = static_cast<int64_t>(std::llround(seconds));
    if (whole < 3600)
        return whole % 60 == 0 ? localized("{} min", whole / 60) : localized("{} min {} s", whole / 60, whole % 60);
    return whole / 60 % 60 == 0 ? localized("{} h", whole / 3600)
                                : localized("{} h {} min", whole / 3600, whole / 60 % 60);
}

std::string bytesText(double bytes)
{
    // "0 bytes" and "1 bytes", as the number says how exact it is.
    constexpr const char* kUnits[] = {translatable("{} bytes"), translatable("{} kB"), translatable("{} MB"),
                                      translatable("{} GB"), translatable("{} TB")};
    size_t unit = 0;
    while (bytes >= 1000 && unit + 1 < std::size(kUnits)) {
        bytes /= 1000;
        ++unit;
    }
    const std::string number =
        unit == 0 || bytes >= 100 ? fmt::format("{:.0f}", bytes) : withLocalizedPoint(fmt::format("{:.1f}", bytes));
    return localizedFormat(kUnits[unit], fmt::make_format_args(number));
}

} // namespace stillora
