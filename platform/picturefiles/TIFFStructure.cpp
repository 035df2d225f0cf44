#include "platform/picturefiles/TIFFStructure.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace platform {

namespace {

constexpr uint16_t kTypeByte = 1;
constexpr uint16_t kTypeText = 2;
constexpr uint16_t kTypeLong = 4;
constexpr uint16_t kTypeRational = 5;
constexpr uint16_t kTypeUTF8 = 129;

} // namespace

TIFFStructure::TIFFStructure(const ByteSource& source) : source_(source)
{
    std::array<uint8_t, 2> mark{};
    (void)source.read(0, mark);
    isLittleEndian_ = mark == std::array<uint8_t, 2>{'I', 'I'};
    isValid_ = (isLittleEndian_ || mark == std::array<uint8_t, 2>{'M', 'M'}) && number16(2) == 42;
}

std::optional<uint32_t> TIFFStructure::firstFolder() const
{
    return isValid_ ? number32(4) : std::nullopt;
}

std::optional<size_t> TIFFStructure::entry(std::optional<uint32_t> folder, uint16_t tag) const
{
    std::optional<size_t> first;
    if (folder)
        forEachEntry(*folder, [&](uint16_t found, size_t entry) {
            if (found == tag && !first)
                first = entry;
        });
    return first;
}

std::optional<uint32_t> TIFFStructure::integer(std::optional<uint32_t> folder, uint16_t tag) const
{
    const auto found = entry(folder, tag);
    return found ? integer(*found) : std::nullopt;
}

std::string TIFFStructure::text(std::optional<uint32_t> folder, uint16_t tag) const
{
    // No camera has a longer name.
    constexpr uint32_t kMostBytes = 256;
    const auto found = entry(folder, tag);
    if (!found || (type(*found) != kTypeText && type(*found) != kTypeUTF8))
        return {};
    // Up to four bytes stand in the entry itself.
    const auto place = count(*found) > 4 ? number32(*found + 8) : static_cast<uint32_t>(*found + 8);
    std::vector<uint8_t> bytes(std::min(count(*found), kMostBytes));
    if (!place || !read(*place, bytes))
        return {};
    std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
    constexpr std::string_view kSpaces = " \t\r\n";
    text.erase(text.find_last_not_of(kSpaces) + 1);
    return text.substr(std::min(text.size(), text.find_first_not_of(kSpaces)));
}

std::optional<double> TIFFStructure::degrees(std::optional<uint32_t> folder, uint16_t tag) const
{
    const auto found = entry(folder, tag);
    const auto parts = found ? rationals(*found, 3) : std::vector<double>();
    return parts.empty() ? std::nullopt : std::optional(parts[0] + parts[1] / 60 + parts[2] / 3600);
}

std::optional<uint32_t> TIFFStructure::integer(size_t entry) const
{
    if (number32(entry + 4) != 1u)
        return std::nullopt;
    switch (type(entry)) {
    case kTypeByte: {
        std::array<uint8_t, 1> byte{};
        return read(entry + 8, byte) ? std::optional<uint32_t>(byte[0]) : std::nullopt;
    }
    case kTypeShort:
        return number16(entry + 8);
    case kTypeLong:
        return number32(entry + 8);
    default:
        return std::nullopt;
    }
}

std::optional<double> TIFFStructure::rational(size_t entry) const
{
    const auto place = type(entry) == kTypeRational ? number32(entry + 8) : std::nullopt;
    return place ? fraction(*place) : std::nullopt;
}

std::vector<double> TIFFStructure::rationals(size_t entry, size_t count) const
{
    const auto place = number32(entry + 8);
    if (!place || type(entry) != kTypeRational || number32(entry + 4) != count)
        return {};
    std::vector<double> values;
    for (size_t i = 0; i < count; ++i) {
        const auto value = fraction(size_t{*place} + 8 * i);
        if (!value)
            return {};
        values.push_back(*value);
    }
    return values;
}

std::optional<uint16_t> TIFFStructure::number16(size_t offset) const
{
    std::array<uint8_t, 2> bytes{};
    if (!read(offset, bytes))
        return std::nullopt;
    return isLittleEndian_ ? littleEndian16(bytes, 0) : bigEndian16(bytes, 0);
}

std::optional<uint32_t> TIFFStructure::number32(size_t offset) const
{
    std::array<uint8_t, 4> bytes{};
    if (!read(offset, bytes))
        return std::nullopt;
    return isLittleEndian_ ? littleEndian32(bytes, 0) : bigEndian32(bytes, 0);
}

std::optional<double> TIFFStructure::fraction(size_t offset) const
{
    const auto above = number32(offset);
    const auto below = number32(offset + 4);
    if (!above || !below || *below == 0)
        return std::nullopt;
    return static_cast<double>(*above) / *below;
}

} // namespace platform
