#include <stillora/Picture.h>

#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/service/WatermarkChoice.h"
#include "client/text/DataBytes.h"
#include "client/text/LocalizedText.h"
#include "platform/encoders/ImageEncoder.h"
#include "platform/foundation/Lock.h"
#include "platform/graphics/CGBitmapContext.h"
#include "video/FramePlacement.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace stillora {

namespace {

using platform::CGImage;

// Pixels. A sheet is about as wide as a screen, whatever the number of its frames.
constexpr double kSheetWidth = 2400;
constexpr double kWidestFrame = 640;
constexpr double kNarrowestFrame = 60;
constexpr size_t kMostColumns = 40;
constexpr size_t kMargin = 8;
constexpr size_t kLabelHeight = 18;
constexpr double kLabelSize = 12;
/// Of the ground, on which black frames are seen.
constexpr uint8_t kGround = 0x60;

/// Where frames stand on a sheet.
struct Layout {
    size_t columns = 1;
    size_t frameWidth = 1;
    size_t frameHeight = 1;
    size_t width = 0;
    size_t height = 0;

    Layout(size_t count, Size frame)
    {
        columns = std::min(static_cast<size_t>(std::ceil(std::sqrt(static_cast<double>(count)))), kMostColumns);
        const double room = kSheetWidth / static_cast<double>(columns) - kMargin;
        frameWidth = static_cast<size_t>(std::min(std::clamp(room, kNarrowestFrame, kWidestFrame), frame.width));
        frameHeight = std::max<size_t>(
            1, static_cast<size_t>(std::lround(static_cast<double>(frameWidth) * frame.height / frame.width)));
        const size_t rows = (count + columns - 1) / columns;
        width = columns * (frameWidth + kMargin) + kMargin;
        height = rows * (frameHeight + kLabelHeight + kMargin) + kMargin;
    }

    /// The upper left corner of a frame.
    std::pair<size_t, size_t> place(size_t index) const
    {
        return {kMargin + index % columns * (frameWidth + kMargin),
                kMargin + index / columns * (frameHeight + kLabelHeight + kMargin)};
    }
};

/// A frame of the movie as it will be.
/// @return why there is none, without a message where the photo is the reason
Result<PictureAnswer> frameOf(const MovieRequest& request, size_t index, Size size)
{
    const PhotoFacts& photo = request.photos[index];
    auto frame = FileReader::shared().ask(FrameQuestion{
        .file = photo.path,
        .photoSize = photo.size,
        .frame = size,
        .reducesBorders = request.reducesBorders,
        .carriesWatermark = drawsWatermark(request.watermark) && carriesWatermark(index, request.photos.size())});
    return frame ? *std::move(frame) : frame.error();
}

/// The sheet while it is drawn; each frame by another thread, in its own place.
class Sheet final {
public:
    explicit Sheet(const Layout& layout) : layout_(layout), image_(std::make_shared<CGImage>())
    {
        image_->width = layout.width;
        image_->height = layout.height;
        image_->bytesPerRow = layout.width * 4;
        image_->pixels.assign(image_->bytesPerRow * layout.height, kGround);
        for (size_t x = 0; x < image_->pixels.size(); x += 4)
            image_->pixels[x] = 0xFF;
    }

    bool draw(size_t index, const CGImage& frame)
    {
        platform::CGBitmapContext context(image_->pixels.data(), image_->width, image_->height, image_->bytesPerRow);
        const auto [left, top] = layout_.place(index);
        const auto x = static_cast<double>(left);
        // The context counts from below.
        const double below = static_cast<double>(image_->height - top - layout_.frameHeight);
        const bool isDrawn = context.drawImage(
            {{x, below}, {static_cast<double>(layout_.frameWidth), static_cast<double>(layout_.frameHeight)}}, frame);
        platform::TextAttributes label;
        label.fontSize = kLabelSize;
        label.foregroundColor = {.red = 1, .green = 1, .blue = 1};
        context.drawTextAtPoint(fmt::format("{}", index + 1), {x, below - static_cast<double>(kLabelHeight)}, label);
        return isDrawn;
    }

    std::shared_ptr<const CGImage> image() const { return image_; }

private:
    const Layout layout_;
    const std::shared_ptr<CGImage> image_;
};

} // namespace

Result<Bytes> renderContactSheet(const MovieRequest& request,
                                 const std::function<bool(std::size_t done, std::size_t total)>& progress)
{
    const size_t count = request.photos.size();
    if (count == 0)
        return Error{ErrorCode::NothingToShow, {}, localized("there are no photos")};
    if (count > kMostFramesOfContactSheet)
        return Error{
            ErrorCode::OutOfRange, {}, localized("a contact sheet has at most {} frames", kMostFramesOfContactSheet)};
    const Size size = frameSizeForQuality(request.quality, request.photos);
    Sheet sheet(Layout(count, size));
    std::atomic<size_t> next = 0;
    std::atomic<bool> goesOn = true;
    platform::Lock lock;
    size_t done = 0;
    std::optional<size_t> failed;
    const auto work = [&] {
        for (size_t index = next++; index < count && goesOn; index = next++) {
            const auto frame = frameOf(request, index, size);
            const bool isDrawn = frame && sheet.draw(index, frame->image);
            const platform::LockGuard guard(lock);
            if (!isDrawn)
                failed = std::min(failed.value_or(index), index);
            if (!isDrawn || (progress && !progress(++done, count)))
                goesOn = false;
        }
    };
    {
        std::vector<std::jthread> others;
        try {
            for (unsigned i = 1; i < std::thread::hardware_concurrency(); ++i)
                others.emplace_back(work);
        } catch (const std::system_error&) {
            // Fewer threads draw as well.
        }
        work();
    }
    if (failed)
        return Error{ErrorCode::Unsupported, request.photos[*failed].path,
                     localized("{}: no frame could be made of it", request.photos[*failed].path.native())};
    if (!goesOn)
        return Error{ErrorCode::Cancelled, {}, localized("stopped")};
    const auto file = platform::encodePNG(*sheet.image(), {});
    if (!file)
        return Error{ErrorCode::Failed, {}, localized("there is not enough memory for the picture")};
    return bytesOf(*file);
}

} // namespace stillora
