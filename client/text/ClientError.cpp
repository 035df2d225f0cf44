#include "client/text/ClientError.h"

#include <utility>

namespace stillora {

namespace {

ErrorCode codeOfCocoa(int64_t code)
{
    switch (code) {
    case platform::kNSFileNoSuchFileError:
    case platform::kNSFileReadNoSuchFileError:
        return ErrorCode::FileNotFound;
    case platform::kNSFileWriteFileExistsError:
        return ErrorCode::FileExists;
    case platform::kNSFileReadNoPermissionError:
    case platform::kNSFileWriteNoPermissionError:
    case platform::kNSFileWriteVolumeReadOnlyError:
        return ErrorCode::NoPermission;
    case platform::kNSFileWriteOutOfSpaceError:
        return ErrorCode::DiskFull;
    case platform::kNSFileReadCorruptFileError:
    case platform::kNSCoderReadCorruptError:
        return ErrorCode::Unsupported;
    default:
        return ErrorCode::Failed;
    }
}

ErrorCode codeOfMedia(int64_t code)
{
    switch (code) {
    case platform::kAVErrorDiskFull:
        return ErrorCode::DiskFull;
    case platform::kAVErrorFileAlreadyExists:
        return ErrorCode::FileExists;
    case platform::kAVErrorFileFormatNotRecognized:
    case platform::kAVErrorFileFailedToParse:
    case platform::kAVErrorDecoderNotFound:
    case platform::kAVErrorOperationNotSupportedForAsset:
        return ErrorCode::Unsupported;
    default:
        return ErrorCode::Failed;
    }
}

ErrorCode codeOf(const platform::NSError& error)
{
    if (error.domain == kClientErrorDomain)
        return static_cast<ErrorCode>(error.code);
    if (error.domain == platform::kNSCocoaErrorDomain)
        return codeOfCocoa(error.code);
    if (error.domain == platform::kAVFoundationErrorDomain)
        return codeOfMedia(error.code);
    return ErrorCode::Failed;
}

} // namespace

bool fail(platform::NSError* error, ErrorCode code, std::string description)
{
    return platform::fail(error, kClientErrorDomain, static_cast<int64_t>(code), std::move(description));
}

Error errorOf(platform::NSError error, std::filesystem::path file)
{
    return {codeOf(error), std::move(file), std::move(error.localizedDescription)};
}

} // namespace stillora
