#include "platform/decoders/EXIF.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

namespace {

constexpr uint16_t kTagMake = 0x010F;
constexpr uint16_t kTagModel = 0x0110;
constexpr uint16_t kTagOrientation = 0x0112;
constexpr uint16_t kTagXResolution = 0x011A;
constexpr uint16_t kTagResolutionUnit = 0x0128;
constexpr uint16_t kTagExifFolder = 0x8769;
constexpr uint16_t kTagPlaceFolder = 0x8825;
constexpr uint16_t kTagDateTimeOriginal = 0x9003;
constexpr uint16_t kTagOffsetTimeOriginal = 0x9011;
constexpr uint16_t kTagSubSecTimeOriginal = 0x9291;
constexpr uint16_t kTagLatitudeReference = 1;
constexpr uint16_t kTagLatitude = 2;
constexpr uint16_t kTagLongitudeReference = 3;
constexpr uint16_t kTagLongitude = 4;
constexpr uint16_t kTagColorSpace = 0xA001;
constexpr uint16_t kTagInteroperabilityFolder = 0xA005;
constexpr uint16_t kTagInteroperabilityIndex = 0x0001;
constexpr uint16_t kTypeByte = 1;
constexpr uint16_t kTypeText = 2;
constexpr uint16_t kTypeShort = 3;
constexpr uint16_t kTypeLong = 4;
constexpr uint16_t kTypeRational = 5;
constexpr uint16_t kTypeUTF8 = 129;
constexpr size_t kEntryLength = 12;

class Structure {
public:
    /// @param source  outlives this
    explicit Structure(const ByteSource& source) : source_(source)
    {
        std::array<uint8_t, 2> mark{};
        (void)source.read(0, mark);
        isLittleEndian_ = mark == std::array<uint8_t, 2>{'I', 'I'};
        isValid_ = (isLittleEndian_ || mark == std::array<uint8_t, 2>{'M', 'M'}) && number16(2) == 42;
    }

    bool isValid() const { return isValid_; }
    std::optional<uint16_t> number16(size_t offset) const
    {
        std::array<uint8_t, 2> bytes{};
        if (!read(offset, bytes))
            return std::nullopt;
        return isLittleEndian_ ? littleEndian16(bytes, 0) : bigEndian16(bytes, 0);
    }
    std::optional<uint32_t> number32(size_t offset) const
    {
        std::array<uint8_t, 4> bytes{};
        if (!read(offset, bytes))
            return std::nullopt;
        return isLittleEndian_ ? littleEndian32(bytes, 0) : bigEndian32(bytes, 0);
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

    /// The text of this tag in the folder at this place, up to its first zero and without spaces around it; empty where
    /// there is none.
    std::string text(std::optional<uint32_t> folder, uint16_t tag) const
    {
        // No camera has a longer name.
        constexpr uint32_t kMostBytes = 256;
        const auto found = entry(folder, tag);
        const uint16_t type = found ? number16(*found + 2).value_or(0) : 0;
        if (type != kTypeText && type != kTypeUTF8)
            return {};
        const uint32_t count = number32(*found + 4).value_or(0);
        // Up to four bytes stand in the entry itself.
        const auto place = count > 4 ? number32(*found + 8) : static_cast<uint32_t>(*found + 8);
        std::vector<uint8_t> bytes(std::min(count, kMostBytes));
        if (!place || !read(*place, bytes))
            return {};
        std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), 0));
        constexpr std::string_view kSpaces = " \t\r\n";
        text.erase(text.find_last_not_of(kSpaces) + 1);
        return text.substr(std::min(text.size(), text.find_first_not_of(kSpaces)));
    }

    /// The degrees, minutes and seconds of this tag in the folder at this place, as degrees.
    std::optional<double> degrees(std::optional<uint32_t> folder, uint16_t tag) const
    {
        constexpr uint32_t kParts = 3;
        const auto found = entry(folder, tag);
        if (!found || number16(*found + 2) != kTypeRational || number32(*found + 4) != kParts)
            return std::nullopt;
        const auto place = number32(*found + 8);
        double degrees = 0;
        double unit = 1;
        for (size_t i = 0; i < kParts; ++i, unit *= 60) {
            const auto part = place ? fraction(size_t{*place} + 8 * i) : std::nullopt;
            if (!part)
                return std::nullopt;
            degrees += *part / unit;
        }
        return degrees;
    }

    /// The entry's value where it is one whole number.
    std::optional<uint32_t> integer(size_t entry) const
    {
        if (number32(entry + 4) != 1u)
            return std::nullopt;
        switch (number16(entry + 2).value_or(0)) {
        case kTypeByte:
            return byte(entry + 8);
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
        return offset ? fraction(*offset) : std::nullopt;
    }

private:
    bool read(size_t offset, std::span<uint8_t> bytes) const
    {
        return source_.read(static_cast<int64_t>(offset), bytes);
    }

    std::optional<uint32_t> byte(size_t offset) const
    {
        std::array<uint8_t, 1> bytes{};
        return read(offset, bytes) ? std::optional<uint32_t>(bytes[0]) : std::nullopt;
    }

    std::optional<double> fraction(size_t offset) const
    {
        const auto above = number32(offset);
        const auto below = number32(offset + 4);
        if (!above || !below || *below == 0)
            return std::nullopt;
        return static_cast<double>(*above) / *below;
    }

    const ByteSource& source_;
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
    return space && *space != kSRGB && structure.text(interoperability, kTagInteroperabilityIndex) == "R03";
}

/// The whole number of so many digits that stands at this place of a text; nothing for anything else.
std::optional<int> digits(std::string_view text, size_t offset, size_t count)
{
    if (text.size() < offset + count)
        return std::nullopt;
    int number = 0;
    for (const char c : text.substr(offset, count)) {
        if (c < '0' || c > '9')
            return std::nullopt;
        number = number * 10 + (c - '0');
    }
    return number;
}

/// "2024:05:31 09:08:07"; nothing for what is no day or no time of day, such as the zeros and spaces of a camera whose
/// clock was never set. Some programs write hyphens and a T.
std::optional<std::chrono::local_seconds> parseClock(std::string_view text)
{
    using namespace std::chrono;
    const auto year = digits(text, 0, 4);
    const auto month = digits(text, 5, 2);
    const auto day = digits(text, 8, 2);
    const auto hour = digits(text, 11, 2);
    const auto minute = digits(text, 14, 2);
    const auto second = digits(text, 17, 2);
    if (!year || !month || !day || !hour || !minute || !second || *year == 0)
        return std::nullopt;
    const auto date = std::chrono::year(*year) / *month / *day;
    if (!date.ok() || *hour > 23 || *minute > 59 || *second > 60)
        return std::nullopt;
    return local_days(date) + hours(*hour) + minutes(*minute) + seconds(*second);
}

/// The digits behind the point of a second.
std::chrono::microseconds parseSubSeconds(std::string_view text)
{
    std::chrono::microseconds fraction{0};
    std::chrono::microseconds unit{100'000};
    for (const char c : text) {
        if (c < '0' || c > '9')
            break;
        fraction += unit * (c - '0');
        unit /= 10;
    }
    return fraction;
}

/// "+13:45"; nothing for what no clock on Earth shows.
std::optional<std::chrono::minutes> parseOffset(std::string_view text)
{
    using std::chrono::hours;
    using std::chrono::minutes;
    if (text == "Z")
        return minutes(0);
    if (text.size() != 6 || (text[0] != '+' && text[0] != '-') || text[3] != ':')
        return std::nullopt;
    const auto whole = digits(text, 1, 2);
    const auto rest = digits(text, 4, 2);
    constexpr minutes kMost = hours(14);
    if (!whole || !rest || *rest > 59 || hours(*whole) + minutes(*rest) > kMost)
        return std::nullopt;
    const minutes offset = hours(*whole) + minutes(*rest);
    return text[0] == '-' ? -offset : offset;
}

std::optional<PhotoOrigin::Date> dateOf(const Structure& structure, std::optional<uint32_t> folder)
{
    const auto clock = parseClock(structure.text(folder, kTagDateTimeOriginal));
    if (!clock)
        return std::nullopt;
    return PhotoOrigin::Date{*clock + parseSubSeconds(structure.text(folder, kTagSubSecTimeOriginal)),
                             parseOffset(structure.text(folder, kTagOffsetTimeOriginal))};
}

/// Degrees with the sign that the reference gives them.
std::optional<double> signedDegrees(std::optional<double> degrees, std::string_view reference, char positive,
                                    char negative, double most)
{
    if (!degrees || *degrees > most || (reference[0] != positive && reference[0] != negative))
        return std::nullopt;
    return reference[0] == negative ? -*degrees : *degrees;
}

std::optional<PhotoOrigin::Place> placeOf(const Structure& structure, std::optional<uint32_t> folder)
{
    // With a letter more, since a text may be empty.
    const auto reference = [&](uint16_t tag) { return structure.text(folder, tag) + ' '; };
    const auto latitude =
        signedDegrees(structure.degrees(folder, kTagLatitude), reference(kTagLatitudeReference), 'N', 'S', 90);
    const auto longitude =
        signedDegrees(structure.degrees(folder, kTagLongitude), reference(kTagLongitudeReference), 'E', 'W', 180);
    if (!latitude || !longitude)
        return std::nullopt;
    return PhotoOrigin::Place{*latitude, *longitude};
}

PhotoOrigin originOf(const Structure& structure, uint32_t firstFolder)
{
    return {.taken = dateOf(structure, structure.integer(firstFolder, kTagExifFolder)),
            .make = structure.text(firstFolder, kTagMake),
            .model = structure.text(firstFolder, kTagModel),
            .place = placeOf(structure, structure.integer(firstFolder, kTagPlaceFolder))};
}

} // namespace

EXIF parseEXIF(std::span<const uint8_t> bytes)
{
    constexpr std::string_view kPrefix("Exif\0\0", 6);
    if (bytes.size() >= kPrefix.size() &&
        std::ranges::equal(kPrefix, bytes.first(kPrefix.size()), {}, [](char c) { return static_cast<uint8_t>(c); }))
        bytes = bytes.subspan(kPrefix.size());

    EXIF exif;
    const MemoryBytes source(bytes);
    const Structure structure(source);
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
    exif.origin = originOf(structure, *folder);
    constexpr double kCentimetresPerInch = 2.54;
    if (resolution && *resolution > 0 && (unit == 2 || unit == 3))
        exif.dpi = unit == 2 ? *resolution : *resolution * kCentimetresPerInch;
    return exif;
}

PhotoOrigin readTIFFOrigin(const ImageFile& file)
{
    const Structure structure(file);
    const auto folder = structure.isValid() ? structure.number32(4) : std::nullopt;
    return folder ? originOf(structure, *folder) : PhotoOrigin();
}

} // namespace platform
