#include "platform/bytes/ByteReader.h"

#include <vector>

#include <gtest/gtest.h>

using namespace platform;

namespace {

const std::vector<uint8_t> kBytes = {0x01, 0x82, 0x03, 0x84, 0x05, 0x06, 0x07, 0x08, 0xF9};

} // namespace

TEST(ByteReader, TakesTheFirstByteForTheHighestOrForTheLowest)
{
    EXPECT_EQ(bigEndian16(kBytes, 1), 0x8203);
    EXPECT_EQ(littleEndian16(kBytes, 1), 0x0382);
    EXPECT_EQ(bigEndian32(kBytes, 1), 0x82038405U);
    EXPECT_EQ(littleEndian32(kBytes, 0), 0x84038201U);
    EXPECT_EQ(bigEndian64(kBytes, 1), 0x82038405060708F9U);
    EXPECT_EQ(littleEndian64(kBytes, 1), 0xF908070605840382U);
}

TEST(ByteReader, ReadsUpToTheLastByteAndNotBeyond)
{
    EXPECT_EQ(bigEndian16(kBytes, 7), 0x08F9);
    EXPECT_EQ(bigEndian16(kBytes, 8), std::nullopt);
    EXPECT_EQ(littleEndian16(kBytes, 8), std::nullopt);
    EXPECT_EQ(littleEndian32(kBytes, 5), 0xF9080706U);
    EXPECT_EQ(bigEndian32(kBytes, 6), std::nullopt);
    EXPECT_EQ(littleEndian32(kBytes, 6), std::nullopt);
    EXPECT_EQ(bigEndian64(kBytes, 2), std::nullopt);
    EXPECT_EQ(littleEndian64(kBytes, 2), std::nullopt);
}

TEST(ByteReader, FindsNothingAtAPlaceThatNoFileHas)
{
    EXPECT_EQ(bigEndian16(kBytes, SIZE_MAX), std::nullopt);
    EXPECT_EQ(littleEndian32(kBytes, SIZE_MAX - 2), std::nullopt);
    EXPECT_EQ(bigEndian32({}, 0), std::nullopt);
}

TEST(ByteReader, MakesOneNumberOfAsManyBytesAsThereAre)
{
    EXPECT_EQ(bigEndianNumber({}), 0U);
    EXPECT_EQ(bigEndianNumber(std::span(kBytes).first(3)), 0x018203U);
    EXPECT_EQ(littleEndianNumber(std::span(kBytes).first(3)), 0x038201U);
}
