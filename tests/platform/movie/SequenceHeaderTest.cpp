#include "platform/movie/SequenceHeader.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace platform {
namespace {

using Bytes = std::vector<uint8_t>;

/// Bits as text; spaces are passed over. Ends with the bit that ends a unit.
class Bits final {
public:
    Bits& add(const std::string& bits)
    {
        for (const char bit : bits)
            if (bit != ' ')
                bits_ += bit;
        return *this;
    }
    Bits& number(uint32_t value, int count)
    {
        for (int i = count - 1; i >= 0; --i)
            bits_ += value >> i & 1 ? '1' : '0';
        return *this;
    }

    /// With bytes that keep it from looking like a start code.
    Bytes unit() const
    {
        std::string bits = bits_ + '1';
        bits.resize((bits.size() + 7) / 8 * 8, '0');
        Bytes bytes;
        for (size_t i = 0; i < bits.size(); i += 8) {
            const auto byte = static_cast<uint8_t>(std::stoi(bits.substr(i, 8), nullptr, 2));
            const size_t count = bytes.size();
            if (byte <= 3 && count >= 2 && bytes[count - 1] == 0 && bytes[count - 2] == 0)
                bytes.push_back(3);
            bytes.push_back(byte);
        }
        return bytes;
    }

private:
    std::string bits_;
};

/// A sequence parameter set of the High profile up to the frame rate: 64 x 48 pixels, cropped, BT.709.
Bits startOfSet(const char* scalingLists = "0", const char* orderCount = "011")
{
    Bits bits;
    bits.number(0x67, 8).number(100, 8).number(0, 8).number(40, 8);
    // Set 0, 4:2:0, 8 bits twice, no bypass.
    bits.add("1 010 1 1 0").add(scalingLists);
    // Frame numbers of 4 bits, how pictures are ordered, no reference, no gaps, 4 x 3 blocks in whole frames.
    bits.add("1").add(orderCount).add("1 0 00100 011 1 1");
    // Cropped by 0, 1, 2 and 3.
    bits.add("1 1 010 011 00100");
    // Of its own shape of pixels 0x123 : 0x456, overscan, video signal with colours, chroma's place.
    bits.add("1 1").number(255, 8).number(0x123, 16).number(0x456, 16).add("1 1");
    bits.add("1 101 0 1").number(0x010101, 24).add("1 1 010");
    return bits;
}

Bytes header(const std::vector<Bytes>& units)
{
    Bytes bytes;
    for (const Bytes& unit : units) {
        bytes.insert(bytes.end(), {0, 0, 0, 1});
        bytes.insert(bytes.end(), unit.begin(), unit.end());
    }
    return bytes;
}

std::optional<Bytes> withoutTiming(const Bytes& bytes)
{
    return headerWithoutTiming(SequenceHeaderKind::H264, bytes);
}

const Bytes kPictureSet{0x68, 0xEB, 0xE3, 0xC4, 0x80};
/// What follows the frame rate: no buffering models, no structure, restrictions.
constexpr const char* kEnd = "0 0 0 1 1 1 1 1 010 1 010";

TEST(SequenceHeader, LosesItsFrameRateAndNothingElse)
{
    // A tick of 1 has bytes of zeros, which are escaped, and the bits behind move.
    const Bytes set = startOfSet().add("1").number(1, 32).number(50, 32).add("1").add(kEnd).unit();
    const Bytes wanted = startOfSet().add("0").add(kEnd).unit();
    ASSERT_GT(set.size(), wanted.size() + 8) << "an escape is to go";
    EXPECT_EQ(withoutTiming(header({set, kPictureSet})), header({wanted, kPictureSet}));
}

/// The same for HEVC, with the flags for scaling lists, plain blocks, sets of references and long references.
Bits startOfHEVCSet(const char* scalingLists = "0", const char* unusual = "0 1 0", const char* layers = "000")
{
    Bits bits;
    bits.number(0x4201, 16).add("0000").add(layers).add("1").number(0x01600000, 32).number(0x03000000, 32);
    bits.number(0, 24).number(63, 8);
    // Set 0, 4:2:0, 4 x 3 pixels, cropped by 0, 1, 2 and 3, 8 bits twice, orders of 8 bits, a buffer, six sizes.
    bits.add("1 010 00101 00100 1 1 010 011 00100 1 1 00101 1 011 1 010 010 010 1 00100 1 1");
    bits.add(scalingLists).add("1 0").add(unusual).add("1 1");
    // Usability as above, then chroma that is neutral, no fields, and a window.
    bits.add("1 1").number(255, 8).number(0x123, 16).number(0x456, 16).add("1 1");
    bits.add("1 101 0 1").number(0x010101, 24).add("1 1 010").add("1 0 0 1 1 010 011 00100");
    return bits;
}

TEST(SequenceHeader, LosesItsFrameRateInHEVCToo)
{
    const Bytes pictureSet{0x44, 0x01, 0xC0, 0x71, 0x80};
    const auto timed = [](Bits bits) {
        return bits.add("1").number(1, 32).number(25, 32).add("0 0").add("0 0").unit();
    };
    const Bytes wanted = startOfHEVCSet().add("0").add("0 0").unit();
    const auto made = [&](const Bytes& set) {
        return headerWithoutTiming(SequenceHeaderKind::HEVC, header({set, pictureSet}));
    };
    EXPECT_EQ(made(timed(startOfHEVCSet())), header({wanted, pictureSet}));
    EXPECT_EQ(made(wanted), header({wanted, pictureSet}));
    EXPECT_FALSE(made(timed(startOfHEVCSet("1")))) << "scaling lists";
    EXPECT_FALSE(made(timed(startOfHEVCSet("0", "1 1 0")))) << "plain blocks";
    EXPECT_FALSE(made(timed(startOfHEVCSet("0", "0 010 0")))) << "sets of references";
    EXPECT_FALSE(made(timed(startOfHEVCSet("0", "0 1 1")))) << "long references";
    EXPECT_FALSE(made(timed(startOfHEVCSet("0", "0 1 0", "001")))) << "layers";
    const Bytes buffered = startOfHEVCSet().add("1").number(1, 32).number(25, 32).add("0 1").add("0 0").unit();
    EXPECT_FALSE(made(buffered)) << "buffering models";
}

TEST(SequenceHeader, StaysAsItIsWithoutAFrameRate)
{
    const Bytes untimed = header({startOfSet().add("0").add(kEnd).unit(), kPictureSet});
    EXPECT_EQ(withoutTiming(untimed), untimed);
    // The set of the Baseline profile, without anything on how pictures are shown.
    const Bytes plain = header(
        {Bits().number(0x67, 8).number(66, 8).number(0xC0, 8).number(30, 8).add("1 1 011 1 0 00100 011 1 1 0 0").unit(),
         kPictureSet});
    EXPECT_EQ(withoutTiming(plain), plain);
}

TEST(SequenceHeader, IsRefusedWhereItIsOfAnotherKindOrBroken)
{
    const auto timed = [](Bits bits) { return bits.add("1").number(1, 32).number(50, 32).add("1").add(kEnd).unit(); };
    EXPECT_TRUE(withoutTiming(header({timed(startOfSet())})));
    EXPECT_FALSE(withoutTiming(header({timed(startOfSet("1"))}))) << "scaling lists";
    EXPECT_FALSE(withoutTiming(header({timed(startOfSet("0", "010"))}))) << "order in a cycle";
    EXPECT_FALSE(withoutTiming(header({kPictureSet}))) << "no sequence";
    EXPECT_FALSE(withoutTiming({}));
    EXPECT_FALSE(withoutTiming(header({{0x67}})));
    const Bytes whole = timed(startOfSet());
    for (size_t length = 1; length < 24; ++length)
        EXPECT_FALSE(withoutTiming(header({Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length))})))
            << length;
}

Bytes pictureSet(const char* arithmetic)
{
    return Bits().number(0x68, 8).add("1 1").add(arithmetic).add("0 1 1 1").unit();
}

/// A slice of a key frame; its tail has runs of zeros, which a change of the head moves by bits.
Bytes slice(const std::string& identifier, size_t tailBytes)
{
    Bits bits;
    bits.number(0x65, 8).add("1 0001000 1 0000").add(identifier).add("1 101");
    for (size_t i = 0; i < tailBytes; ++i)
        bits.number(i % 7 < 4 ? static_cast<uint32_t>(i % 5 == 0) : static_cast<uint32_t>(i * 37 % 256), 8);
    return bits.unit();
}

std::optional<KeyFrameIdentifiers> identifiers()
{
    return KeyFrameIdentifiers::ofHeader(header({startOfSet().add("0").unit(), pictureSet("0")}));
}

TEST(KeyFrameIdentifiers, AreChangedWithoutAnythingElse)
{
    const auto numbers = identifiers();
    ASSERT_TRUE(numbers);
    const Bytes note{0x06, 0x05, 0x01, 0x80};
    for (size_t tail = 0; tail < 300; ++tail) {
        const Bytes zero = header({note, slice("1", tail), note});
        const Bytes one = header({note, slice("010", tail), note});
        const Bytes six = header({note, slice("00111", tail), note});
        Bytes packet = zero;
        EXPECT_TRUE(numbers->set(packet, 1));
        EXPECT_EQ(packet, one) << tail;
        EXPECT_TRUE(numbers->set(packet, 1));
        EXPECT_EQ(packet, one) << tail;
        EXPECT_TRUE(numbers->set(packet, 6));
        EXPECT_EQ(packet, six) << tail;
        EXPECT_TRUE(numbers->set(packet, 0));
        EXPECT_EQ(packet, zero) << tail;
    }
}

TEST(KeyFrameIdentifiers, AreThoseOfAllSlices)
{
    const auto numbers = identifiers();
    ASSERT_TRUE(numbers);
    Bytes packet = header({slice("1", 20), slice("010", 30), slice("1", 40)});
    EXPECT_TRUE(numbers->set(packet, 1));
    EXPECT_EQ(packet, header({slice("010", 20), slice("010", 30), slice("010", 40)}));
}

TEST(KeyFrameIdentifiers, AreNotThereInOtherPackets)
{
    const auto numbers = identifiers();
    ASSERT_TRUE(numbers);
    // Another kind of slice, what stands before a start code, and zeros at the end stay.
    Bytes other = slice("1", 20);
    other.front() = 0x61;
    Bytes packet = header({other});
    packet.insert(packet.end(), {0, 0});
    const Bytes before = packet;
    EXPECT_TRUE(numbers->set(packet, 1));
    EXPECT_EQ(packet, before);
    for (Bytes broken :
         {Bytes{}, Bytes{1, 2, 3}, header({{0x65}}), header({{0x65, 0x88, 0x80}}), header({{0x65, 0, 3, 1}})}) {
        const Bytes kept = broken;
        EXPECT_FALSE(numbers->set(broken, 1));
        EXPECT_EQ(broken, kept);
    }
}

TEST(KeyFrameIdentifiers, AreNotReadFromHeadersOfOtherKinds)
{
    const auto read = [](const Bytes& bytes) { return KeyFrameIdentifiers::ofHeader(bytes).has_value(); };
    const Bytes set = startOfSet().add("0").unit();
    EXPECT_TRUE(read(header({set, pictureSet("0")})));
    EXPECT_FALSE(read(header({set, pictureSet("1")}))) << "arithmetic coding";
    EXPECT_FALSE(read(header({set}))) << "no picture set";
    EXPECT_FALSE(read(header({pictureSet("0")}))) << "no sequence";
    EXPECT_FALSE(read({}));
    EXPECT_FALSE(read(header({set, {0x68}})));
    const Bytes fields = Bits()
                             .number(0x67, 8)
                             .number(66, 8)
                             .number(0xC0, 8)
                             .number(30, 8)
                             .add("1 1 011 1 0 00100 011 0 0 1 0 0")
                             .unit();
    EXPECT_FALSE(read(header({fields, pictureSet("0")}))) << "half pictures";
}

} // namespace
} // namespace platform
