#include "platform/decoders/EXIF.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <string_view>

namespace platform {

namespace {

constexpr uint16_t kTagOrientation = 0x0112;
constexpr uint16_t kTagXResolution = 0x011A;
constexpr uint16_t kTagResolutionUnit = 0x0128;
constexpr uint16_t kTagExifFolder = 0x8769;
constexpr uint16_t kTagColorSpace = 0xA001;
constexpr uint16_t kTagInteroperabilityFolder = 0xA005;
constexpr uint16_t kTagInteroperabilityIndex = 0x0001;
constexpr uint16_t kTypeByte = 1;
constexpr uint16_t kTypeText = 2;
constexpr uint16_t kTypeShort = 3;
constexpr uint16_t kTypeLong = 4;
constexpr uint16_t kTypeRational = 5;
constexpr size_t kEntryLength = 12;

class Structure {
public:
    explicit Structure(std::span<const uint8_t> bytes) : bytes_(bytes)
    {
        const std::string_view mark(reinterpret_cast<const char*>(bytes.data()), std::min<size_t>(bytes.size(), 2));
        isLittleEndian_ = mark == "II";
        isValid_ = (isLittleEndian_ || mark == "MM") && number16(2) == 42;
    }

    bool isValid() const { return isValid_; }
    std::optional<uint16_t> number16(size_t offset) const
    {
        return isLittleEndian_ ? littleEndian16(bytes_, offset) : bigEndian16(bytes_, offset);
    }
    std::optional<uint32_t> number32(size_t offset) const
    {
        return isLittleEndian_ ? littleEndian32(bytes_, offset) : bigEndian32(bytes_, offset);
    }

    /// The entry of this tag in the folder at this place.
    std::optional<size_t> entry(std::optional<uint32_t> folder, uint16_t tag) const
    {
        const auto count = folder ? number16(*folder) : std::nullopt;
        for (size_t i = 0; i < count.value_or(0); ++i) {
            const size_t place = size_t{*folder} + 2 + i * kEntryLength;
            const auto found = number16(place);
            if (!found)
                break;
            if (*found == tag)
                return place;
        }
        return std::nullopt;
    }

    /// The whole number of this tag in the folder at this place.
    std::optional<uint32_t> integer(std::optional<uint32_t> folder, uint16_t tag) const
    {
        const auto found = entry(folder, tag);
        return found ? integer(*found) : std::nullopt;
    }

    /// Whether the entry is this text of three letters, which stands in the entry itself.
    bool isText(size_t entry, std::string_view text) const
    {
        return number16(entry + 2) == kTypeText && number32(entry + 4) == 4u && entry + 12 <= bytes_.size() &&
               std::string_view(reinterpret_cast<const char*>(bytes_.data()) + entry + 8, 3) == text;
    }

    /// The entry's value where it is one whole number.
    std::optional<uint32_t> integer(size_t entry) const
    {
        if (number32(entry + 4) != 1u)
            return std::nullopt;
        switch (number16(entry + 2).value_or(0)) {
        case kTypeByte:
            return entry + 8 < bytes_.size() ? std::optional<uint32_t>(bytes_[entry + 8]) : std::nullopt;
        case kTypeShort:
            return number16(entry + 8);
        case kTypeLong:
            return number32(entry + 8);
        default:
            return std::nullopt;
        }
    }

    std::optional<double> rational(size_t entry) const
    {
        if (number16(entry + 2) != kTypeRational)
            return std::nullopt;
        const auto offset = number32(entry + 8);
        if (!offset)
            return std::nullopt;
        const auto above = number32(*offset);
        const auto below = number32(size_t{*offset} + 4);
        if (!above || !below || *below == 0)
            return std::nullopt;
        return static_cast<double>(*above) / *below;
    }

private:
    const std::span<const uint8_t> bytes_;
    bool isLittleEndian_ = false;
    bool isValid_ = false;
};

/// As cameras write it, whose colour spaces are sRGB (1) and others.
bool saysAdobeRGB(const Structure& structure, uint32_t firstFolder)
{
    constexpr uint32_t kSRGB = 1;
    const auto folder = structure.integer(firstFolder, kTagExifFolder);
    const auto space = structure.integer(folder, kTagColorSpace);
    const auto interoperability = structure.integer(folder, kTagInteroperabilityFolder);
    const auto index = structure.entry(interoperability, kTagInteroperabilityIndex);
    return space && *space != kSRGB && index && structure.isText(*index, "R03");
}

} // namespace

EXIF parseEXIF(std::span<const uint8_t> bytes)
{
    constexpr std::string_view kPrefix("Exif\0\0", 6);
    if (bytes.size() >= kPrefix.size() &&
        std::ranges::equal(kPrefix, bytes.first(kPrefix.size()), {}, [](char c) { return static_cast<uint8_t>(c); }))
        bytes = bytes.subspan(kPrefix.size());

    EXIF exif;
    const Structure structure(bytes);
    if (!structure.isValid())
        return exif;
    const auto folder = structure.number32(4);
    const auto count = folder ? structure.number16(*folder) : std::nullopt;
    if (!count)
        return exif;

    std::optional<double> resolution;
    uint32_t unit = 2;
    for (size_t i = 0; i < *count; ++i) {
        const size_t entry = size_t{*folder} + 2 + i * kEntryLength;
        const auto tag = structure.number16(entry);
        if (!tag)
            break;
        if (*tag == kTagOrientation) {
            const auto value = structure.integer(entry);
            if (value && *value >= 1 && *value <= 8)
                exif.orientation = static_cast<int>(*value);
        } else if (*tag == kTagXResolution) {
            resolution = structure.rational(entry);
        } else if (*tag == kTagResolutionUnit) {
            unit = structure.integer(entry).value_or(unit);
        }
    }
    exif.isAdobeRGB = saysAdobeRGB(structure, *folder);
    constexpr double kCentimetresPerInch = 2.54;
    if (resolution && *resolution > 0 && (unit == 2 || unit == 3))
        exif.dpi = unit == 2 ? *resolution : *resolution * kCentimetresPerInch;
    return exif;
}

} // namespace platform
