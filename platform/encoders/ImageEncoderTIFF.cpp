#include "platform/encoders/ImageEncoder.h"

#include <cmath>
#include <cstdint>
#include <new>
#include <vector>

namespace platform {

namespace {

enum class Type : uint16_t { Short = 3, Long = 4, Rational = 5 };

struct Entry {
    uint16_t tag;
    Type type;
    /// Above and below the line for a rational.
    std::vector<uint32_t> values;
};

constexpr size_t kHeaderBytes = 8;
constexpr size_t kEntryBytes = 12;
constexpr size_t kEntryValueBytes = 4;

size_t valueWidth(const Entry& entry)
{
    return entry.type == Type::Short ? 2 : 4;
}

size_t valueBytes(const Entry& entry)
{
    return valueWidth(entry) * entry.values.size();
}

void append(NSData& bytes, uint64_t value, size_t width)
{
    for (size_t i = width; i-- > 0;)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

size_t startOfValues(const std::vector<Entry>& entries)
{
    return kHeaderBytes + 2 + kEntryBytes * entries.size() + 4;
}

size_t startOfPixels(const std::vector<Entry>& entries)
{
    size_t start = startOfValues(entries);
    for (const Entry& entry : entries)
        if (valueBytes(entry) > kEntryValueBytes)
            start += valueBytes(entry);
    return start;
}

/// A header and a single directory, which stands before the pixels; entries are sorted by their tags.
void appendDirectory(NSData& bytes, const std::vector<Entry>& entries)
{
    // "MM", as the high byte of each number stands first, and 42.
    append(bytes, 0x4D4D002A, 4);
    append(bytes, kHeaderBytes, 4);
    append(bytes, entries.size(), 2);
    NSData values;
    for (const Entry& entry : entries) {
        append(bytes, entry.tag, 2);
        append(bytes, static_cast<uint16_t>(entry.type), 2);
        append(bytes, entry.type == Type::Rational ? entry.values.size() / 2 : entry.values.size(), 4);
        const bool fits = valueBytes(entry) <= kEntryValueBytes;
        if (!fits)
            append(bytes, startOfValues(entries) + values.size(), kEntryValueBytes);
        NSData& target = fits ? bytes : values;
        for (const uint32_t value : entry.values)
            append(target, value, valueWidth(entry));
        if (fits)
            bytes.resize(bytes.size() + kEntryValueBytes - valueBytes(entry), 0);
    }
    // No other directory follows.
    append(bytes, 0, 4);
    bytes.insert(bytes.end(), values.begin(), values.end());
}

std::vector<uint32_t> resolution(size_t pixels, double points)
{
    constexpr uint32_t kParts = 10000;
    return {static_cast<uint32_t>(std::lround(dotsPerInch(pixels, points) * kParts)), kParts};
}

} // namespace

std::optional<NSData> encodeTIFF(const CGImage& image, CGSize size)
{
    if (image.width == 0 || image.height == 0)
        return std::nullopt;
    const size_t bands = image.hasAlpha ? 4 : 3;
    const uint64_t pixelBytes = uint64_t{image.width} * image.height * bands;
    // Places in the file are 32-bit numbers.
    constexpr uint64_t kMostPixelBytes = uint64_t{1} << 31;
    if (pixelBytes > kMostPixelBytes)
        return std::nullopt;

    constexpr uint32_t kUncompressed = 1;
    constexpr uint32_t kRGB = 2;
    constexpr uint32_t kInterleaved = 1;
    constexpr uint32_t kInch = 2;
    constexpr uint32_t kUnmultipliedAlpha = 2;
    constexpr size_t kStripOffset = 5;
    std::vector<Entry> entries = {
        {256, Type::Long, {static_cast<uint32_t>(image.width)}},
        {257, Type::Long, {static_cast<uint32_t>(image.height)}},
        {258, Type::Short, std::vector<uint32_t>(bands, 8)},
        {259, Type::Short, {kUncompressed}},
        {262, Type::Short, {kRGB}},
        {273, Type::Long, {0}},
        {277, Type::Short, {static_cast<uint32_t>(bands)}},
        {278, Type::Long, {static_cast<uint32_t>(image.height)}},
        {279, Type::Long, {static_cast<uint32_t>(pixelBytes)}},
        {282, Type::Rational, resolution(image.width, size.width)},
        {283, Type::Rational, resolution(image.height, size.height)},
        {284, Type::Short, {kInterleaved}},
        {296, Type::Short, {kInch}},
    };
    if (image.hasAlpha)
        entries.push_back({338, Type::Short, {kUnmultipliedAlpha}});
    entries[kStripOffset].values[0] = static_cast<uint32_t>(startOfPixels(entries));

    try {
        NSData tiff;
        tiff.reserve(startOfPixels(entries) + pixelBytes);
        appendDirectory(tiff, entries);
        const size_t start = tiff.size();
        tiff.resize(start + pixelBytes);
        for (size_t y = 0; y < image.height; ++y)
            copyUnmultiplied(image, y, tiff.data() + start + y * image.width * bands);
        return tiff;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

} // namespace platform
