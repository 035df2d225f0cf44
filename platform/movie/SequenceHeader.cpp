#include "platform/movie/SequenceHeader.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <utility>

namespace platform {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr std::array<uint8_t, 3> kStartCode{0, 0, 1};

/// Kinds of units of H.264.
constexpr int kKeySlice = 5;
constexpr int kSequenceSet = 7;
constexpr int kPictureSet = 8;

/// The kind of a unit of H.264, by its first byte.
int kindOfUnit(uint8_t first)
{
    return first & 31;
}

bool isSequenceSet(SequenceHeaderKind kind, uint8_t first)
{
    return kind == SequenceHeaderKind::H264 ? kindOfUnit(first) == kSequenceSet : (first >> 1 & 63) == 33;
}

void append(std::span<const uint8_t> more, Bytes& bytes)
{
    bytes.insert(bytes.end(), more.begin(), more.end());
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
    /// An Exp-Golomb code.
    void putCode(uint32_t value)
    {
        const int length = std::bit_width(value + 1);
        for (int i = 1; i < length; ++i)
            put(false);
        for (int i = length - 1; i >= 0; --i)
            put((value + 1) >> i & 1);
    }
    /// The bits of `bytes` from `begin` to before `end`.
    void putBits(std::span<const uint8_t> bytes, size_t begin, size_t end)
    {
        const auto bitAt = [&](size_t at) { return (bytes[at / 8] >> (7 - at % 8) & 1) != 0; };
        // Once whole bytes can be appended, they are.
        for (; begin < end && count_ % 8 != 0; ++begin)
            put(bitAt(begin));
        const size_t shift = begin % 8;
        for (; end - begin >= 8; begin += 8, count_ += 8) {
            const auto high = static_cast<uint8_t>(bytes[begin / 8] << shift);
            bytes_.push_back(shift == 0 ? high : high | bytes[begin / 8 + 1] >> (8 - shift));
        }
        for (; begin < end; ++begin)
            put(bitAt(begin));
    }
    const Bytes& bytes() const { return bytes_; }

private:
    Bytes bytes_;
    size_t count_ = 0;
};

/// Where a unit's content ends: behind the last bit that is set, which ends it.
/// @param unit  not empty, its last byte no zero
size_t endOfContent(const Bytes& unit)
{
    return 8 * unit.size() - static_cast<size_t>(std::countr_zero(unit.back()));
}

/// Calls `handle` for the units after start codes; zeros before the next start code belong to that one.
/// @return how many bytes stand before the first
template <typename Handle>
size_t forEachUnit(std::span<const uint8_t> stream, const Handle& handle)
{
    auto start = std::search(stream.begin(), stream.end(), kStartCode.begin(), kStartCode.end());
    const auto before = static_cast<size_t>(start - stream.begin());
    while (start != stream.end()) {
        const auto unit = start + kStartCode.size();
        const auto next = std::search(unit, stream.end(), kStartCode.begin(), kStartCode.end());
        auto end = next;
        while (end != unit && *(end - 1) == 0)
            --end;
        handle(std::span<const uint8_t>(unit, end), std::span<const uint8_t>(end, next));
        start = next;
    }
    return before;
}

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

/// What a sequence parameter set of H.264 says of slices.
struct SliceFacts {
    uint32_t frameNumberBits = 0;
    bool areFramesWhole = false;
};

/// Leaves the reader at the flag that says whether the set tells how pictures are to be shown.
/// @return false for a set of another kind
bool skipToUsabilityOfH264(BitReader& reader, SliceFacts& facts)
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
    facts.frameNumberBits = reader.code() + 4;
    const uint32_t orderCountKind = reader.code();
    if (orderCountKind == 0)
        reader.code();
    else if (orderCountKind == 1)
        return false;
    reader.code();
    reader.skip(1);
    reader.code();
    reader.code();
    facts.areFramesWhole = reader.bit();
    reader.skip(facts.areFramesWhole ? 1 : 2);
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
    SliceFacts unwanted;
    const bool isKnown =
        kind == SequenceHeaderKind::H264 ? skipToUsabilityOfH264(reader, unwanted) : skipToUsabilityOfHEVC(reader);
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
    const size_t end = endOfContent(set);
    // What ended already within the timing was no such set.
    if (end <= reader.position())
        return std::nullopt;
    BitWriter writer;
    writer.putBits(set, 0, flag);
    writer.put(false);
    writer.putBits(set, reader.position(), end);
    return writer.bytes();
}

} // namespace

std::optional<Bytes> headerWithoutTiming(SequenceHeaderKind kind, std::span<const uint8_t> header)
{
    Bytes result;
    bool isFound = false;
    bool isKnown = true;
    const size_t before = forEachUnit(header, [&](std::span<const uint8_t> unit, std::span<const uint8_t> zeros) {
        append(kStartCode, result);
        const bool isSet = !unit.empty() && isSequenceSet(kind, unit.front());
        const auto set = isSet ? setWithoutTiming(kind, unescaped(unit)) : std::nullopt;
        if (set)
            appendEscaped(*set, result);
        else
            append(unit, result);
        append(zeros, result);
        isFound = isFound || set;
        isKnown = isKnown && (!isSet || set);
    });
    if (!isFound || !isKnown)
        return std::nullopt;
    result.insert(result.begin(), header.begin(), header.begin() + static_cast<std::ptrdiff_t>(before));
    return result;
}

std::optional<KeyFrameIdentifiers> KeyFrameIdentifiers::ofHeader(std::span<const uint8_t> header)
{
    constexpr uint32_t kMostFrameNumberBits = 16;
    std::optional<SliceFacts> facts;
    bool isArithmetic = true;
    forEachUnit(header, [&](std::span<const uint8_t> unit, std::span<const uint8_t>) {
        const Bytes set = unescaped(unit);
        BitReader reader(set);
        const auto kind = kindOfUnit(static_cast<uint8_t>(reader.number(8)));
        if (kind == kPictureSet) {
            reader.code();
            reader.code();
            isArithmetic = reader.bit() || reader.isPastEnd();
        } else if (kind == kSequenceSet) {
            SliceFacts found;
            BitReader again(set);
            if (skipToUsabilityOfH264(again, found) && !again.isPastEnd())
                facts = found;
        }
    });
    if (!facts || !facts->areFramesWhole || facts->frameNumberBits > kMostFrameNumberBits || isArithmetic)
        return std::nullopt;
    return KeyFrameIdentifiers(facts->frameNumberBits);
}

bool KeyFrameIdentifiers::set(std::vector<uint8_t>& packet, uint32_t identifier) const
{
    // A slice's head is far shorter.
    constexpr size_t kHeadBytes = 64;
    const auto placeOfIdentifier = [this](BitReader& reader) {
        reader.skip(8);
        // The first block, the slice's kind and its parameter set.
        for (int i = 0; i < 3; ++i)
            reader.code();
        reader.skip(frameNumberBits_);
        return reader.position();
    };
    Bytes result;
    bool isOther = false;
    bool isWhole = true;
    const size_t before = forEachUnit(packet, [&](std::span<const uint8_t> unit, std::span<const uint8_t> zeros) {
        const bool isSlice = !unit.empty() && kindOfUnit(unit.front()) == kKeySlice;
        bool isRight = true;
        if (isSlice) {
            const Bytes head = unescaped(unit.first(std::min(unit.size(), kHeadBytes)));
            BitReader reader(head);
            placeOfIdentifier(reader);
            isRight = reader.code() == identifier;
            isWhole = isWhole && reader.position() < 8 * head.size();
        }
        // Nothing is copied until something has to be changed.
        if (!isRight && !std::exchange(isOther, true)) {
            result.reserve(packet.size() + kHeadBytes);
            result.assign(packet.begin(), packet.begin() + (unit.data() - kStartCode.size() - packet.data()));
        }
        if (!isOther || !isWhole)
            return;
        append(kStartCode, result);
        if (isRight) {
            append(unit, result);
        } else {
            const Bytes slice = unescaped(unit);
            BitReader reader(slice);
            const size_t place = placeOfIdentifier(reader);
            reader.code();
            const size_t end = endOfContent(slice);
            isWhole = reader.position() < end;
            if (!isWhole)
                return;
            BitWriter writer;
            writer.putBits(slice, 0, place);
            writer.putCode(identifier);
            writer.putBits(slice, reader.position(), end);
            appendEscaped(writer.bytes(), result);
        }
        append(zeros, result);
    });
    if (isOther && isWhole)
        packet = std::move(result);
    return isWhole && before < packet.size();
}

} // namespace platform
