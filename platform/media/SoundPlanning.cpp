#include "platform/media/SoundPlanning.h"

#include "platform/aac/AACEncoder.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace platform {
namespace {

double inExactSamples(CMTime time, int sampleRateHz)
{
    return static_cast<double>(time.value) * sampleRateHz / time.timescale;
}

/// Whether a time lies so close to another as rounding to its scale, or to a sample, may have moved it.
bool isWithinTick(CMTime time, CMTime other, int sampleRateHz)
{
    if (!time.isNumeric() || !other.isNumeric())
        return false;
    const double tick = 1.0 / std::min(time.timescale, sampleRateHz);
    // What is exactly a tick away does not come out so in floating point.
    return std::abs(CMTimeGetSeconds(CMTimeSubtract(time, other))) < tick * 1.001;
}

std::optional<SoundPlan> refuse(NSError* error, const std::string& why)
{
    fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset, why);
    return std::nullopt;
}

/// A stretch of a track that is heard.
struct Heard {
    AVCompositionTrackSegment segment;
    int32_t trackID = 0;
    SoundFactsPtr facts;
};

/// Rate and channels for all pieces: those of the first, which can then be copied, unless its quality is too low for
/// the others.
void chooseFormat(const std::vector<Heard>& heard, SoundPlan& plan)
{
    int highest = 0;
    for (const Heard& piece : heard) {
        highest = std::max(highest, nearestAACRate(piece.facts->sampleRateHz));
        plan.channels = std::max(plan.channels, piece.facts->channels);
    }
    const int first = nearestAACRate(heard.front().facts->sampleRateHz);
    plan.sampleRateHz = first >= 44100 ? first : highest;
}

std::vector<SoundRamp> rampsOf(int32_t trackID, const AVMutableAudioMix* audioMix, int sampleRateHz)
{
    std::vector<SoundRamp> ramps;
    if (!audioMix)
        return ramps;
    for (const AVMutableAudioMixInputParameters& parameters : audioMix->inputParameters()) {
        if (parameters.trackID() != trackID)
            continue;
        for (const auto& ramp : parameters.volumeRamps()) {
            const CMTime end = CMTimeRangeGetEnd(ramp.timeRange);
            if (ramp.timeRange.start.isNumeric() && end.isNumeric())
                ramps.push_back({inExactSamples(ramp.timeRange.start, sampleRateHz), inExactSamples(end, sampleRateHz),
                                 ramp.startVolume, ramp.endVolume});
        }
    }
    return ramps;
}

void addPieces(const std::vector<Heard>& heard, const AVMutableAudioMix* audioMix, SoundPlan& plan)
{
    const int rate = plan.sampleRateHz;
    CMTime endBefore = kCMTimeInvalid;
    for (const Heard& part : heard) {
        // Places are given in the scale of each file and are cut down to it, which must leave neither gap nor overlap,
        // nor may rounding add up over many pieces.
        const auto& [source, sourceRange, targetRange] = part.segment;
        const CMTime target = isWithinTick(targetRange.start, endBefore, rate) ? endBefore : targetRange.start;
        endBefore = CMTimeAdd(target, sourceRange.duration);
        SoundPiece piece{part.facts, inSamples(sourceRange.start, rate), inSamples(target, rate), 0, {}};
        piece.length = inSamples(endBefore, rate) - piece.targetStart;
        piece.ramps = rampsOf(part.trackID, audioMix, rate);
        plan.rangeEnd = std::max(plan.rangeEnd, piece.targetEnd());
        plan.pieces.push_back(std::move(piece));
    }
}

void setRange(CMTimeRange timeRange, SoundPlan& plan)
{
    const bool isRange = CMTimeRangeIsValid(timeRange) && timeRange.start.isNumeric() &&
                         !timeRange.duration.isIndefinite() && !CMTimeRangeIsEmpty(timeRange);
    const int rate = plan.sampleRateHz;
    // Not from the end of the range: if both ends were rounded there could be a sample more than the range holds.
    const int64_t start = isRange ? inSamples(timeRange.start, rate) : 0;
    const int64_t length = isRange ? inSamples(timeRange.duration, rate, CMTimeRoundingMethod::RoundTowardZero) : 0;
    plan.rangeStart = std::max<int64_t>(0, start);
    plan.rangeEnd = std::min(plan.rangeEnd, start + length);
}

/// Adds the sound of a composition in order of time.
bool addComposition(const AVMutableComposition& composition, std::vector<Heard>& heard, NSError* error)
{
    for (const auto& track : composition.compositionTracks()) {
        if (track->mediaType() != kAVMediaTypeAudio)
            continue;
        for (const AVCompositionTrackSegment& segment : track->segments()) {
            if (!segment.source || !segment.source->assetURL)
                continue;
            auto facts = currentSoundFacts(*segment.source);
            if (!facts)
                facts = readSoundFacts(*segment.source->assetURL, segment.source->streamIndex, error);
            if (!facts)
                return false;
            heard.push_back({segment, track->trackID(), std::move(facts)});
        }
    }
    std::stable_sort(heard.begin(), heard.end(), [](const Heard& a, const Heard& b) {
        return CMTimeCompare(a.segment.targetRange.start, b.segment.targetRange.start) < 0;
    });
    return true;
}

/// Adds a file's first sound track, all of it.
bool addFile(const AVURLAsset& file, std::vector<Heard>& heard, NSError* error)
{
    const auto tracks = file.tracksWithMediaType(kAVMediaTypeAudio);
    auto facts = tracks.empty() ? nullptr : currentSoundFacts(tracks.front());
    if (!facts)
        facts = readSoundFacts(file.URL(), std::nullopt, error);
    if (!facts)
        return false;
    const CMTimeRange whole{kCMTimeZero, CMTimeMake(facts->timeline.length(), facts->sampleRateHz)};
    heard.push_back({{std::nullopt, whole, whole}, 1, std::move(facts)});
    return true;
}

} // namespace

int64_t inSamples(CMTime time, int sampleRateHz, CMTimeRoundingMethod rounding)
{
    const CMTime converted = CMTimeConvertScale(time, sampleRateHz, rounding);
    if (!converted.isNumeric())
        return converted.flags & CMTime::PositiveInfinity ? INT64_MAX / 4 : 0;
    return std::clamp(converted.value, INT64_MIN / 4, INT64_MAX / 4);
}

SoundFactsPtr currentSoundFacts(const AVAssetTrack& track)
{
    const bool isCurrent = track.sound && FileState::ofFile(track.sound->url.path()) == track.sound->file;
    return isCurrent ? track.sound : nullptr;
}

std::optional<SoundPlan> planSound(const AVAsset& asset, const std::optional<CMTimeRange>& timeRange,
                                   const AVMutableAudioMix* audioMix, NSError* error)
{
    const auto* composition = dynamic_cast<const AVMutableComposition*>(&asset);
    const auto* file = dynamic_cast<const AVURLAsset*>(&asset);
    if (!composition && !file)
        return refuse(error, localized("The asset is of a kind that cannot be read"));
    std::vector<Heard> heard;
    if (composition ? !addComposition(*composition, heard, error) : !addFile(*file, heard, error))
        return std::nullopt;
    if (heard.empty())
        return refuse(error, localized("The composition holds no sound"));

    SoundPlan plan;
    chooseFormat(heard, plan);
    addPieces(heard, audioMix, plan);
    if (timeRange)
        setRange(*timeRange, plan);
    if (plan.rangeStart >= plan.rangeEnd)
        return refuse(error,
                      localized("The time range to export holds nothing of {}", {heard.front().facts->url.path()}));
    // What lies outside of the range is not read.
    std::erase_if(plan.pieces, [&](const SoundPiece& piece) {
        return piece.targetEnd() <= plan.rangeStart || piece.targetStart >= plan.rangeEnd;
    });
    if (plan.pieces.empty())
        return refuse(error, localized("The time range to export holds no sound"));
    return plan;
}

} // namespace platform
