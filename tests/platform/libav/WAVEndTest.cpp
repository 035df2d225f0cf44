#include "platform/libav/WAVEnd.h"

#include "tests/support/TestTags.h"

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

using namespace platform;
using namespace testtags;

namespace {

int64_t endOf(const std::string& text)
{
    return endOfWAVFile(MemoryBytes({reinterpret_cast<const uint8_t*>(text.data()), text.size()}));
}

std::string chunk(const std::string& type, const std::string& content, uint64_t claimed)
{
    return type + littleEndian(claimed, 4) + content;
}

std::string file(const std::string& chunks, const std::string& kind = "RIFF")
{
    return kind + littleEndian(chunks.size() + 4, 4) + "WAVE" + chunks;
}

const std::string kFormat = chunk("fmt ", zeros(16), 16);
const std::string kTexts = "INFO" + chunk("INAM", "Title" + zeros(1), 6);

} // namespace

TEST(WAVEnd, TakesAllOfAFileWhoseTextsAreThere)
{
    EXPECT_EQ(endOf(file(kFormat + chunk("LIST", kTexts, kTexts.size()) + chunk("data", zeros(8), 8))), INT64_MAX);
    EXPECT_EQ(endOf(file(kFormat + chunk("data", zeros(8), 8) + chunk("LIST", kTexts, kTexts.size()))), INT64_MAX);
    EXPECT_EQ(endOf(file(kFormat + chunk("data", zeros(8), 80000))), INT64_MAX);
    EXPECT_EQ(endOf(mp3Frames()), INT64_MAX);
    EXPECT_EQ(endOf(""), INT64_MAX);
}

TEST(WAVEnd, EndsBeforeTextsThatClaimMoreThanTheFileHas)
{
    const std::string before = kFormat + chunk("data", zeros(7), 7) + zeros(1);
    EXPECT_EQ(endOf(file(before + chunk("LIST", kTexts, kTexts.size() + 1))), static_cast<int64_t>(12 + before.size()));
    EXPECT_EQ(endOf(file(kFormat + chunk("LIST", kTexts, 0x5100003E))), static_cast<int64_t>(12 + kFormat.size()));
}

TEST(WAVEnd, EndsBeforeTextsThatAreLongerThanAny)
{
    constexpr size_t kTooMuch = (size_t{16} << 20) + 1;
    EXPECT_EQ(endOf(file(kFormat + chunk("LIST", zeros(kTooMuch), kTooMuch))),
              static_cast<int64_t>(12 + kFormat.size()));
}

TEST(WAVEnd, FindsTextsBehindSoundOfAnyLength)
{
    const std::string before = chunk("ds64", littleEndian(1000, 8) + littleEndian(8, 8) + zeros(12), 28) + kFormat +
                               chunk("data", zeros(8), 0xFFFFFFFF);
    EXPECT_EQ(endOf(file(before + chunk("LIST", kTexts, 1000), "RF64")), static_cast<int64_t>(12 + before.size()));
}

TEST(WAVEnd, LooksAtNoMoreChunksThanAnyFileHas)
{
    std::string many;
    for (int i = 0; i < 70000; ++i)
        many += chunk("junk", "", 0);
    EXPECT_LT(endOf(file(many)), static_cast<int64_t>(many.size()));
}
