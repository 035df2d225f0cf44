#include "platform/system/NSWorkspace.h"

#include "platform/foundation/Handle.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSString.h"
#include "platform/picturefiles/ImageFormat.h"

#include <gio/gio.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <utility>

namespace platform {

namespace {

using TextPtr = Handle<char, g_free>;

/// The types that this project deals in, for machines without a database of types.
constexpr std::array<std::pair<std::string_view, std::string_view>, 27> kTypes = {{
    {"jpg", "image/jpeg"},    {"jpeg", "image/jpeg"},     {"png", "image/png"},        {"gif", "image/gif"},
    {"webp", "image/webp"},   {"heic", "image/heic"},     {"heif", "image/heif"},      {"avif", "image/avif"},
    {"tif", "image/tiff"},    {"tiff", "image/tiff"},     {"bmp", "image/bmp"},        {"jp2", "image/jp2"},
    {"j2k", "image/jp2"},     {"jpf", "image/jp2"},       {"mov", "video/quicktime"},  {"mp4", "video/mp4"},
    {"m4v", "video/mp4"},     {"avi", "video/x-msvideo"}, {"mkv", "video/x-matroska"}, {"webm", "video/webm"},
    {"m4a", "audio/mp4"},     {"mp3", "audio/mpeg"},      {"wav", "audio/x-wav"},      {"aif", "audio/x-aiff"},
    {"aiff", "audio/x-aiff"}, {"flac", "audio/flac"},     {"aac", "audio/aac"},
}};

bool isUnknown(std::string_view type)
{
    return type.empty() || type == "application/octet-stream" || type == "application/x-zerosize";
}

std::string typeOfContent(std::span<const uint8_t> start)
{
    if (const auto format = imageFormatOfContent(start); !format.empty())
        return std::string(mimeTypeOfImageFormat(format));
    if (start.empty())
        return {};
    const TextPtr type(g_content_type_guess(nullptr, start.data(), start.size(), nullptr));
    const TextPtr mime(type ? g_content_type_get_mime_type(type.get()) : nullptr);
    return mime && !isUnknown(mime.get()) ? std::string(mime.get()) : std::string();
}

} // namespace

NSWorkspace& NSWorkspace::sharedWorkspace()
{
    static NSWorkspace workspace;
    return workspace;
}

std::string NSWorkspace::typeOfExtension(std::string_view fileExtension)
{
    const std::string lower = lowercaseASCII(fileExtension);
    if (lower.empty())
        return {};
    const auto* const known = std::ranges::find(kTypes, lower, [](const auto& entry) { return entry.first; });
    if (known != kTypes.end())
        return std::string(known->second);
    const std::string name = "file." + lower;
    const TextPtr type(g_content_type_guess(name.c_str(), nullptr, 0, nullptr));
    const TextPtr mime(type ? g_content_type_get_mime_type(type.get()) : nullptr);
    return mime && !isUnknown(mime.get()) ? std::string(mime.get()) : std::string();
}

std::optional<std::string> NSWorkspace::typeOfFile(const NSURL& url, NSError* error) const
{
    const int descriptor = open(url.path().c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        failWithErrno(error, errno, localized("{} cannot be opened", {url.lastPathComponent()}));
        return std::nullopt;
    }
    // As much as any of the known signatures needs.
    std::array<uint8_t, 4096> start{};
    struct stat status {};
    const bool isFile = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const ssize_t length = isFile ? read(descriptor, start.data(), start.size()) : -1;
    const int reason = errno;
    close(descriptor);
    if (!isFile) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadUnknownError,
             localized("{} is no regular file", {url.lastPathComponent()}));
        return std::nullopt;
    }
    if (length < 0) {
        failWithErrno(error, reason, localized("{} cannot be read", {url.lastPathComponent()}));
        return std::nullopt;
    }
    std::string type = typeOfContent(std::span(start).first(static_cast<size_t>(length)));
    if (type.empty())
        type = typeOfExtension(url.pathExtension());
    return type.empty() ? "application/octet-stream" : type;
}

} // namespace platform
