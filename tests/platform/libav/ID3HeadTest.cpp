#include "platform/libav/ID3Head.h"

#include "tests/support/TestTags.h"

#include <string>

#include <gtest/gtest.h>

using namespace platform;
using namespace testtags;

namespace {

int64_t endOf(const std::string& text)
{
    return endOfID3Tags(MemoryBytes({reinterpret_cast<const uint8_t*>(text.data()), text.size()}));
}

} // namespace

TEST(ID3Head, EndsBehindAllTagsInFront)
{
    const std::string tag = id3Tag(3, id3Text(3, "TIT2", std::string(300, 'a')));
    EXPECT_EQ(endOf(mp3Frames()), 0);
    EXPECT_EQ(endOf(tag + mp3Frames()), static_cast<int64_t>(tag.size()));
    EXPECT_EQ(endOf(tag + tag + mp3Frames()), static_cast<int64_t>(2 * tag.size()));
    EXPECT_EQ(endOf(""), 0);
}

TEST(ID3Head, CountsTheFooterOfATag)
{
    const std::string tag = id3Tag(4, id3Text(4, "TIT2", "Title"), 0x10) + zeros(10);
    EXPECT_EQ(endOf(tag + mp3Frames()), static_cast<int64_t>(tag.size()));
}

TEST(ID3Head, BelievesWhatATagClaimsAndEndsThere)
{
    EXPECT_EQ(endOf("ID3\x03" + zeros(2) + "\xFF\x7F\x7F\xFF"), (int64_t{1} << 28) - 1 + 10);
}
