#include "platform/picturefiles/ImageFormat.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using platform::imageFormatOfContent;
using namespace std::string_literals;

namespace {

std::string_view formatOf(const std::string& start)
{
    return imageFormatOfContent({reinterpret_cast<const uint8_t*>(start.data()), start.size()});
}

} // namespace

TEST(ImageFormat, IsRecognisedByContent)
{
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"\xFF\xD8\xFF\xE0"s, "jpeg"},
        {"\x89PNG\r\n\x1A\n"s, "png"},
        {"GIF87a"s, "gif"},
        {"GIF89a"s, "gif"},
        {"II*\0"s, "tiff"},
        {"MM\0*"s, "tiff"},
        {"RIFF\0\0\0\0WEBPVP8 "s, "webp"},
        {"\0\0\0\x0CjP  \r\n\x87\n"s, "jp2"},
        {"\xFF\x4F\xFF\x51"s, "jp2"},
        {"\0\0\0\x18"
         "ftypheic\0\0\0\0mif1heic"s,
         "heic"},
        {"\0\0\0\x18"
         "ftypmif1\0\0\0\0mif1heic"s,
         "heic"},
        {"\0\0\0\x18"
         "ftypmif1\0\0\0\0mif1avif"s,
         "avif"},
        {"\0\0\0\x18"
         "ftypavif\0\0\0\0mif1miaf"s,
         "avif"},
        {"BM\0\0\0\0\0\0\0\0\0\0\0\0\x28\0\0\0"s, "bmp"},
    };
    for (const auto& [start, format] : rows)
        EXPECT_EQ(formatOf(start), format);
}

TEST(ImageFormat, IsUnknownForOtherFiles)
{
    for (const auto& start : {""s, "B"s, "BM is how this text begins"s, "hello"s, "\xFF\xD8"s, "RIFF\0\0\0\0WAVE"s,
                              "\0\0\0\x18"
                              "ftypmp42\0\0\0\0mp41isom"s,
                              "\0\0\0\x08"
                              "ftyp"s,
                              "%PDF-1.4"s, "<svg "s})
        EXPECT_EQ(formatOf(start), "") << start;
}

TEST(ImageFormat, HasAPictureTypeForEach)
{
    for (const std::string_view format : {"jpeg", "png", "webp", "heic", "avif", "tiff", "gif", "bmp", "jp2"})
        EXPECT_TRUE(platform::mimeTypeOfImageFormat(format).starts_with("image/")) << format;
    EXPECT_EQ(platform::mimeTypeOfImageFormat("txt"), "");
}
