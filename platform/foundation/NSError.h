#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

inline constexpr std::string_view kNSCocoaErrorDomain = "NSCocoaErrorDomain";
inline constexpr std::string_view kNSPOSIXErrorDomain = "NSPOSIXErrorDomain";
inline constexpr std::string_view kAVFoundationErrorDomain = "AVFoundationErrorDomain";

/// Codes of the Cocoa domain that this project hands out.
inline constexpr int64_t kNSFileNoSuchFileError = 4;
inline constexpr int64_t kNSFileReadUnknownError = 256;
inline constexpr int64_t kNSFileReadNoPermissionError = 257;
inline constexpr int64_t kNSFileReadCorruptFileError = 259;
inline constexpr int64_t kNSFileReadNoSuchFileError = 260;
inline constexpr int64_t kNSFileWriteUnknownError = 512;
inline constexpr int64_t kNSFileWriteNoPermissionError = 513;
inline constexpr int64_t kNSFileWriteFileExistsError = 516;
inline constexpr int64_t kNSFileWriteOutOfSpaceError = 640;
inline constexpr int64_t kNSFileWriteVolumeReadOnlyError = 642;
inline constexpr int64_t kNSCoderReadCorruptError = 4864;

/// Codes of the AVFoundation domain that this project hands out.
inline constexpr int64_t kAVErrorUnknown = -11800;
inline constexpr int64_t kAVErrorDiskFull = -11807;
inline constexpr int64_t kAVErrorExportFailed = -11820;
inline constexpr int64_t kAVErrorFileAlreadyExists = -11823;
inline constexpr int64_t kAVErrorFileFormatNotRecognized = -11828;
inline constexpr int64_t kAVErrorFileFailedToParse = -11829;
inline constexpr int64_t kAVErrorDecoderNotFound = -11833;
inline constexpr int64_t kAVErrorOperationNotSupportedForAsset = -11838;

/// Why something failed: a domain, a code within it and one sentence that names the file.
struct NSError {
    std::string domain;
    int64_t code = 0;
    std::string localizedDescription;

    friend bool operator==(const NSError&, const NSError&) = default;
};

/// Stores an error where one is wanted and returns false, for use in a `return`. The description may hold file names of
/// any bytes; what is not UTF-8 in it is replaced, as errors travel in messages of text.
bool fail(NSError* error, std::string_view domain, int64_t code, std::string description);

/// What was tried when a system call failed; it decides between the codes for reading and for writing.
enum class FileAccess { Reading, Writing };

/// As above, from an `errno` value: a Cocoa code where one fits, else the POSIX domain. `what` names the file and
/// the operation; the system's reason is added.
bool failWithErrno(NSError* error, int errnoValue, std::string_view what, FileAccess access = FileAccess::Writing);

} // namespace platform
