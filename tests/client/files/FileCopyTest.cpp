#include "client/files/FileCopy.h"

#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <sys/stat.h>

namespace stillora {

namespace {

std::string contentOf(const std::string& path)
{
    std::string content(std::filesystem::file_size(path), '\0');
    std::ifstream file(path, std::ios::binary);
    EXPECT_TRUE(file.read(content.data(), static_cast<std::streamsize>(content.size())));
    return content;
}

blkcnt_t blocksOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return status.st_blocks;
}

/// Bytes with nothing before, between and behind them; the file's path.
std::string makeFileWithHoles(const TemporaryFolder& folder)
{
    constexpr std::streamoff kHole = 24 << 20;
    const std::string path = folder.path("from");
    std::ofstream file(path, std::ios::binary);
    file.seekp(kHole) << "some";
    file.seekp(2 * kHole) << "more";
    file.close();
    std::filesystem::resize_file(path, 3 * kHole);
    return path;
}

} // namespace

TEST(FileCopy, HoldsNothingWhereTheFileHoldsNothing)
{
    const TemporaryFolder folder;
    const std::string from = makeFileWithHoles(folder);
    const std::string to = folder.makeFile("to", "");
    uint64_t copied = 0;
    ASSERT_TRUE(copyContents(from, to, [&](uint64_t count) {
        copied += count;
        return true;
    }));
    EXPECT_EQ(copied, std::filesystem::file_size(from)) << "all of it is told of";
    EXPECT_TRUE(contentOf(to) == contentOf(from));
    // A file system may set aside a few blocks beside those that are written.
    EXPECT_LE(blocksOf(to), blocksOf(from) + 1024);
}

TEST(FileCopy, IsStoppedInAHole)
{
    const TemporaryFolder folder;
    const std::string to = folder.makeFile("to", "");
    EXPECT_FALSE(copyContents(makeFileWithHoles(folder), to, [](uint64_t) { return false; }));
}

} // namespace stillora
