#include "client/text/ClientError.h"

#include <cerrno>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

TEST(ClientError, OfTheSystemHasACodeOfTheLibrarys)
{
    const struct {
        int reason;
        ErrorCode code;
    } rows[] = {{ENOENT, ErrorCode::FileNotFound}, {EEXIST, ErrorCode::FileExists}, {EACCES, ErrorCode::NoPermission},
                {EROFS, ErrorCode::NoPermission},  {ENOSPC, ErrorCode::DiskFull},   {ELOOP, ErrorCode::Failed}};
    for (const auto& row : rows) {
        platform::NSError error;
        EXPECT_FALSE(platform::failWithErrno(&error, row.reason, "/a cannot be read", platform::FileAccess::Writing));
        const Error seen = errorOf(error, "/a");
        EXPECT_EQ(seen.code, row.code) << seen.message;
        EXPECT_EQ(seen.file, "/a");
        EXPECT_TRUE(seen.message.starts_with("/a cannot be read")) << seen.message;
    }
}

TEST(ClientError, OfTheLibraryKeepsItsCode)
{
    platform::NSError error;
    EXPECT_FALSE(fail(&error, ErrorCode::ServiceStalled, "it hangs"));
    EXPECT_EQ(errorOf(error).code, ErrorCode::ServiceStalled);
    EXPECT_EQ(errorOf(error).message, "it hangs");
}

TEST(ClientError, OfMediaTellsWhatCannotBeRead)
{
    const auto codeOf = [](int64_t code) {
        return errorOf({std::string(platform::kAVFoundationErrorDomain), code, "no"}).code;
    };
    EXPECT_EQ(codeOf(platform::kAVErrorFileFailedToParse), ErrorCode::Unsupported);
    EXPECT_EQ(codeOf(platform::kAVErrorDiskFull), ErrorCode::DiskFull);
    EXPECT_EQ(codeOf(platform::kAVErrorUnknown), ErrorCode::Failed);
}

} // namespace
