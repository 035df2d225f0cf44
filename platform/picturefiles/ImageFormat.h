#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace platform {

/// Bytes of a file's start that are enough to recognise its format.
inline constexpr size_t kImageFormatBytes = 256;

/// The format of a picture file by its first bytes: "jpeg", "png", "webp", "heic", "avif", "tiff", "gif", "bmp" or
/// "jp2"; empty for anything else.
std::string_view imageFormatOfContent(std::span<const uint8_t> start);

/// Whether a file begins as those that cameras keep their sensor's picture in, beside those that are TIFF files.
bool isCameraRawContent(std::span<const uint8_t> start);

/// The MIME type of one of these formats; empty for another.
std::string_view mimeTypeOfImageFormat(std::string_view format);

} // namespace platform
