#include "platform/foundation/NSError.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSString.h"

#include <cerrno>
#include <optional>

namespace platform {

namespace {

std::optional<int64_t> cocoaCode(int errnoValue, FileAccess access)
{
    const bool reading = access == FileAccess::Reading;
    switch (errnoValue) {
    case ENOENT:
        return reading ? kNSFileReadNoSuchFileError : kNSFileNoSuchFileError;
    case EACCES:
    case EPERM:
        return reading ? kNSFileReadNoPermissionError : kNSFileWriteNoPermissionError;
    case EEXIST:
        return kNSFileWriteFileExistsError;
    case ENOSPC:
    case EDQUOT:
        return kNSFileWriteOutOfSpaceError;
    case EROFS:
        return kNSFileWriteVolumeReadOnlyError;
    default:
        return std::nullopt;
    }
}

} // namespace

bool fail(NSError* error, std::string_view domain, int64_t code, std::string description)
{
    if (error)
        *error = {std::string(domain), code,
                  isValidUTF8(description) ? std::move(description) : stringByReplacingInvalidUTF8(description)};
    return false;
}

bool failWithErrno(NSError* error, int errnoValue, std::string_view what, FileAccess access)
{
    std::string description = localized("{}: {}", {what, reasonOfErrno(errnoValue)});
    if (const auto code = cocoaCode(errnoValue, access))
        return fail(error, kNSCocoaErrorDomain, *code, std::move(description));
    return fail(error, kNSPOSIXErrorDomain, errnoValue, std::move(description));
}

} // namespace platform
