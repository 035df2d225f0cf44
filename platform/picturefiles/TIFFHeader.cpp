#include "platform/picturefiles/TIFFHeader.h"

#include "platform/picturefiles/TIFFStructure.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace platform {

namespace {

constexpr uint32_t kColorFilterArray = 32803;
constexpr uint32_t kLinearRaw = 34892;

/// The value of an entry that is one whole number.
uint32_t integerOf(const TIFFStructure& structure, size_t entry)
{
    if (structure.type(entry) == TIFFStructure::kTypeShort)
        return structure.number16(entry + 8).value_or(0);
    return structure.number32(entry + 8).value_or(0);
}

/// Its whole numbers, no more than so many.
std::vector<uint32_t> integersOf(const TIFFStructure& structure, size_t entry, size_t most)
{
    const size_t count = std::min<size_t>(structure.count(entry), most);
    if (count <= 1)
        return {integerOf(structure, entry)};
    const size_t place = structure.number32(entry + 8).value_or(0);
    std::vector<uint32_t> values;
    for (size_t i = 0; i < count; ++i)
        values.push_back(structure.number32(place + 4 * i).value_or(0));
    return values;
}

/// Whether the directory's picture is of a sensor's own colours.
bool isOfSensor(const TIFFStructure& structure, uint32_t directory)
{
    const auto entry = structure.entry(directory, 262);
    const uint32_t colors = entry ? integerOf(structure, *entry) : 0;
    return colors == kColorFilterArray || colors == kLinearRaw;
}

/// Whether one of the pictures below the directory's is: previews and the raw picture, of which real files have up to
/// four.
bool hasPictureOfSensor(const TIFFStructure& structure, uint32_t directory)
{
    const auto below = structure.entry(directory, 330);
    const auto places = below ? integersOf(structure, *below, 8) : std::vector<uint32_t>();
    return std::ranges::any_of(places, [&](uint32_t place) { return isOfSensor(structure, place); });
}

/// The mark that one maker puts behind the header, whose raw picture does not say what it is.
bool hasRawMark(const ImageFile& file)
{
    std::array<uint8_t, 3> mark{};
    return file.read(8, mark) && mark == std::array<uint8_t, 3>{'C', 'R', 2};
}

} // namespace

std::optional<TIFFHeader> readTIFFHeader(const ImageFile& file)
{
    const TIFFStructure structure(file);
    const auto directory = structure.firstFolder();
    if (!directory || !structure.number16(*directory))
        return std::nullopt;

    TIFFHeader header;
    std::vector<double> resolution;
    uint32_t unit = 2;
    structure.forEachEntry(*directory, [&](uint16_t tag, size_t entry) {
        switch (tag) {
        case 256:
            header.width = integerOf(structure, entry);
            break;
        case 257:
            header.height = integerOf(structure, entry);
            break;
        case 259:
            // The first way of putting JPEG into these files, and the one that took its place.
            header.isJPEG = integerOf(structure, entry) == 6 || integerOf(structure, entry) == 7;
            break;
        case 262:
            header.hasColorDifferences = integerOf(structure, entry) == 6;
            break;
        case 274:
            if (const uint32_t value = integerOf(structure, entry); value >= 1 && value <= 8)
                header.orientation = static_cast<int>(value);
            break;
        case 282:
            resolution = structure.rationals(entry, 1);
            break;
        case 296:
            unit = integerOf(structure, entry);
            break;
        case 50706:
            // The version of a format for all cameras.
            header.isCameraRaw = true;
            break;
        case 532:
            if (const auto values = structure.rationals(entry, header.reference.size()); !values.empty())
                std::copy(values.begin(), values.end(), header.reference.begin());
            break;
        default:
            break;
        }
    });
    header.isCameraRaw = header.isCameraRaw || hasRawMark(file) || isOfSensor(structure, *directory) ||
                         hasPictureOfSensor(structure, *directory);
    constexpr double kCentimetresPerInch = 2.54;
    if (!resolution.empty() && resolution[0] > 0 && (unit == 2 || unit == 3))
        header.dpi = unit == 2 ? resolution[0] : resolution[0] * kCentimetresPerInch;
    return header;
}

} // namespace platform
