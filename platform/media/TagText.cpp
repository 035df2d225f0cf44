#include "platform/media/TagText.h"

#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform {
namespace {

/// Longer texts are no titles.
constexpr size_t kMaxTextBytes = 64 * 1024;

/// The upper half of the Macintosh's Roman characters.
constexpr std::array<char16_t, 128> kMacRoman = {
    0x00C4, 0x00C5, 0x00C7, 0x00C9, 0x00D1, 0x00D6, 0x00DC, 0x00E1, 0x00E0, 0x00E2, 0x00E4, 0x00E3, 0x00E5,
    0x00E7, 0x00E9, 0x00E8, 0x00EA, 0x00EB, 0x00ED, 0x00EC, 0x00EE, 0x00EF, 0x00F1, 0x00F3, 0x00F2, 0x00F4,
    0x00F6, 0x00F5, 0x00FA, 0x00F9, 0x00FB, 0x00FC, 0x2020, 0x00B0, 0x00A2, 0x00A3, 0x00A7, 0x2022, 0x00B6,
    0x00DF, 0x00AE, 0x00A9, 0x2122, 0x00B4, 0x00A8, 0x2260, 0x00C6, 0x00D8, 0x221E, 0x00B1, 0x2264, 0x2265,
    0x00A5, 0x00B5, 0x2202, 0x2211, 0x220F, 0x03C0, 0x222B, 0x00AA, 0x00BA, 0x03A9, 0x00E6, 0x00F8, 0x00BF,
    0x00A1, 0x00AC, 0x221A, 0x0192, 0x2248, 0x2206, 0x00AB, 0x00BB, 0x2026, 0x00A0, 0x00C0, 0x00C3, 0x00D5,
    0x0152, 0x0153, 0x2013, 0x2014, 0x201C, 0x201D, 0x2018, 0x2019, 0x00F7, 0x25CA, 0x00FF, 0x0178, 0x2044,
    0x20AC, 0x2039, 0x203A, 0xFB01, 0xFB02, 0x2021, 0x00B7, 0x201A, 0x201E, 0x2030, 0x00C2, 0x00CA, 0x00C1,
    0x00CB, 0x00C8, 0x00CD, 0x00CE, 0x00CF, 0x00CC, 0x00D3, 0x00D4, 0xF8FF, 0x00D2, 0x00DA, 0x00DB, 0x00D9,
    0x0131, 0x02C6, 0x02DC, 0x00AF, 0x02D8, 0x02D9, 0x02DA, 0x00B8, 0x02DD, 0x02DB, 0x02C7,
};

constexpr char32_t kReplacement = 0xFFFD;

void append(std::string& text, char32_t character)
{
    const auto put = [&](char32_t bits) { text.push_back(static_cast<char>(bits)); };
    if (character < 0x80) {
        put(character);
    } else if (character < 0x800) {
        put(0xC0 | character >> 6);
        put(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        put(0xE0 | character >> 12);
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    } else {
        put(0xF0 | character >> 18);
        put(0x80 | (character >> 12 & 0x3F));
        put(0x80 | (character >> 6 & 0x3F));
        put(0x80 | (character & 0x3F));
    }
}

enum class ByteOrder { Big, Little };

std::string textFromUTF16(std::span<const uint8_t> bytes, ByteOrder order)
{
    const size_t high = order == ByteOrder::Big ? 0 : 1;
    const auto unitAt = [&](size_t i) -> char32_t { return char32_t{bytes[i + high]} << 8 | bytes[i + 1 - high]; };
    std::string text;
    for (size_t i = 0; i + 1 < bytes.size() && text.size() < kMaxTextBytes; i += 2) {
        const char32_t unit = unitAt(i);
        if (unit == 0)
            break;
        if (unit < 0xD800 || unit > 0xDFFF) {
            append(text, unit);
            continue;
        }
        const char32_t next = unit < 0xDC00 && i + 3 < bytes.size() ? unitAt(i + 2) : 0;
        if (next < 0xDC00 || next > 0xDFFF) {
            append(text, kReplacement);
            continue;
        }
        append(text, 0x10000 + ((unit - 0xD800) << 10 | (next - 0xDC00)));
        i += 2;
    }
    return text;
}

/// Letters of most scripts, blanks and digits of all share their upper byte with their neighbours, and for European
/// texts it is zero.
ByteOrder likelyByteOrder(std::span<const uint8_t> bytes)
{
    size_t zerosFirst = 0;
    size_t zerosSecond = 0;
    size_t repeatsFirst = 0;
    size_t repeatsSecond = 0;
    for (size_t i = 0; i + 1 < std::min(bytes.size(), kMaxTextBytes); i += 2) {
        if (bytes[i] == 0 && bytes[i + 1] == 0)
            break;
        zerosFirst += bytes[i] == 0 ? 1 : 0;
        zerosSecond += bytes[i + 1] == 0 ? 1 : 0;
        if (i >= 2) {
            repeatsFirst += bytes[i] == bytes[i - 2] ? 1 : 0;
            repeatsSecond += bytes[i + 1] == bytes[i - 1] ? 1 : 0;
        }
    }
    if (zerosFirst != zerosSecond)
        return zerosFirst > zerosSecond ? ByteOrder::Big : ByteOrder::Little;
    // Programs that forget the mark are mostly those of machines whose own order is this one.
    return repeatsFirst > repeatsSecond ? ByteOrder::Big : ByteOrder::Little;
}

std::span<const uint8_t> upToNul(std::span<const uint8_t> bytes)
{
    bytes = bytes.first(std::min(bytes.size(), kMaxTextBytes));
    const auto nul = std::find(bytes.begin(), bytes.end(), 0);
    return bytes.first(static_cast<size_t>(nul - bytes.begin()));
}

std::string_view charactersOf(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

std::string textFromLatin1(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : upToNul(bytes))
        append(text, byte);
    return text;
}

std::string textFromUTF8(std::span<const uint8_t> bytes)
{
    std::string_view text = charactersOf(upToNul(bytes));
    // A mark is of no use here, but some write one.
    if (text.starts_with("\xEF\xBB\xBF"))
        text.remove_prefix(3);
    return stringByReplacingInvalidUTF8(text);
}

std::string textFromUTF16BigEndian(std::span<const uint8_t> bytes)
{
    if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF)
        bytes = bytes.subspan(2);
    return textFromUTF16(bytes, ByteOrder::Big);
}

std::string textFromMarkedUTF16(std::span<const uint8_t> bytes)
{
    if (bytes.size() >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF)
        return textFromUTF16(bytes.subspan(2), ByteOrder::Big);
    if (bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE)
        return textFromUTF16(bytes.subspan(2), ByteOrder::Little);
    return textFromUTF16(bytes, likelyByteOrder(bytes));
}

std::string textFromMacRoman(std::span<const uint8_t> bytes)
{
    std::string text;
    for (const uint8_t byte : upToNul(bytes))
        append(text, byte < 0x80 ? char32_t{byte} : char32_t{kMacRoman[byte - 0x80U]});
    return text;
}

std::string textFromUTF8Or(std::string (*fallback)(std::span<const uint8_t>), std::span<const uint8_t> bytes)
{
    return isValidUTF8(charactersOf(upToNul(bytes))) ? textFromUTF8(bytes) : fallback(bytes);
}

} // namespace platform
