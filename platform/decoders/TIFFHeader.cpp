#include "platform/decoders/TIFFHeader.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <vector>

namespace platform {

namespace {

constexpr size_t kEntryBytes = 12;
constexpr uint16_t kTypeShort = 3;
constexpr uint16_t kTypeRational = 5;
constexpr uint32_t kColorFilterArray = 32803;
constexpr uint32_t kLinearRaw = 34892;

class Reader {
public:
    explicit Reader(const ImageFile& file) : file_(file)
    {
        const auto start = bytes(0, 8);
        isLittleEndian_ = !start.empty() && start[0] == 'I';
        constexpr uint16_t kMark = 42;
        if (number16(start, 2) == kMark)
            directory_ = number32(start, 4);
    }

    std::optional<uint32_t> directory() const { return directory_; }

    std::vector<uint8_t> bytes(size_t offset, size_t count) const
    {
        std::vector<uint8_t> read(count);
        const ssize_t got = file_.readAt(offset, read.data(), count);
        read.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return read;
    }

    std::optional<uint16_t> number16(std::span<const uint8_t> from, size_t offset) const
    {
        return isLittleEndian_ ? littleEndian16(from, offset) : bigEndian16(from, offset);
    }
    std::optional<uint32_t> number32(std::span<const uint8_t> from, size_t offset) const
    {
        return isLittleEndian_ ? littleEndian32(from, offset) : bigEndian32(from, offset);
    }

    /// The value of an entry that is one whole number.
    uint32_t integer(std::span<const uint8_t> entry) const
    {
        if (number16(entry, 2) == kTypeShort)
            return number16(entry, 8).value_or(0);
        return number32(entry, 8).value_or(0);
    }

    /// The values of an entry, as many as asked for; none if it has others.
    std::vector<double> rationals(std::span<const uint8_t> entry, size_t count) const
    {
        if (number16(entry, 2) != kTypeRational || number32(entry, 4) != count)
            return {};
        const auto read = bytes(number32(entry, 8).value_or(0), 8 * count);
        std::vector<double> values;
        for (size_t i = 0; i < count; ++i) {
            const auto above = number32(read, 8 * i);
            const auto below = number32(read, 8 * i + 4);
            if (!above || !below || *below == 0)
                return {};
            values.push_back(static_cast<double>(*above) / *below);
        }
        return values;
    }

    /// Its whole numbers, no more than so many.
    std::vector<uint32_t> integers(std::span<const uint8_t> entry, size_t most) const
    {
        const size_t count = std::min<size_t>(number32(entry, 4).value_or(0), most);
        if (count <= 1)
            return {integer(entry)};
        const auto read = bytes(number32(entry, 8).value_or(0), 4 * count);
        std::vector<uint32_t> values;
        for (size_t i = 0; i < count; ++i)
            values.push_back(number32(read, 4 * i).value_or(0));
        return values;
    }

    std::vector<uint8_t> entries(size_t directory) const
    {
        const auto count = number16(bytes(directory, 2), 0);
        return bytes(directory + 2, count.value_or(0) * kEntryBytes);
    }

    /// Whether the directory's picture is of a sensor's own colours.
    bool isOfSensor(size_t directory) const
    {
        const auto all = entries(directory);
        for (size_t offset = 0; offset + kEntryBytes <= all.size(); offset += kEntryBytes) {
            const auto entry = std::span(all).subspan(offset, kEntryBytes);
            if (number16(entry, 0) == 262)
                return integer(entry) == kColorFilterArray || integer(entry) == kLinearRaw;
        }
        return false;
    }

    /// The mark that one maker puts behind the header, whose raw picture does not say what it is.
    bool hasRawMark() const { return bytes(8, 3) == std::vector<uint8_t>{'C', 'R', 2}; }

private:
    const ImageFile& file_;
    bool isLittleEndian_ = false;
    std::optional<uint32_t> directory_;
};

} // namespace

std::optional<TIFFHeader> readTIFFHeader(const ImageFile& file)
{
    const Reader reader(file);
    const auto directory = reader.directory();
    if (!directory)
        return std::nullopt;
    const auto count = reader.number16(reader.bytes(*directory, 2), 0);
    if (!count)
        return std::nullopt;
    const auto entries = reader.bytes(size_t{*directory} + 2, *count * kEntryBytes);

    TIFFHeader header;
    header.isCameraRaw = reader.hasRawMark();
    std::vector<double> resolution;
    uint32_t unit = 2;
    for (size_t offset = 0; offset + kEntryBytes <= entries.size(); offset += kEntryBytes) {
        const auto entry = std::span(entries).subspan(offset, kEntryBytes);
        switch (reader.number16(entry, 0).value_or(0)) {
        case 256:
            header.width = reader.integer(entry);
            break;
        case 257:
            header.height = reader.integer(entry);
            break;
        case 259:
            // The first way of putting JPEG into these files, and the one that took its place.
            header.isJPEG = reader.integer(entry) == 6 || reader.integer(entry) == 7;
            break;
        case 262:
            header.hasColorDifferences = reader.integer(entry) == 6;
            header.isCameraRaw = header.isCameraRaw || reader.isOfSensor(*directory);
            break;
        case 274:
            if (const uint32_t value = reader.integer(entry); value >= 1 && value <= 8)
                header.orientation = static_cast<int>(value);
            break;
        case 282:
            resolution = reader.rationals(entry, 1);
            break;
        case 296:
            unit = reader.integer(entry);
            break;
        case 330:
            // Previews and the raw picture; real files have up to four.
            for (const uint32_t place : reader.integers(entry, 8))
                header.isCameraRaw = header.isCameraRaw || reader.isOfSensor(place);
            break;
        case 50706:
            // The version of a format for all cameras.
            header.isCameraRaw = true;
            break;
        case 532:
            if (const auto values = reader.rationals(entry, header.reference.size()); !values.empty())
                std::copy(values.begin(), values.end(), header.reference.begin());
            break;
        default:
            break;
        }
    }
    constexpr double kCentimetresPerInch = 2.54;
    if (!resolution.empty() && resolution[0] > 0 && (unit == 2 || unit == 3))
        header.dpi = unit == 2 ? resolution[0] : resolution[0] * kCentimetresPerInch;
    return header;
}

} // namespace platform
