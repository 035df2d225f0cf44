#include "client/reader/Answers.h"

#include "client/LocalizedText.h"
#include "client/reader/SoundWork.h"
#include "client/reader/WorkLimit.h"
#include "platform/media/AVURLAsset.h"
#include "platform/media/CMTime.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace stillora {

SoundMeasure answerTo(const SoundQuestion& question)
{
    const auto bad = [](std::string fault) { return SoundMeasure{Seconds(0), 0, std::move(fault)}; };
    const WorkLimit limit(workForSound(question.file));
    platform::AVURLAsset::Options options;
    options.preferPreciseDurationAndTiming = question.isExact;
    const platform::AVURLAsset asset(platform::NSURL::fileURLWithPath(question.file.native(), false), options);
    const auto& tracks = asset.tracks();
    const auto sound = std::find_if(tracks.begin(), tracks.end(), [](const platform::AVAssetTrack& track) {
        return track.mediaType == platform::kAVMediaTypeAudio;
    });
    if (sound == tracks.end())
        return bad(tracks.empty() ? localized("is no sound file that can be read") : localized("has no sound"));
    const double seconds = platform::CMTimeGetSeconds(asset.duration());
    if (!std::isfinite(seconds) || seconds <= 0)
        return bad(localized("has no length"));
    return {Seconds(seconds), sound->timeRange.duration.timescale, {}};
}

} // namespace stillora
