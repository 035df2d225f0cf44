#include "platform/media/AVAssetReaderTrackOutput.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/media/AVAssetReaderSession.h"
#include "platform/media/AVURLAsset.h"
#include "platform/media/SoundPlanning.h"
#include "platform/sound/SoundReader.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

namespace platform {
namespace {

/// Frames of a buffer: few enough to stay in the processor's cache.
constexpr size_t kFramesPerBuffer = 8192;

/// The sample as an integer: full scale is 2^31, which the largest number just misses.
int32_t integerOf(double sample)
{
    constexpr double kFullScale = 2147483648.0;
    // Half a step is far below what a float of this size can tell, so that cutting is as good as rounding.
    return static_cast<int32_t>(std::clamp(sample * kFullScale, -kFullScale, kFullScale - 1));
}

void mixDown(std::span<const float> frames, size_t channels, std::span<int32_t> mono)
{
    if (channels == 1) {
        for (size_t i = 0; i < mono.size(); ++i)
            mono[i] = integerOf(static_cast<double>(frames[i]));
        return;
    }
    for (size_t i = 0; i < mono.size(); ++i)
        mono[i] = integerOf((static_cast<double>(frames[2 * i]) + static_cast<double>(frames[2 * i + 1])) * 0.5);
}

} // namespace

struct AVAssetReaderTrackOutput::Source {
    NSURL url;
    int sampleRateHz = 0;
    size_t channels = 0;
    std::unique_ptr<SoundReader> reader;
    /// In samples of the track.
    int64_t start = 0;
    int64_t position = 0;
    int64_t end = 0;
    std::vector<float> frames = {};
};

AVAssetReaderTrackOutput::AVAssetReaderTrackOutput(AVAssetTrack track, AVAudioSettings outputSettings)
    : track_(std::move(track)), outputSettings_(outputSettings)
{}

AVAssetReaderTrackOutput::~AVAssetReaderTrackOutput() = default;

bool AVAssetReaderTrackOutput::start(CMTimeRange timeRange, NSError* error)
{
    if (!track_.assetURL)
        return fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset,
                    localized("The track is of no file that could be read"));
    SoundFactsPtr facts = currentSoundFacts(track_);
    if (!facts)
        facts = readSoundFacts(*track_.assetURL, track_.streamIndex, error);
    if (!facts)
        return false;
    int64_t start = 0;
    int64_t end = facts->timeline.length();
    if (CMTimeRangeIsValid(timeRange)) {
        start = std::max<int64_t>(0, inSamples(timeRange.start, facts->sampleRateHz));
        end = std::min(end, inSamples(CMTimeRangeGetEnd(timeRange), facts->sampleRateHz));
    }
    auto reader = SoundReader::open(facts, facts->sampleRateHz, facts->channels, error);
    if (!reader)
        return false;
    source_ = std::make_unique<Source>(Source{facts->url, facts->sampleRateHz, static_cast<size_t>(facts->channels),
                                              std::move(reader), start, start, end});
    return true;
}

std::shared_ptr<CMSampleBuffer::Data> AVAssetReaderTrackOutput::emptyData()
{
    // Alone, nobody holds a buffer that uses it.
    if (alwaysCopiesSampleData_ || !data_ || data_.use_count() > 1)
        data_ = std::make_shared<CMSampleBuffer::Data>();
    return data_;
}

CMSampleBufferPtr AVAssetReaderTrackOutput::copyNextSampleBuffer()
{
    if (!source_ || session_->status() != AVAssetReaderStatus::Reading)
        return nullptr;
    Source& source = *source_;
    const auto wanted = static_cast<size_t>(
        std::clamp<int64_t>(source.end - source.position, 0, static_cast<int64_t>(kFramesPerBuffer)));
    source.frames.resize(wanted * source.channels);
    const size_t got = wanted > 0 ? source.reader->read(source.position, source.frames) : 0;
    if (got > 0) {
        auto data = emptyData();
        data->resize(got);
        mixDown(source.frames, source.channels, *data);
        const CMTime time = CMTimeMake(source.position, source.sampleRateHz);
        source.position += static_cast<int64_t>(got);
        return std::make_unique<CMSampleBuffer>(std::move(data), time);
    }

    std::optional<NSError> failure;
    const int64_t missing = source.end - source.position;
    if (missing > 0) {
        // Times in files are rounded, and some count the encoder's padding.
        if (missing > source.sampleRateHz)
            failure = source.reader->failure();
        if (!failure && source.position == source.start)
            failure = NSError{std::string(kAVFoundationErrorDomain), kAVErrorFileFailedToParse,
                              localized("Nothing of {} could be decoded", {source.url.path()})};
    }
    if (failure)
        session_->fail(*std::move(failure));
    else
        session_->endOutput();
    source_.reset();
    return nullptr;
}

} // namespace platform
