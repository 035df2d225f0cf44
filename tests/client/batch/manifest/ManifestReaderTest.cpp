#include "client/batch/manifest/ManifestReader.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

using namespace stillora;

namespace {

struct Seen {
    size_t number;
    int64_t offset;
    std::string text;

    friend bool operator==(const Seen&, const Seen&) = default;
};

class ManifestReaderTest : public testing::Test {
protected:
    ManifestReader readerOf(const std::string& content)
    {
        std::ofstream(file_, std::ios::binary) << content;
        auto reader = ManifestReader::open(file_);
        EXPECT_TRUE(reader);
        return *std::move(reader);
    }

    static std::vector<Seen> rest(ManifestReader& reader)
    {
        std::vector<Seen> lines;
        while (const auto line = reader.next())
            lines.push_back({line->number, line->offset, line->text ? std::string(*line->text) : "too long"});
        return lines;
    }

    TemporaryFolder folder_;
    const std::string file_ = folder_.path() + "/list.jsonl";
};

} // namespace

TEST_F(ManifestReaderTest, NumbersLinesAndTellsWhereTheyBegin)
{
    auto reader = readerOf("ab\n\nc\n");
    EXPECT_EQ(rest(reader), (std::vector<Seen>{{1, 0, "ab"}, {2, 3, ""}, {3, 4, "c"}}));
    EXPECT_EQ(reader.failure(), 0);
}

TEST_F(ManifestReaderTest, TakesALastLineWithoutAnEnd)
{
    auto reader = readerOf("ab\nc");
    EXPECT_EQ(rest(reader), (std::vector<Seen>{{1, 0, "ab"}, {2, 3, "c"}}));
    auto empty = readerOf("");
    EXPECT_EQ(rest(empty), std::vector<Seen>{});
}

TEST_F(ManifestReaderTest, ReadsLinesThatAreLongerThanAPiece)
{
    const std::string line(700'000, 'x');
    auto reader = readerOf(line + "\ny\n" + line);
    EXPECT_EQ(rest(reader), (std::vector<Seen>{{1, 0, line}, {2, 700'001, "y"}, {3, 700'003, line}}));
}

TEST_F(ManifestReaderTest, PassesOverALineThatIsTooLong)
{
    const std::string longest(ManifestReader::kLongestLine, 'x');
    auto reader = readerOf(longest + "\n" + longest + "x\n" + longest + longest + longest + "\ny\n" + longest + "x");
    const auto lines = rest(reader);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_EQ(lines[0].text.size(), longest.size());
    EXPECT_EQ(lines[1].text, "too long");
    EXPECT_EQ(lines[2].text, "too long");
    EXPECT_EQ(lines[3].text, "y");
    EXPECT_EQ(lines[4].text, "too long");
}

TEST_F(ManifestReaderTest, GoesOnAtALine)
{
    auto reader = readerOf("ab\n\nc\nd\n");
    reader.next();
    reader.seek(3, 4);
    EXPECT_EQ(rest(reader), (std::vector<Seen>{{3, 4, "c"}, {4, 6, "d"}}));
}

TEST_F(ManifestReaderTest, NamesAFileThatIsNotThere)
{
    const auto reader = ManifestReader::open(file_);
    ASSERT_FALSE(reader);
    EXPECT_EQ(reader.error().code, ErrorCode::FileNotFound);
    EXPECT_NE(reader.error().message.find(file_), std::string::npos);
    EXPECT_FALSE(ManifestReader::open(folder_.path()));
}
