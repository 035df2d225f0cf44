#include "platform/picturefiles/EXIF.h"

#include "platform/picturefiles/TIFFStructure.h"

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

/// As cameras write it, whose colour spaces are sRGB (1) and others.
bool saysAdobeRGB(const TIFFStructure& structure, uint32_t firstFolder)
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

std::optional<PhotoOrigin::Date> dateOf(const TIFFStructure& structure, std::optional<uint32_t> folder)
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

std::optional<PhotoOrigin::Place> placeOf(const TIFFStructure& structure, std::optional<uint32_t> folder)
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

PhotoOrigin originOf(const TIFFStructure& structure, uint32_t firstFolder)
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
    const TIFFStructure structure(source);
    const auto folder = structure.firstFolder();
    if (!folder)
        return exif;

    std::optional<double> resolution;
    uint32_t unit = 2;
    structure.forEachEntry(*folder, [&](uint16_t tag, size_t entry) {
        if (tag == kTagOrientation) {
            const auto value = structure.integer(entry);
            if (value && *value >= 1 && *value <= 8)
                exif.orientation = static_cast<int>(*value);
        } else if (tag == kTagXResolution) {
            resolution = structure.rational(entry);
        } else if (tag == kTagResolutionUnit) {
            unit = structure.integer(entry).value_or(unit);
        }
    });
    exif.isAdobeRGB = saysAdobeRGB(structure, *folder);
    exif.origin = originOf(structure, *folder);
    constexpr double kCentimetresPerInch = 2.54;
    if (resolution && *resolution > 0 && (unit == 2 || unit == 3))
        exif.dpi = unit == 2 ? *resolution : *resolution * kCentimetresPerInch;
    return exif;
}

PhotoOrigin readTIFFOrigin(const ImageFile& file)
{
    const TIFFStructure structure(file);
    const auto folder = structure.firstFolder();
    return folder ? originOf(structure, *folder) : PhotoOrigin();
}

} // namespace platform
