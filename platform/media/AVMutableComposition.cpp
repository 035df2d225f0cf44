#include "platform/media/AVMutableComposition.h"

#include "platform/foundation/LocalizedText.h"

#include <algorithm>
#include <utility>

namespace platform {
namespace {

CMTime earlier(CMTime a, CMTime b)
{
    return CMTimeCompare(a, b) <= 0 ? a : b;
}

CMTime later(CMTime a, CMTime b)
{
    return CMTimeCompare(a, b) >= 0 ? a : b;
}

} // namespace

AVMutableCompositionTrack::AVMutableCompositionTrack(int32_t trackID, std::string mediaType)
    : trackID_(trackID), mediaType_(std::move(mediaType))
{}

CMTime AVMutableCompositionTrack::end() const
{
    return segments_.empty() ? kCMTimeZero : CMTimeRangeGetEnd(segments_.back().targetRange);
}

AVAssetTrack AVMutableCompositionTrack::asAssetTrack() const
{
    AVAssetTrack track;
    track.trackID = trackID_;
    track.mediaType = mediaType_;
    track.timeRange = {kCMTimeZero, end()};
    return track;
}

bool AVMutableCompositionTrack::insertTimeRange(CMTimeRange timeRange, const std::optional<AVAssetTrack>& ofTrack,
                                                CMTime atTime, NSError* error)
{
    if (!ofTrack)
        return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                    localized("There is no track of the kind that could be inserted"));
    const std::string name = ofTrack->assetURL ? ofTrack->assetURL->path() : localized("The asset");
    if (ofTrack->mediaType != mediaType_)
        return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                    localized("{} has a track of another kind", {name}));
    if (!CMTimeRangeIsValid(timeRange) || !timeRange.start.isNumeric() || !timeRange.duration.isNumeric() ||
        !atTime.isNumeric() || atTime.value < 0)
        return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                    localized("{} cannot be inserted at such a time", {name}));
    const CMTime start = later(timeRange.start, ofTrack->timeRange.start);
    const CMTime stop = earlier(CMTimeRangeGetEnd(timeRange), CMTimeRangeGetEnd(ofTrack->timeRange));
    const CMTime duration = CMTimeSubtract(stop, start);
    if (!duration.isNumeric() || duration.value <= 0)
        return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                    localized("{} has nothing in the range to insert", {name}));

    // A segment that the time lies within is cut in two.
    auto place = segments_.begin();
    while (place != segments_.end() && CMTimeCompare(place->targetRange.start, atTime) < 0) {
        const CMTime placeEnd = CMTimeRangeGetEnd(place->targetRange);
        if (CMTimeCompare(placeEnd, atTime) > 0) {
            const CMTime head = CMTimeSubtract(atTime, place->targetRange.start);
            const CMTime tail = CMTimeSubtract(placeEnd, atTime);
            AVCompositionTrackSegment rest = *place;
            rest.sourceRange = {CMTimeAdd(place->sourceRange.start, head), tail};
            rest.targetRange = {atTime, tail};
            place->sourceRange.duration = head;
            place->targetRange.duration = head;
            place = segments_.insert(place + 1, rest);
            break;
        }
        ++place;
    }
    if (place == segments_.end() && CMTimeCompare(end(), atTime) < 0) {
        const CMTimeRange gap{end(), CMTimeSubtract(atTime, end())};
        segments_.push_back({std::nullopt, {kCMTimeZero, gap.duration}, gap});
        place = segments_.end();
    }
    place = segments_.insert(place, {ofTrack, {start, duration}, {atTime, duration}});
    for (++place; place != segments_.end(); ++place)
        place->targetRange.start = CMTimeAdd(place->targetRange.start, duration);
    return true;
}

AVMutableCompositionTrack& AVMutableComposition::addMutableTrackWithMediaType(std::string_view mediaType,
                                                                              int32_t preferredTrackID)
{
    const auto isTaken = [this](int32_t trackID) {
        return std::any_of(tracks_.begin(), tracks_.end(),
                           [trackID](const auto& track) { return track->trackID() == trackID; });
    };
    int32_t trackID = preferredTrackID;
    if (trackID == kTrackIDInvalid || isTaken(trackID)) {
        trackID = 1;
        while (isTaken(trackID))
            ++trackID;
    }
    tracks_.push_back(std::make_unique<AVMutableCompositionTrack>(trackID, std::string(mediaType)));
    return *tracks_.back();
}

CMTime AVMutableComposition::duration() const
{
    CMTime longest = kCMTimeZero;
    for (const auto& track : tracks_)
        longest = later(longest, track->end());
    return longest;
}

std::vector<AVAssetTrack> AVMutableComposition::tracks() const
{
    std::vector<AVAssetTrack> result;
    for (const auto& track : tracks_) {
        result.push_back(track->asAssetTrack());
        result.back().asset = weak_from_this();
    }
    return result;
}

} // namespace platform
