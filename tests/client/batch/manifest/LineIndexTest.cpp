#include "client/batch/manifest/LineIndex.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

using namespace stillora;

namespace {

using Pairs = std::vector<std::pair<size_t, size_t>>;

class LineIndexTest : public testing::Test {
protected:
    LineIndex emptyIndex()
    {
        platform::FileDescriptor file(open(file_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
        return LineIndex(std::move(file), {10, 20});
    }

    static std::string keyOf(size_t number)
    {
        return fmt::format("{:016x}{:016x}", number * 0x9E3779B97F4A7C15, ~number);
    }

    static Pairs duplicatesOf(const LineIndex& index)
    {
        Pairs pairs;
        index.forEachDuplicate([&](size_t line, size_t earlier) { pairs.emplace_back(line, earlier); });
        return pairs;
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_.path() + "/lines";
};

} // namespace

TEST_F(LineIndexTest, IsReadAsItWasWritten)
{
    LineIndex written = emptyIndex();
    written.add(0, keyOf(1));
    written.add(30, "");
    written.add(40, keyOf(3));
    ASSERT_EQ(written.finish(), 0);

    const auto index = LineIndex::open(file_);
    ASSERT_TRUE(index);
    EXPECT_EQ(index->manifest(), (FileStamp{10, 20}));
    EXPECT_EQ(index->lineCount(), 3u);
    EXPECT_EQ(index->movieCount(), 2u);
    EXPECT_EQ(index->entry(3)->offset, 40);
    EXPECT_EQ(index->entry(3)->keyText(), keyOf(3));
    EXPECT_FALSE(index->entry(2)->hasMovie());
    EXPECT_FALSE(index->entry(4));
}

TEST_F(LineIndexTest, IsNoneWhereItWasNotFinished)
{
    LineIndex written = emptyIndex();
    for (size_t i = 1; i <= 10'000; ++i)
        written.add(0, keyOf(i));
    EXPECT_FALSE(LineIndex::open(file_));
    ASSERT_EQ(written.finish(), 0);
    EXPECT_TRUE(LineIndex::open(file_));
}

TEST_F(LineIndexTest, IsNoneWhereItClaimsWhatItDoesNotHold)
{
    LineIndex written = emptyIndex();
    for (size_t i = 1; i <= 3; ++i)
        written.add(0, keyOf(i));
    ASSERT_EQ(written.finish(), 0);
    const std::string whole = TemporaryFolder::contentsOf(file_);
    EXPECT_TRUE(LineIndex::open(file_));
    for (const size_t length : {size_t{0}, whole.size() - 1, whole.size() - 24}) {
        folder_.makeFile("lines", whole.substr(0, length));
        EXPECT_FALSE(LineIndex::open(file_)) << length;
    }
    folder_.makeFile("lines", whole + "x");
    EXPECT_FALSE(LineIndex::open(file_));
    // The counts of lines and of movies are the last numbers of the head.
    for (const size_t place : {32, 40})
        for (const char* count : {"\4\0\0\0\0\0\0\0", "\0\0\0\0\0\0\0\100"}) {
            std::string claims = whole;
            claims.replace(place, 8, count, 8);
            folder_.makeFile("lines", claims);
            EXPECT_FALSE(LineIndex::open(file_)) << place;
        }
}

TEST_F(LineIndexTest, HandsOverAllLinesInTheirOrder)
{
    LineIndex index = emptyIndex();
    for (size_t i = 1; i <= 10'000; ++i)
        index.add(static_cast<int64_t>(i), keyOf(i));
    ASSERT_EQ(index.finish(), 0);
    size_t expected = 1;
    index.forEach([&](size_t line, const LineIndex::Entry& entry) {
        EXPECT_EQ(line, expected);
        EXPECT_EQ(entry.offset, static_cast<int64_t>(expected++));
        return line < 9'000;
    });
    EXPECT_EQ(expected, 9'001u);
}

TEST_F(LineIndexTest, TellsLinesWithTheKeyOfAnEarlierOne)
{
    LineIndex index = emptyIndex();
    for (const size_t number : {1, 2, 1, 3, 2, 1})
        index.add(0, keyOf(number));
    index.add(0, "");
    index.add(0, "");
    ASSERT_EQ(index.finish(), 0);
    EXPECT_EQ(duplicatesOf(index), (Pairs{{3, 1}, {5, 2}, {6, 1}}));
}

TEST_F(LineIndexTest, FindsTheSameAmongMoreThanFitIntoMemoryAtATime)
{
    constexpr size_t kCount = 600'000;
    LineIndex index = emptyIndex();
    for (size_t i = 1; i <= kCount; ++i)
        index.add(0, keyOf(i % 200'000 == 0 ? 17 : i));
    ASSERT_EQ(index.finish(), 0);
    EXPECT_EQ(duplicatesOf(index), (Pairs{{200'000, 17}, {400'000, 17}, {600'000, 17}}));
}

TEST_F(LineIndexTest, SharesTurnsAmongTasks)
{
    LineIndex index = emptyIndex();
    for (const size_t turns : {1, 4, 1, 2})
        index.add(0, keyOf(turns), turns);
    ASSERT_EQ(index.finish(), 0);
    const auto read = LineIndex::open(file_);
    ASSERT_TRUE(read);
    EXPECT_EQ(read->turnCount(), 8u);
    const auto shares = [&](size_t tasks) {
        Pairs lines;
        for (size_t task = 1; task <= tasks; ++task)
            lines.emplace_back(read->share(task, tasks).first, read->share(task, tasks).last);
        return lines;
    };
    EXPECT_EQ(shares(1), (Pairs{{1, 4}}));
    EXPECT_EQ(shares(2), (Pairs{{1, 2}, {2, 4}}));
    EXPECT_EQ(shares(4), (Pairs{{1, 2}, {2, 2}, {2, 3}, {4, 4}}));
    EXPECT_EQ(shares(8), (Pairs{{1, 1}, {2, 2}, {2, 2}, {2, 2}, {2, 2}, {3, 3}, {4, 4}, {4, 4}}));
    EXPECT_LT(read->share(1, 20).last, read->share(1, 20).first) << "more tasks than turns";
}

TEST_F(LineIndexTest, SharesLinesWhereEachHasOneTurn)
{
    LineIndex index = emptyIndex();
    for (size_t i = 1; i <= 7; ++i)
        index.add(0, keyOf(i));
    ASSERT_EQ(index.finish(), 0);
    EXPECT_EQ(index.share(2, 3).first, 3u);
    EXPECT_EQ(index.share(2, 3).last, 4u);
}
