#include "platform/bytes/ByteSource.h"

#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cstdint>
#include <string>
#include <sys/stat.h>
#include <vector>

#include <gtest/gtest.h>

using namespace platform;

namespace {

void expectABCDE(const ByteSource& source)
{
    ASSERT_EQ(source.size(), 5);
    std::array<uint8_t, 3> three{};
    ASSERT_TRUE(source.read(2, three));
    EXPECT_EQ(std::string(three.begin(), three.end()), "cde");
    EXPECT_TRUE(source.read(5, {}));
    // Part of the bytes is none.
    EXPECT_FALSE(source.read(3, three));
    EXPECT_FALSE(source.read(6, three));
    EXPECT_FALSE(source.read(-1, three));
    EXPECT_FALSE(source.read(INT64_MAX, three));
    EXPECT_FALSE(source.read(INT64_MIN, three));
}

} // namespace

TEST(ByteSource, OfMemoryReadsAllThatIsAskedForOrNothing)
{
    const std::vector<uint8_t> bytes = {'a', 'b', 'c', 'd', 'e'};
    expectABCDE(MemoryBytes(bytes));
    EXPECT_EQ(MemoryBytes({}).size(), 0);
}

TEST(ByteSource, OfAFileReadsAllThatIsAskedForOrNothing)
{
    TemporaryFolder folder;
    expectABCDE(FileBytes(folder.makeFile("file", "abcde")));
}

TEST(ByteSource, OfWhatIsNoRegularFileIsEmpty)
{
    TemporaryFolder folder;
    EXPECT_EQ(FileBytes(folder.path("absent")).size(), 0);
    EXPECT_EQ(FileBytes(folder.path()).size(), 0);
    EXPECT_EQ(FileBytes("/dev/zero").size(), 0);
    // Nobody writes to it; waiting for somebody would take forever.
    ASSERT_EQ(mkfifo(folder.path("pipe").c_str(), 0600), 0);
    EXPECT_EQ(FileBytes(folder.path("pipe")).size(), 0);
}
