#include "audio/MORAudioWaveImageWaveForm.h"

#include "audio/WaveFormColumns.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSLog.h"
#include "platform/graphics/NSBezierPath.h"
#include "platform/media/AVAssetReader.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>
#include <variant>
#include <vector>

using namespace platform;

namespace MORAudioWaveImage {
namespace {

constexpr std::string_view kLoadOperation =
    "-[AVAsset(MORAudioWaveImage) loadWaveFormImageAsynchronouslyForTimeRange:imageSize:completionHandler:]";
constexpr std::string_view kCreateOperation = "-[AVAsset(MORAudioWaveImage) "
                                              "_createWaveFormImageFromAssetTrack:withSampleRange:imageSize:"
                                              "completionHandler:]";

constexpr NSColor kBlack{};

/// More columns than any image can have.
constexpr double kMostColumns = 1 << 20;

/// Samples that are worth a thread of their own: some 47 s, a tenth of a second's work.
constexpr uint64_t kShortestStretch = 1 << 21;

/// Samples that a decoder may have to be given before its own are those that it gives when it starts at the beginning.
/// MP3 reaches back farthest: over a reservoir of 255 bytes, of which a frame of 576 samples may bring 3 (ISO/IEC
/// 13818-3, two channels at 8 kbit/s and 24 kHz).
constexpr int64_t kLead = 65536;

/// What cannot be drawn, in the words of the log.
struct Failure {
    std::string reason;
};

std::string descriptionOf(const std::optional<NSError>& error)
{
    return error ? error->localizedDescription : "(null)";
}

CMTime inTimescaleOf(const AVAssetTrack& track, CMTime time)
{
    return CMTimeConvertScale(time, track.timeRange.duration.timescale, CMTimeRoundingMethod::RoundHalfAwayFromZero);
}

/// Calls the handler on the main queue.
void answer(WaveFormHandler handler, NSImagePtr image, std::optional<NSError> error)
{
    DispatchQueue::main()->async([handler = std::move(handler), image = std::move(image),
                                  error = std::move(error)]() mutable { handler(std::move(image), std::move(error)); });
}

void drawCentreLine(CGContext& context, CGSize size)
{
    NSBezierPath line;
    line.setLineWidth(1);
    line.moveToPoint({0, size.height * 0.5 - 0.5});
    line.lineToPoint({size.width, size.height * 0.5 - 0.5});
    context.setStrokeColor(kBlack);
    line.stroke(context);
}

/// Each column stands where its value comes first: columns of equal loudness share one place.
void drawColumns(CGContext& context, CGSize size, const WaveFormColumns& columns)
{
    std::unordered_map<float, size_t> firstPlaces;
    const double middle = size.height * 0.5;
    // Infinite for silence, whose columns then have no end that could be drawn.
    const double scale = size.height / static_cast<double>(columns.largest() - WaveFormColumns::kQuietest) * 0.5;
    NSBezierPath path;
    path.setLineWidth(1);
    for (size_t i = 0; i < columns.values().size(); ++i) {
        const float value = columns.values()[i];
        const double amplitude = static_cast<double>(value - WaveFormColumns::kQuietest) * scale;
        const auto [place, isFirst] = firstPlaces.try_emplace(value, i);
        // The same line again would change nothing.
        if (!isFirst)
            continue;
        const auto x = static_cast<double>(place->second);
        path.moveToPoint({x, middle - amplitude});
        path.lineToPoint({x, middle + amplitude});
    }
    context.setStrokeColor(kBlack);
    path.stroke(context);
}

NSImagePtr waveFormImage(CGSize size, WaveFormColumns columns)
{
    // The pixels of a new image are clear.
    return NSImage::imageWithSize(size, CGContext::Origin::LowerLeft,
                                  [columns = std::move(columns)](CGContext& context, CGRect rect) {
                                      drawColumns(context, rect.size, columns);
                                      drawCentreLine(context, rect.size);
                                      return true;
                                  });
}

/// Samples of the range at the rate of the track's last description.
/// @return 0 if there is nothing to read; none if a description is of no sound
std::optional<uint64_t> countSamples(const AVAssetTrack& track, CMTime duration)
{
    uint32_t channels = 0;
    double rateHz = 0;
    for (const CMFormatDescription& format : track.formatDescriptions) {
        if (!format.audioStreamBasicDescription)
            return std::nullopt;
        channels = format.audioStreamBasicDescription->mChannelsPerFrame;
        rateHz = format.audioStreamBasicDescription->mSampleRate;
    }
    const double samples = CMTimeGetSeconds(duration) * rateHz;
    // Also for what is no number.
    if (channels == 0 || !(samples >= 1))
        return 0;
    constexpr double kMost = 9.2e18;
    return static_cast<uint64_t>(std::min(samples, kMost));
}

/// Whether the decoder holds nothing from what lies far before a sample. Others, of AAC among them, draw noise from
/// numbers that go on from the first one.
bool startsAnywhere(const AVAssetTrack& track)
{
    return track.codec == "mp3" || track.codec == "flac" || track.codec == "alac" || track.codec.starts_with("pcm_");
}

/// Whole pixels of an edge; none where no column could stand, and where there are more than could be drawn.
double wholePixels(double length)
{
    return length >= 1 && length <= kMostColumns ? std::trunc(length) : 0;
}

/// The next samples of a reader, in order.
/// @param skipped  samples of no column, before those that count
/// @return why they are not all there
std::optional<Failure> readColumns(AVAssetReader& reader, const AVAssetTrack& track, size_t skipped,
                                   WaveFormColumns& columns)
{
    const auto output =
        std::make_shared<AVAssetReaderTrackOutput>(track, AVAudioSettings{.formatID = kAudioFormatLinearPCM,
                                                                          .linearPCMBitDepth = 32,
                                                                          .linearPCMIsFloat = false,
                                                                          .numberOfChannels = 1});
    if (!reader.canAddOutput(output))
        return Failure{"error canAddOutput: " + descriptionOf(reader.error())};
    output->setAlwaysCopiesSampleData(false);
    reader.addOutput(output);

    std::vector<int32_t> block;
    reader.startReading();
    while (reader.status() == AVAssetReaderStatus::Reading) {
        const CMSampleBufferPtr buffer = output->copyNextSampleBuffer();
        if (!buffer)
            continue;
        block.resize(buffer->numSamples());
        if (buffer->copyDataBytes(0, std::as_writable_bytes(std::span(block)))) {
            const size_t passed = std::min(skipped, block.size());
            columns.add(std::span(block).subspan(passed));
            skipped -= passed;
        }
        buffer->invalidate();
    }
    if (reader.status() != AVAssetReaderStatus::Completed)
        return Failure{"error reading asset: " + descriptionOf(reader.error())};
    return std::nullopt;
}

/// Columns of a track that one thread reads.
struct Stretch {
    WaveFormColumns columns;
    bool isRead = false;
};

/// In samples of the track.
struct StretchRange {
    int64_t start = 0;
    int64_t length = 0;
    /// Those before the first column.
    int64_t lead = 0;
};

/// Where the sound is long, reads it side by side.
/// @param range  in the track's time scale, which is its sample rate
/// @return nothing if that gains nothing, or if it did not succeed: then the sound is to be read in one
std::optional<WaveFormColumns> readSideBySide(const AVAssetPtr& asset, const AVAssetTrack& track, CMTimeRange range,
                                              uint64_t samples, uint64_t samplesPerColumn,
                                              const WaveFormThreads& threads)
{
    const auto count = static_cast<unsigned>(std::min<uint64_t>(threads.most, samples / kShortestStretch));
    if (count < 2 || !startsAnywhere(track) || !CMTimeRangeIsValid(range) || range.start.value < 0)
        return std::nullopt;
    const auto columnsEach = samples / samplesPerColumn / count;
    const auto samplesEach = static_cast<int64_t>(columnsEach * samplesPerColumn);
    const auto read = [&](const StretchRange& part, Stretch& stretch) {
        const auto reader = AVAssetReader::initWithAsset(asset);
        if (!reader)
            return;
        const int32_t rate = range.start.timescale;
        reader->setTimeRange({CMTimeMake(part.start - part.lead, rate), CMTimeMake(part.lead + part.length, rate)});
        stretch.isRead = !readColumns(*reader, track, static_cast<size_t>(part.lead), stretch.columns);
    };

    std::vector<Stretch> stretches(count, Stretch{WaveFormColumns(samplesPerColumn)});
    try {
        std::vector<std::jthread> running;
        for (unsigned i = 0; i < count; ++i) {
            const int64_t before = static_cast<int64_t>(i) * samplesEach;
            const bool isLast = i + 1 == count;
            const StretchRange part{.start = range.start.value + before,
                                    .length = isLast ? range.duration.value - before : samplesEach,
                                    .lead = i == 0 ? 0 : std::min(kLead, range.start.value + before)};
            running.push_back(threads.begin(count, [&read, &stretch = stretches[i], part] { read(part, stretch); }));
        }
    } catch (const std::system_error&) {
        return std::nullopt;
    }

    WaveFormColumns columns(samplesPerColumn);
    for (const Stretch& stretch : stretches)
        if (!stretch.isRead || (&stretch != &stretches.back() && stretch.columns.values().size() != columnsEach) ||
            !columns.append(stretch.columns))
            return std::nullopt;
    return columns;
}

/// @param imageSize  of whole pixels, at least one wide
std::variant<NSImagePtr, Failure> readWaveForm(const AVAssetPtr& asset, const AVAssetTrack& track, CMTimeRange range,
                                               CGSize imageSize, const WaveFormThreads& threads)
{
    NSError error;
    const auto reader = AVAssetReader::initWithAsset(asset, &error);
    if (!reader)
        return Failure{"couldnt initiate reader: " + error.localizedDescription};
    const CMTimeRange inScale{inTimescaleOf(track, range.start), inTimescaleOf(track, range.duration)};
    reader->setTimeRange(inScale);

    const auto samples = countSamples(track, range.duration);
    if (!samples)
        return Failure{"audiostreamdescription = nil"};
    if (*samples == 0)
        return Failure{"samples, sampleRate, channelCount == 0"};

    const uint64_t samplesPerColumn = std::max<uint64_t>(*samples / static_cast<uint64_t>(imageSize.width), 1);
    auto columns = readSideBySide(asset, track, inScale, *samples, samplesPerColumn, threads);
    if (!columns) {
        columns.emplace(samplesPerColumn);
        if (const auto failure = readColumns(*reader, track, 0, *columns))
            return *failure;
    }
    NSImagePtr image = waveFormImage(imageSize, *std::move(columns));
    image->render();
    return image;
}

} // namespace

void loadWaveFormImageAsynchronouslyOfSize(const AVAssetPtr& asset, CGSize size, WaveFormHandler completionHandler)
{
    loadWaveFormImageAsynchronouslyForTimeRange(asset, kCMTimeRangeZero, size, std::move(completionHandler));
}

void loadWaveFormImageAsynchronouslyForTimeRange(const AVAssetPtr& asset, CMTimeRange timeRange, CGSize imageSize,
                                                 WaveFormHandler completionHandler)
{
    if (!completionHandler)
        return logFailure(kLoadOperation, "completionHandler == nil");
    if (imageSize == kNSZeroSize)
        return logFailure(kLoadOperation, "imageSize invalid");
    const auto tracks = asset ? asset->tracksWithMediaType(kAVMediaTypeAudio) : std::vector<AVAssetTrack>{};
    if (tracks.empty())
        return _asynchronousLoadOfWaveFormFailedWithError(std::nullopt, std::move(completionHandler));
    asset->loadValuesAsynchronouslyForKeys({"duration"}, [asset, track = tracks.front(), timeRange, imageSize,
                                                          handler = std::move(completionHandler)]() mutable {
        NSError error;
        if (asset->statusOfValueForKey("duration", &error) != AVKeyValueStatus::Loaded)
            return _asynchronousLoadOfWaveFormFailedWithError(
                error.domain.empty() ? std::nullopt : std::optional(std::move(error)), std::move(handler));
        _createWaveFormImageFromAssetTrack(track, timeRange, imageSize, std::move(handler));
    });
}

void _createWaveFormImageFromAssetTrack(const std::optional<AVAssetTrack>& track, CMTimeRange withSampleRange,
                                        CGSize imageSize, WaveFormHandler completionHandler)
{
    // The asset lives until it is read.
    const auto asset = track ? std::const_pointer_cast<AVAsset>(track->asset.lock()) : nullptr;
    DispatchQueue::global()->async(
        [asset, track, withSampleRange, imageSize, handler = std::move(completionHandler)]() mutable {
            if (!asset)
                return _asynchronousLoadOfWaveFormFailedWithError(std::nullopt, std::move(handler));
            NSError error;
            NSImagePtr image = drawTrack(asset, *track, withSampleRange, imageSize, {}, &error);
            if (!image) {
                logFailure(kCreateOperation, error.localizedDescription + ", responding with generic empty wave image");
                image = _emptyImageInCaseOfErrorWithSize(imageSize);
            }
            answer(std::move(handler), std::move(image), std::nullopt);
        });
}

NSImagePtr drawTrack(const AVAssetPtr& asset, const AVAssetTrack& track, CMTimeRange range, CGSize imageSize,
                     const WaveFormThreads& threads, NSError* error)
{
    const bool isWholeTrack = CMTimeRangeEqual(range, kCMTimeRangeZero) || CMTimeRangeEqual(range, kCMTimeRangeInvalid);
    const CGSize whole{wholePixels(imageSize.width), wholePixels(imageSize.height)};
    if (whole.width == 0)
        return _emptyImageInCaseOfErrorWithSize(imageSize);
    auto result = readWaveForm(asset, track, isWholeTrack ? CMTimeRange{kCMTimeZero, track.timeRange.duration} : range,
                               whole, threads);
    if (const auto* failure = std::get_if<Failure>(&result)) {
        fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, failure->reason);
        return nullptr;
    }
    return std::get<NSImagePtr>(std::move(result));
}

NSImagePtr _emptyImageInCaseOfErrorWithSize(CGSize size)
{
    return NSImage::imageWithSize(size, CGContext::Origin::LowerLeft, [](CGContext& context, CGRect rect) {
        drawCentreLine(context, rect.size);
        return true;
    });
}

void _asynchronousLoadOfWaveFormFailedWithError(std::optional<NSError> error, WaveFormHandler forCompletionHandler)
{
    answer(std::move(forCompletionHandler), nullptr, std::move(error));
}

} // namespace MORAudioWaveImage
