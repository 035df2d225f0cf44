#include "client/reader/Answers.h"

#include "audio/MORAudioWaveImageWaveForm.h"
#include "client/reader/SoundRange.h"
#include "client/reader/SoundWork.h"
#include "client/reader/WorkLimit.h"
#include "client/text/LocalizedText.h"
#include "platform/graphics/NSImage.h"
#include "platform/media/AVURLAsset.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

namespace stillora {

namespace {

using platform::CGContext;
using platform::CGRect;
using platform::NSImage;
using platform::NSImagePtr;

NSImagePtr onWhite(const NSImagePtr& image)
{
    const auto pixels = image->image();
    if (!pixels)
        return image;
    return NSImage::imageWithSize(image->size(), CGContext::Origin::LowerLeft,
                                  [pixels](CGContext& context, CGRect rect) {
                                      context.setFillColor({.red = 1, .green = 1, .blue = 1});
                                      context.fillRect(rect);
                                      context.drawImage(rect, *pixels);
                                      return true;
                                  });
}

} // namespace

Result<PictureAnswer> answerTo(const WaveformQuestion& question)
{
    WorkLimit limit(workForSamples(question.file));
    const auto failed = [](std::string reason) { return Error{ErrorCode::Unsupported, {}, std::move(reason)}; };
    const auto asset =
        std::make_shared<platform::AVURLAsset>(platform::NSURL::fileURLWithPath(question.file.native(), false),
                                               platform::AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
    const auto tracks = asset->tracksWithMediaType(platform::kAVMediaTypeAudio);
    if (tracks.empty())
        return failed(localized("it cannot be read any more"));
    platform::NSError error;
    auto drawn = MORAudioWaveImage::drawTrack(
        asset, tracks.front(), timeRangeOf(question.selection, std::max(1, question.sampleRateHz)),
        {static_cast<double>(question.style.width), static_cast<double>(question.style.height)},
        {.most = std::thread::hardware_concurrency(),
         .begin = [&limit](unsigned count,
                           std::function<void()> work) { return limit.beginPart(count, std::move(work)); }},
        &error);
    if (!drawn)
        return failed(std::move(error.localizedDescription));
    if (question.style.ground == WaveformStyle::Ground::White)
        drawn = onWhite(drawn);
    const auto pixels = drawn->render() ? drawn->image() : nullptr;
    if (!pixels)
        return failed(localized("there is not enough memory for the picture"));
    return PictureAnswer{*pixels, 0, {}};
}

} // namespace stillora
