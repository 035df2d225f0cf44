#include <stillora/Movie.h>
#include <stillora/Picture.h>

#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/service/WatermarkChoice.h"
#include "client/text/DataBytes.h"
#include "client/text/LocalizedText.h"
#include "platform/encoders/ImageEncoder.h"
#include "video/FramePlacement.h"

#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

/// The picture's pixels as a file.
Result<Bytes> pngOf(const PictureAnswer& picture)
{
    const auto file = platform::encodePNG(picture.image, {picture.points.width, picture.points.height});
    if (!file)
        return Error{ErrorCode::Failed, {}, localized("there is not enough memory for the picture")};
    return bytesOf(*file);
}

Pixels pixelsOf(const platform::CGImage& image)
{
    Pixels pixels{static_cast<int>(image.width), static_cast<int>(image.height), image.width * 4, {}};
    pixels.bytes.resize(pixels.rowBytes * image.height);
    std::byte* to = pixels.bytes.data();
    for (size_t y = 0; y < image.height; ++y) {
        const uint8_t* from = image.row(y);
        for (size_t x = 0; x < image.width; ++x, from += 4, to += 4) {
            to[0] = std::byte{from[1]};
            to[1] = std::byte{from[2]};
            to[2] = std::byte{from[3]};
            to[3] = image.hasAlpha ? std::byte{from[0]} : std::byte{0xff};
        }
    }
    return pixels;
}

platform::CGImage imageOf(const Pixels& pixels)
{
    platform::CGImage image{static_cast<size_t>(pixels.width),
                            static_cast<size_t>(pixels.height),
                            static_cast<size_t>(pixels.width) * 4,
                            false,
                            {}};
    image.pixels.resize(image.bytesPerRow * image.height);
    for (size_t y = 0; y < image.height; ++y) {
        const std::byte* from = pixels.bytes.data() + y * pixels.rowBytes;
        uint8_t* to = image.row(y);
        for (size_t x = 0; x < image.width; ++x, from += 4, to += 4) {
            to[0] = std::to_integer<uint8_t>(from[3]);
            to[1] = std::to_integer<uint8_t>(from[0]);
            to[2] = std::to_integer<uint8_t>(from[1]);
            to[3] = std::to_integer<uint8_t>(from[2]);
            image.hasAlpha |= to[0] != 0xff;
        }
    }
    return image;
}

/// Why nothing was read of a file.
Error unread(const Error& error, const std::filesystem::path& file)
{
    return {error.code, file, fmt::format("{}: {}", file.native(), error.message)};
}

} // namespace

namespace {

/// A photo as the frame of a movie, as it is decoded.
Result<PictureAnswer> frameOf(const PhotoFacts& photo, const FrameStyle& style, FramePlace place, std::size_t mostLines)
{
    const auto frame = FileReader::shared().ask(
        FrameQuestion{.file = photo.path,
                      .photoSize = photo.size,
                      .frame = frameSizeForQuality(style.quality, {photo}),
                      .reducesBorders = style.reducesBorders,
                      .carriesWatermark = drawsWatermark(style.watermark) && carriesWatermark(place.index, place.count),
                      .showsFaces = style.showsFaces,
                      .mostLines = mostLines});
    if (!frame)
        return unread(frame.error(), photo.path);
    if (!*frame)
        return Error{ErrorCode::Unsupported, photo.path,
                     localized("{}: no frame could be made of it", photo.path.native())};
    return *frame;
}

} // namespace

Result<Frame> renderFrame(const PhotoFacts& photo, const FrameStyle& style)
{
    const auto frame = frameOf(photo, style, {}, 0);
    if (!frame)
        return frame.error();
    auto picture = pngOf(*frame);
    if (!picture)
        return picture.error();
    return Frame{*std::move(picture), frameSizeForQuality(style.quality, {photo}),
                 static_cast<std::size_t>(frame->faceCount)};
}

Result<FramePixels> drawFrame(const PhotoFacts& photo, const FrameStyle& style, FramePlace place, std::size_t mostLines)
{
    const auto frame = frameOf(photo, style, place, mostLines);
    if (!frame)
        return frame.error();
    return FramePixels{pixelsOf(frame->image), static_cast<std::size_t>(frame->faceCount)};
}

std::optional<Color> averageColorOf(const std::filesystem::path& file)
{
    const auto color = FileReader::shared().ask(ColorQuestion{file});
    return color ? *color : std::nullopt;
}

Result<Bytes> fittedPicture(const std::filesystem::path& file, Size box)
{
    const auto picture = FileReader::shared().ask(FittedQuestion{file, box});
    if (!picture)
        return unread(picture.error(), file);
    return *picture ? pngOf(**picture) : picture->error();
}

Result<Pixels> fittedPixels(const std::filesystem::path& file, Size box)
{
    const auto picture = FileReader::shared().ask(FittedQuestion{file, box});
    if (!picture)
        return unread(picture.error(), file);
    return *picture ? Result(pixelsOf((*picture)->image)) : picture->error();
}

namespace {

/// The pixels of what may be a picture.
Result<PictureAnswer> decoded(std::span<const std::byte> picture)
{
    auto answer = FileReader::shared().ask(PictureQuestion{{picture.begin(), picture.end()}});
    if (!answer || !*answer)
        return Error{ErrorCode::Unsupported, {}, localized("this is no picture that can be read")};
    return *std::move(answer);
}

} // namespace

Result<Bytes> pictureAsPNG(std::span<const std::byte> picture)
{
    const auto answer = decoded(picture);
    return answer ? pngOf(*answer) : answer.error();
}

Result<Pixels> pixelsOfPicture(std::span<const std::byte> picture)
{
    const auto answer = decoded(picture);
    return answer ? Result(pixelsOf(answer->image)) : answer.error();
}

Result<Bytes> pngOfPixels(const Pixels& pixels)
{
    return pngOf({imageOf(pixels), 0, {}});
}

} // namespace stillora
