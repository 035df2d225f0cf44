#include "platform/picturefiles/PictureEnd.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

using namespace platform;

TEST(PictureEnd, IsFoundWhereverItLies)
{
    constexpr std::array<uint8_t, 3> kMark = {1, 2, 3};
    constexpr size_t kLength = 3'000'000;
    constexpr size_t kStart = 100;
    // Around the start, the edges of what is read at a time, and the end.
    for (const size_t middle :
         {kStart, kStart + (size_t{1} << 20), kStart + (size_t{2} << 20), kLength - 65536, kLength})
        for (size_t place = middle - 5; place < middle + 5; ++place) {
            std::vector<uint8_t> bytes(std::max(kLength, place + kMark.size()));
            std::ranges::copy(kMark, bytes.begin() + static_cast<ssize_t>(place));
            bytes.resize(kLength);
            const auto file = ImageFile::withData(std::move(bytes), "file", nullptr);
            ASSERT_NE(file, nullptr);
            EXPECT_EQ(hasMarkBehind(*file, kStart, kMark), place >= kStart && place + kMark.size() <= kLength) << place;
        }
}

TEST(PictureEnd, IsNotInAFileThatIsTooShort)
{
    constexpr std::array<uint8_t, 2> kMark = {1, 2};
    for (const size_t start : {size_t{0}, size_t{1}, size_t{2}, size_t{9}}) {
        const auto file = ImageFile::withData({1, 2}, "file", nullptr);
        EXPECT_EQ(hasMarkBehind(*file, start, kMark), start == 0) << start;
    }
}
