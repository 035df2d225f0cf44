#include "platform/bytes/GivenFile.h"

#include "platform/bytes/ByteSource.h"
#include "tests/support/TemporaryFolder.h"

#include <array>
#include <cerrno>

#include <fcntl.h>
#include <gtest/gtest.h>

using namespace platform;

namespace {

char firstByteAt(const std::string& path)
{
    const FileBytes file(path);
    std::array<uint8_t, 1> byte{};
    return file.read(0, byte) ? static_cast<char>(byte[0]) : '-';
}

FileDescriptor opened(const std::string& path)
{
    return FileDescriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

TEST(GivenFile, StandsForItsPathAsLongAsItLives)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("here", "a");
    const std::string other = folder.makeFile("other", "bcd");
    {
        const GivenFile given(path, opened(other));
        EXPECT_EQ(firstByteAt(path), 'b');
        EXPECT_EQ(FileState::ofFile(path).size, 3);
        EXPECT_EQ(firstByteAt(other), 'b');
    }
    EXPECT_EQ(firstByteAt(path), 'a');
    EXPECT_EQ(FileState::ofFile(path).size, 1);
}

TEST(GivenFile, StandsForAPathWhereThereIsNothing)
{
    const TemporaryFolder folder;
    const GivenFile given("/nowhere/at/all", opened(folder.makeFile("there", "x")));
    EXPECT_EQ(firstByteAt("/nowhere/at/all"), 'x');
}

TEST(GivenFile, CountsAsTheNewestOfItsPath)
{
    const TemporaryFolder folder;
    const GivenFile first("/given", opened(folder.makeFile("first", "1")));
    {
        const GivenFile second("/given", opened(folder.makeFile("second", "2")));
        EXPECT_EQ(firstByteAt("/given"), '2');
    }
    EXPECT_EQ(firstByteAt("/given"), '1');
}

TEST(GivenFile, IsWrittenWhereAFileWasToBeMade)
{
    const TemporaryFolder folder;
    const std::string other = folder.makeFile("other", "");
    {
        const GivenFile given("/nowhere/new", FileDescriptor(open(other.c_str(), O_RDWR | O_CLOEXEC)));
        const FileDescriptor file = makeForWriting("/nowhere/new");
        ASSERT_EQ(write(file.get(), "z", 1), 1);
        EXPECT_EQ(firstByteAt("/nowhere/new"), 'z');
    }
    EXPECT_EQ(firstByteAt(other), 'z');
    EXPECT_FALSE(makeForWriting("/nowhere/new"));
}

TEST(GivenFile, ReplacesNoFileWhereNoneWasGiven)
{
    const TemporaryFolder folder;
    errno = 0;
    EXPECT_FALSE(makeForWriting(folder.makeFile("here", "a")));
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(firstByteAt(folder.path("here")), 'a');
    EXPECT_TRUE(makeForWriting(folder.path("new")));
}

TEST(GivenFile, FailsAsTheOpeningDid)
{
    const TemporaryFolder folder;
    const std::string path = folder.makeFile("here", "a");
    const GivenFile given(path, EACCES);
    errno = 0;
    EXPECT_FALSE(openForReading(path));
    EXPECT_FALSE(makeForWriting(path));
    EXPECT_EQ(errno, EACCES);
    struct stat status = {};
    errno = 0;
    EXPECT_FALSE(statForReading(path, status));
    EXPECT_EQ(errno, EACCES);
}

} // namespace
