#include "platform/movie/SequenceHeader.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace platform {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array<uint8_t, 3> kStartCode{0, 0, 1};

bool isSequenceSet(SequenceHeaderKind kind, uint8_t first)
{
    return kind == SequenceHeaderKind::H264 ? (first & 31) == 7 : (first >> 1 & 63) == 33;
}

/// A unit without the bytes that keep its content from looking like a start code.
Bytes unescaped(std::span<const uint8_t> unit)
{
    Bytes bytes;
    bytes.reserve(unit.size());
    int zeros = 0;
    for (const uint8_t byte : unit) {
        if (zeros >= 2 && byte == 3) {
            zeros = 0;
            continue;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes.push_back(byte);
    }
    return bytes;
}

void appendEscaped(const Bytes& unit, Bytes& bytes)
{
    int zeros = 0;
    for (const uint8_t byte : unit) {
        if (zeros >= 2 && byte <= 3) {
            bytes.push_back(3);
            zeros = 0;
        }
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes.push_back(byte);
    }
}

/// Past the end it reads zeros, and says so.
class BitReader final {
public:
    explicit BitReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}

    size_t position() const { return position_; }
    size_t bitCount() const { return 8 * bytes_.size(); }
    bool isPastEnd() const { return position_ > bitCount(); }

    bool bit()
    {
        const size_t at = position_++;
        return at < bitCount() && (bytes_[at / 8] >> (7 - at % 8) & 1);
    }
    void skip(size_t count) { position_ += count; }
    uint32_t number(int count)
    {
        uint32_t value = 0;
        for (int i = 0; i < count; ++i)
            value = value << 1 | uint32_t{bit()};
        return value;
    }
    /// An Exp-Golomb code.
    uint32_t code()
    {
        int zeros = 0;
        while (zeros < 31 && !isPastEnd() && !bit())
            ++zeros;
        return (uint32_t{1} << zeros) - 1 + number(zeros);
    }

private:
    const std::span<const uint8_t> bytes_;
    size_t position_ = 0;
};

class BitWriter final {
public:
    void put(bool bit)
    {
        if (count_ % 8 == 0)
            bytes_.push_back(0);
        bytes_.back() |= static_cast<uint8_t>(bit << (7 - count_ % 8));
        ++count_;
    }
    const Bytes& bytes() const { return bytes_; }

private:
    Bytes bytes_;
    size_t count_ = 0;
};

bool hasChromaFields(uint32_t profile)
{
    constexpr std::array<uint32_t, 13> kProfiles{100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 139, 134, 135};
    return std::find(kProfiles.begin(), kProfiles.end(), profile) != kProfiles.end();
}

/// Skips a flag, and what follows it where it is set.
void skipCodesIfFlagged(BitReader& reader, int codes)
{
    if (reader.bit())
        for (int i = 0; i < codes; ++i)
            reader.code();
}

/// Leaves the reader at the flag that says whether the set tells how pictures are to be shown.
/// @return false for a set of another kind
bool skipToUsabilityOfH264(BitReader& reader)
{
    reader.skip(8);
    const uint32_t profile = reader.number(8);
    reader.skip(16);
    reader.code();
    if (hasChromaFields(profile)) {
        if (reader.code() == 3)
            reader.skip(1);
        reader.code();
        reader.code();
        reader.skip(1);
        if (const bool hasScalingLists = reader.bit(); hasScalingLists)
            return false;
    }
    reader.code();
    const uint32_t orderCountKind = reader.code();
    if (orderCountKind == 0)
        reader.code();
    else if (orderCountKind == 1)
        return false;
    reader.code();
    reader.skip(1);
    reader.code();
    reader.code();
    const bool areFramesWhole = reader.bit();
    reader.skip(areFramesWhole ? 1 : 2);
    skipCodesIfFlagged(reader, 4);
    return true;
}

/// As above.
bool skipToUsabilityOfHEVC(BitReader& reader)
{
    reader.skip(16 + 4);
    if (const uint32_t furtherLayers = reader.number(3); furtherLayers > 0)
        return false;
    // The profile and level.
    reader.skip(1 + 88 + 8);
    reader.code();
    if (reader.code() == 3)
        reader.skip(1);
    reader.code();
    reader.code();
    skipCodesIfFlagged(reader, 4);
    for (int i = 0; i < 3; ++i)
        reader.code();
    reader.skip(1);
    // The size of the picture buffer, then the sizes of blocks.
    for (int i = 0; i < 3 + 6; ++i)
        reader.code();
    if (const bool hasScalingLists = reader.bit(); hasScalingLists)
        return false;
    reader.skip(2);
    const bool hasPlainBlocks = reader.bit();
    const bool hasReferenceSets = reader.code() > 0;
    const bool hasLongReferences = reader.bit();
    reader.skip(2);
    return !hasPlainBlocks && !hasReferenceSets && !hasLongReferences;
}

/// Leaves the reader, from behind that flag, at the one that says whether there is a frame rate.
void skipToTiming(SequenceHeaderKind kind, BitReader& reader)
{
    constexpr uint32_t kOwnAspectRatio = 255;
    if (reader.bit() && reader.number(8) == kOwnAspectRatio)
        reader.skip(32);
    if (reader.bit())
        reader.skip(1);
    if (reader.bit()) {
        reader.skip(4);
        if (reader.bit())
            reader.skip(24);
    }
    skipCodesIfFlagged(reader, 2);
    if (kind == SequenceHeaderKind::H264)
        return;
    reader.skip(3);
    skipCodesIfFlagged(reader, 4);
}

/// Skips, from behind that flag, what it stands for.
/// @return false for timing of another kind
bool skipTiming(SequenceHeaderKind kind, BitReader& reader)
{
    // The length of a tick and how many there are in a second.
    reader.skip(32 + 32);
    if (kind == SequenceHeaderKind::H264) {
        // Whether they are fixed.
        reader.skip(1);
        return true;
    }
    const bool isOrderProportional = reader.bit();
    const bool hasBuffering = reader.bit();
    return !isOrderProportional && !hasBuffering;
}

std::optional<Bytes> setWithoutTiming(SequenceHeaderKind kind, const Bytes& set)
{
    // A bit that is set ends the content.
    if (set.empty() || set.back() == 0)
        return std::nullopt;
    BitReader reader(set);
    const bool isKnown =
        kind == SequenceHeaderKind::H264 ? skipToUsabilityOfH264(reader) : skipToUsabilityOfHEVC(reader);
    if (!isKnown || reader.isPastEnd())
        return std::nullopt;
    if (!reader.bit())
        return set;
    skipToTiming(kind, reader);
    const size_t flag = reader.position();
    const bool hasTiming = reader.bit();
    if (hasTiming && !skipTiming(kind, reader))
        return std::nullopt;
    if (reader.isPastEnd())
        return std::nullopt;
    if (!hasTiming)
        return set;
    // The last bit that is set ends the content.
    size_t end = reader.bitCount();
    while (!(set[(end - 1) / 8] >> (7 - (end - 1) % 8) & 1))
        --end;
    // What ended already within the timing was no such set.
    if (end <= reader.position())
        return std::nullopt;
    BitWriter writer;
    BitReader copy(set);
    while (copy.position() < flag)
        writer.put(copy.bit());
    writer.put(false);
    copy.skip(reader.position() - flag);
    while (copy.position() < end)
        writer.put(copy.bit());
    return writer.bytes();
}

} // namespace

std::optional<Bytes> headerWithoutTiming(SequenceHeaderKind kind, std::span<const uint8_t> header)
{
    Bytes result;
    bool isFound = false;
    auto start = std::search(header.begin(), header.end(), kStartCode.begin(), kStartCode.end());
    result.assign(header.begin(), start);
    while (start != header.end()) {
        const auto unit = start + kStartCode.size();
        const auto next = std::search(unit, header.end(), kStartCode.begin(), kStartCode.end());
        result.insert(result.end(), kStartCode.begin(), kStartCode.end());
        if (unit != next && isSequenceSet(kind, *unit)) {
            // Zeros at the end belong to the start code that follows.
            auto end = next;
            while (end != unit && *(end - 1) == 0)
                --end;
            const auto set = setWithoutTiming(kind, unescaped({unit, end}));
            if (!set)
                return std::nullopt;
            appendEscaped(*set, result);
            result.insert(result.end(), end, next);
            isFound = true;
        } else {
            result.insert(result.end(), unit, next);
        }
        start = next;
    }
    if (!isFound)
        return std::nullopt;
    return result;
}

} // namespace platform
