#include "platform/foundation/NSError.h"

#include <cerrno>
#include <gtest/gtest.h>

using namespace platform;

TEST(NSError, IsWrittenOnlyWhereOneIsWanted)
{
    EXPECT_FALSE(fail(nullptr, kNSCocoaErrorDomain, 4, "gone"));
    NSError error;
    EXPECT_FALSE(fail(&error, kNSCocoaErrorDomain, 4, "gone"));
    EXPECT_EQ(error, (NSError{"NSCocoaErrorDomain", 4, "gone"}));
}

TEST(NSError, TakesItsCodeFromTheSystemsReason)
{
    struct Row {
        int errnoValue;
        FileAccess access;
        std::string_view domain;
        int64_t code;
    };
    for (const Row& row : {
             Row{ENOENT, FileAccess::Writing, kNSCocoaErrorDomain, 4},
             Row{ENOENT, FileAccess::Reading, kNSCocoaErrorDomain, 260},
             Row{EACCES, FileAccess::Writing, kNSCocoaErrorDomain, 513},
             Row{EACCES, FileAccess::Reading, kNSCocoaErrorDomain, 257},
             Row{EEXIST, FileAccess::Writing, kNSCocoaErrorDomain, 516},
             Row{ENOSPC, FileAccess::Writing, kNSCocoaErrorDomain, 640},
             Row{EROFS, FileAccess::Writing, kNSCocoaErrorDomain, 642},
             Row{EIO, FileAccess::Writing, kNSPOSIXErrorDomain, EIO},
         }) {
        NSError error;
        EXPECT_FALSE(failWithErrno(&error, row.errnoValue, "\"/a\" could not be moved", row.access));
        EXPECT_EQ(error.domain, row.domain) << row.errnoValue;
        EXPECT_EQ(error.code, row.code) << row.errnoValue;
        EXPECT_TRUE(error.localizedDescription.starts_with("\"/a\" could not be moved: "));
    }
}

TEST(NSError, SaysTheSystemsReason)
{
    NSError error;
    EXPECT_FALSE(failWithErrno(&error, ENOSPC, "\"/a\" could not be written"));
    EXPECT_EQ(error.localizedDescription, "\"/a\" could not be written: No space left on device");
}

TEST(NSError, IsTextEvenWhereAFileNameIsNot)
{
    NSError error;
    EXPECT_FALSE(fail(&error, kNSCocoaErrorDomain, 4,
                      "a\xFF"
                      "b is gone"));
    EXPECT_EQ(error.localizedDescription, "a\uFFFDb is gone");
}
