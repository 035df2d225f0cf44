#include <stillora/Movie.h>
#include <stillora/Picture.h>

#include "client/DataBytes.h"
#include "client/FileReader.h"
#include "client/LocalizedText.h"
#include "client/WatermarkChoice.h"
#include "client/reader/Questions.h"
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

/// Why nothing was read of a file.
Error unread(const Error& error, const std::filesystem::path& file)
{
    return {error.code, file, fmt::format("{}: {}", file.native(), error.message)};
}

} // namespace

Result<Frame> renderFrame(const PhotoFacts& photo, const FrameStyle& style)
{
    const Size size = frameSizeForQuality(style.quality, {photo});
    const auto frame = FileReader::shared().ask(
        FrameQuestion{.file = photo.path,
                      .photoSize = photo.size,
                      .frame = size,
                      .reducesBorders = style.reducesBorders,
                      .carriesWatermark = drawsWatermark(style.watermark) && carriesWatermark(0, 1),
                      .showsFaces = style.showsFaces});
    if (!frame)
        return unread(frame.error(), photo.path);
    if (!*frame)
        return Error{ErrorCode::Unsupported, photo.path,
                     localized("{}: no frame could be made of it", photo.path.native())};
    auto picture = pngOf(**frame);
    if (!picture)
        return picture.error();
    return Frame{*std::move(picture), size, static_cast<std::size_t>((*frame)->faceCount)};
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

Result<Bytes> pictureAsPNG(std::span<const std::byte> picture)
{
    const auto decoded = FileReader::shared().ask(PictureQuestion{{picture.begin(), picture.end()}});
    if (!decoded || !*decoded)
        return Error{ErrorCode::Unsupported, {}, localized("this is no picture that can be read")};
    return pngOf(**decoded);
}

} // namespace stillora
