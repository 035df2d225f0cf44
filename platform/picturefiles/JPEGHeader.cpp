#include "platform/picturefiles/JPEGHeader.h"

#include "platform/bytes/ByteReader.h"
#include "platform/picturefiles/EXIF.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <string_view>
#include <utility>

namespace platform {

namespace {

constexpr uint8_t kStartOfScan = 0xDA;
constexpr uint8_t kEndOfImage = 0xD9;
constexpr uint8_t kApp0 = 0xE0;
constexpr uint8_t kApp1 = 0xE1;
constexpr uint8_t kApp2 = 0xE2;
constexpr uint8_t kApp14 = 0xEE;

bool startsWith(std::span<const uint8_t> bytes, std::string_view text)
{
    return bytes.size() >= text.size() &&
           std::ranges::equal(text, bytes.first(text.size()), {}, [](char c) { return static_cast<uint8_t>(c); });
}

/// The frame headers of all ways to code; three numbers among them mean tables.
bool isFrameHeader(uint8_t marker)
{
    return marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
}

bool isWithoutLength(uint8_t marker)
{
    return marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8);
}

/// The parts of a colour profile, which may come in any order.
struct ProfileParts {
    std::map<unsigned, std::vector<uint8_t>> parts;
    unsigned count = 0;

    void add(std::span<const uint8_t> segment)
    {
        constexpr size_t kPrefix = 14;
        if (segment.size() <= kPrefix)
            return;
        count = segment[13];
        const auto data = segment.subspan(kPrefix);
        parts.try_emplace(segment[12], data.begin(), data.end());
    }

    std::vector<uint8_t> whole() const
    {
        std::vector<uint8_t> profile;
        if (count == 0 || parts.size() != count || parts.begin()->first != 1 || parts.rbegin()->first != count)
            return profile;
        for (const auto& [number, part] : parts)
            profile.insert(profile.end(), part.begin(), part.end());
        return profile;
    }
};

/// Of a frame header's components, each of which has three bytes: its name, its samplings and its table.
double samplesPerPixel(std::span<const uint8_t> segment, unsigned components)
{
    unsigned most = 1;
    unsigned sum = 0;
    for (size_t i = 0; i < components && 3 * i + 1 < segment.size(); ++i) {
        const unsigned samples = (segment[3 * i + 1] >> 4U) * (segment[3 * i + 1] & 15U);
        most = std::max(most, samples);
        sum += samples;
    }
    return std::clamp(static_cast<double>(sum) / most, 1.0, static_cast<double>(std::max(components, 1U)));
}

void readSegment(uint8_t marker, std::span<const uint8_t> segment, JPEGHeader& header, EXIF& exif,
                 ProfileParts& profile)
{
    using namespace std::string_view_literals;
    if (marker == kApp0 && startsWith(segment, "JFIF\0"sv) && segment.size() >= 12) {
        constexpr double kCentimetresPerInch = 2.54;
        const unsigned unit = segment[7];
        const unsigned density = bigEndian16(segment, 8).value_or(0);
        if (density > 0 && (unit == 1 || unit == 2))
            header.dpi = unit == 1 ? density : density * kCentimetresPerInch;
    } else if (marker == kApp1 && startsWith(segment, "Exif\0\0"sv)) {
        EXIF read = parseEXIF(segment);
        if (!exif.orientation)
            exif.orientation = read.orientation;
        if (!exif.dpi)
            exif.dpi = read.dpi;
        exif.isAdobeRGB = exif.isAdobeRGB || read.isAdobeRGB;
        if (exif.origin == PhotoOrigin())
            exif.origin = std::move(read.origin);
    } else if (marker == kApp2 && startsWith(segment, "ICC_PROFILE\0"sv)) {
        profile.add(segment);
    } else if (marker == kApp14 && startsWith(segment, "Adobe"sv)) {
        header.hasAdobeSegment = true;
    } else if (isFrameHeader(marker) && segment.size() >= 6 && header.components == 0) {
        header.bitsPerSample = segment[0];
        header.height = bigEndian16(segment, 1).value_or(0);
        header.width = bigEndian16(segment, 3).value_or(0);
        header.components = segment[5];
        header.isProgressive = (marker & 3) == 2;
        header.samplesPerPixel = samplesPerPixel(segment.subspan(6), header.components);
    }
}

} // namespace

size_t countJPEGScans(ImageFile& file, const JPEGHeader& header)
{
    const auto bytes = file.all();
    size_t count = 0;
    for (size_t at = header.length; at + 1 < bytes.size(); ++at) {
        const void* const found = std::memchr(bytes.data() + at, 0xFF, bytes.size() - 1 - at);
        if (!found)
            break;
        at = static_cast<size_t>(static_cast<const uint8_t*>(found) - bytes.data());
        count += bytes[at + 1] == kStartOfScan ? 1 : 0;
    }
    return count;
}

std::optional<JPEGHeader> readJPEGHeader(ImageFile& file)
{
    JPEGHeader header;
    EXIF exif;
    ProfileParts profile;
    size_t offset = 2;
    while (true) {
        // Room for a marker; any number of fill bytes may stand before its code.
        auto bytes = file.first(offset + 4);
        if (bytes.size() < offset + 2)
            break;
        if (bytes[offset] != 0xFF) {
            ++offset;
            continue;
        }
        const uint8_t marker = bytes[offset + 1];
        if (marker == 0xFF) {
            ++offset;
            continue;
        }
        if (marker == kStartOfScan || marker == kEndOfImage) {
            constexpr size_t kComponents = 4;
            const auto scan = file.first(offset + kComponents + 1);
            header.hasManyScans = header.isProgressive || (scan.size() > offset + kComponents &&
                                                           scan[offset + kComponents] < header.components);
            break;
        }
        if (marker == 0x00 || isWithoutLength(marker)) {
            offset += 2;
            continue;
        }
        const size_t length = bigEndian16(bytes, offset + 2).value_or(0);
        if (length < 2)
            break;
        bytes = file.first(offset + 2 + length);
        if (bytes.size() < offset + 2 + length)
            break;
        readSegment(marker, bytes.subspan(offset + 4, length - 2), header, exif, profile);
        offset += 2 + length;
    }
    if (header.components == 0)
        return std::nullopt;
    header.length = offset;
    header.isAdobeRGB = exif.isAdobeRGB;
    header.orientation = exif.orientation;
    header.origin = std::move(exif.origin);
    if (!header.dpi)
        header.dpi = exif.dpi;
    header.colorProfile = profile.whole();
    return header;
}

} // namespace platform
