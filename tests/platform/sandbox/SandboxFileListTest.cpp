#include "platform/sandbox/SandboxFileList.h"

#include <cerrno>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::FileDescriptor;
using platform::NSError;
using platform::readSandboxFiles;
using platform::SandboxFiles;
using platform::writeSandboxFiles;
using testing::ElementsAre;

namespace {

FileDescriptor fileOf(std::string_view text)
{
    FileDescriptor file(memfd_create("test", MFD_CLOEXEC));
    EXPECT_EQ(write(file.get(), text.data(), text.size()), static_cast<ssize_t>(text.size()));
    return file;
}

} // namespace

TEST(SandboxFileList, IsReadAsItWasWritten)
{
    const SandboxFiles files{.readable = {"/photos/a b\n.jpg", "w", ""}, .writable = {"/job"}};
    const FileDescriptor list = writeSandboxFiles(files);
    ASSERT_TRUE(list);
    for (int i = 0; i < 2; ++i) {
        const auto read = readSandboxFiles(list.get());
        ASSERT_TRUE(read);
        EXPECT_THAT(read->readable, ElementsAre("/photos/a b\n.jpg", "w", ""));
        EXPECT_THAT(read->writable, ElementsAre("/job"));
    }
}

TEST(SandboxFileList, OfManyPhotosIsReadWhole)
{
    SandboxFiles files;
    for (int i = 0; i < 20'000; ++i)
        files.readable.push_back("/photos/photo " + std::to_string(i) + ".jpg");
    const auto read = readSandboxFiles(writeSandboxFiles(files).get());
    ASSERT_TRUE(read);
    EXPECT_EQ(read->readable, files.readable);
}

TEST(SandboxFileList, IsNotChangedByWhoeverHoldsIt)
{
    const FileDescriptor list = writeSandboxFiles({.readable = {"/photo"}, .writable = {}});
    EXPECT_LT(write(list.get(), "w/\0", 3), 0);
    EXPECT_EQ(errno, EPERM);
    EXPECT_LT(ftruncate(list.get(), 0), 0);
    EXPECT_LT(ftruncate(list.get(), 4096), 0);
}

TEST(SandboxFileList, WithoutEntriesAllowsNothing)
{
    const auto read = readSandboxFiles(fileOf("").get());
    ASSERT_TRUE(read);
    EXPECT_TRUE(read->readable.empty() && read->writable.empty());
}

TEST(SandboxFileList, OfAnotherKindIsRefused)
{
    using namespace std::string_view_literals;
    for (const auto text : {"r/photo"sv, "x/photo\0"sv, "r/photo\0\0"sv, "r/photo\0w"sv}) {
        NSError error;
        EXPECT_FALSE(readSandboxFiles(fileOf(text).get(), &error)) << text;
        EXPECT_THAT(error.localizedDescription, testing::HasSubstr("is none")) << text;
    }
    NSError error;
    EXPECT_FALSE(readSandboxFiles(-1, &error));
    EXPECT_THAT(error.localizedDescription, testing::HasSubstr("the list of files in descriptor -1 cannot be read"));
}
