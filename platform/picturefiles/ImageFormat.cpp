#include "platform/picturefiles/ImageFormat.h"

#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>
#include <utility>

namespace platform {

namespace {

using namespace std::string_view_literals;

std::string_view text(std::span<const uint8_t> bytes, size_t offset, size_t length)
{
    if (offset > bytes.size() || length > bytes.size() - offset)
        return {};
    return {reinterpret_cast<const char*>(bytes.data()) + offset, length};
}

/// HEIC and AVIF share a container; its brands tell them apart, also where the major one is only "a picture".
std::string_view formatOfBrands(std::span<const uint8_t> start)
{
    const size_t boxLength = bigEndian32(start, 0).value_or(0);
    bool isHEIC = false;
    for (size_t offset = 8; offset + 4 <= std::min(boxLength, start.size()); offset += 4) {
        // The minor version stands between the major brand and the others.
        if (offset == 12)
            continue;
        const auto brand = text(start, offset, 4);
        if (brand == "avif" || brand == "avis")
            return "avif";
        constexpr std::array kHEICBrands = {"heic"sv, "heix"sv, "heim"sv, "heis"sv, "hevc"sv, "hevx"sv, "mif1"sv};
        isHEIC = isHEIC || std::ranges::find(kHEICBrands, brand) != kHEICBrands.end();
    }
    return isHEIC ? "heic" : "";
}

} // namespace

std::string_view imageFormatOfContent(std::span<const uint8_t> start)
{
    constexpr std::array<std::pair<std::string_view, std::string_view>, 10> kSignatures = {{
        {"\xFF\xD8\xFF"sv, "jpeg"},
        {"\x89PNG\r\n\x1A\n"sv, "png"},
        {"GIF87a"sv, "gif"},
        {"GIF89a"sv, "gif"},
        {"II*\0"sv, "tiff"},
        {"MM\0*"sv, "tiff"},
        {"II+\0"sv, "tiff"},
        {"MM\0+"sv, "tiff"},
        {"\0\0\0\x0CjP  \r\n\x87\n"sv, "jp2"},
        {"\xFF\x4F\xFF\x51"sv, "jp2"},
    }};
    for (const auto& [signature, format] : kSignatures)
        if (text(start, 0, signature.size()) == signature)
            return format;
    if (text(start, 0, 4) == "RIFF" && text(start, 8, 4) == "WEBP")
        return "webp";
    if (text(start, 4, 4) == "ftyp")
        return formatOfBrands(start);
    // Two letters alone would take many a text for a picture: the header's length must be a known one.
    if (text(start, 0, 2) == "BM")
        if (const uint32_t header = littleEndian32(start, 14).value_or(0);
            header == 12 || header == 16 || (header >= 40 && header <= 124))
            return "bmp";
    return {};
}

bool isCameraRawContent(std::span<const uint8_t> start)
{
    constexpr std::array kSignatures = {"FUJIFILMCCD-RAW"sv, "IIRO"sv, "IIRS"sv,  "MMOR"sv,
                                        "IIU\0"sv,           "FOVb"sv, "\0MRM"sv, "II\x1A\0\0\0HEAPCCDR"sv};
    return std::ranges::any_of(kSignatures, [&](auto mark) { return text(start, 0, mark.size()) == mark; }) ||
           text(start, 4, 8) == "ftypcrx ";
}

std::string_view mimeTypeOfImageFormat(std::string_view format)
{
    constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kTypes = {{
        {"jpeg", "image/jpeg"},
        {"png", "image/png"},
        {"webp", "image/webp"},
        {"heic", "image/heic"},
        {"avif", "image/avif"},
        {"tiff", "image/tiff"},
        {"gif", "image/gif"},
        {"bmp", "image/bmp"},
        {"jp2", "image/jp2"},
    }};
    const auto* const found = std::ranges::find(kTypes, format, [](const auto& entry) { return entry.first; });
    return found == kTypes.end() ? std::string_view{} : found->second;
}

} // namespace platform
