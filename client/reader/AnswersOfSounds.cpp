#include "client/reader/Answers.h"

#include "client/reader/SoundRange.h"
#include "client/reader/SoundWork.h"
#include "client/reader/WorkLimit.h"
#include "client/text/ClientError.h"
#include "client/text/LocalizedText.h"
#include "platform/media/AVURLAsset.h"
#include "platform/media/CMTime.h"
#include "platform/media/SoundPlanning.h"
#include "platform/sound/SoundExport.h"

#include <algorithm>
#include <chrono>
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
    // Of one sample a second, a file of a gigabyte lasts for years, and would be made into sound for as long.
    constexpr double kMostSeconds = 1000 * 3600.0;
    if (seconds > kMostSeconds)
        return bad(localized("lasts longer than 1000 hours"));
    return {Seconds(seconds), sound->timeRange.duration.timescale, {}};
}

namespace {

/// The part that is wanted, as its way needs it; nothing for all of the sound.
std::optional<platform::CMTimeRange> rangeOf(const SoundCopyQuestion& question, const platform::AVAsset& asset)
{
    if (!question.selection)
        return std::nullopt;
    platform::CMTimeRange range = timeRangeOf(question.selection, std::max(1, question.sampleRateHz));
    if (question.way == SoundCopyQuestion::Way::PacketByPacket)
        for (platform::CMTime* time : {&range.start, &range.duration})
            *time = CMTimeConvertScale(*time, asset.duration().timescale,
                                       platform::CMTimeRoundingMethod::RoundHalfAwayFromZero);
    return range;
}

} // namespace

Result<Seconds> answerTo(const SoundCopyQuestion& question)
{
    const auto url = platform::NSURL::fileURLWithPath(question.file.native(), false);
    const platform::AVURLAsset asset(url, platform::AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
    const auto begin = std::chrono::steady_clock::now();
    platform::NSError error;
    const auto plan = platform::planSound(asset, rangeOf(question, asset), nullptr, &error);
    if (!plan)
        return errorOf(error, question.file);
    // Whoever wants no more of it ends the process.
    const platform::ExportControl control{.isCancelled = [] { return false; }, .setProgress = [](double) {}};
    const auto write =
        question.way == SoundCopyQuestion::Way::PacketByPacket ? platform::copySoundToM4A : platform::exportSoundToM4A;
    if (write(*plan, platform::NSURL::fileURLWithPath(question.output.native(), false), control, &error))
        return Seconds(std::chrono::steady_clock::now() - begin);
    if (error.code == platform::kAVErrorOperationNotSupportedForAsset)
        return Error{ErrorCode::NeedsEncoding, question.file,
                     localized("{}: its sound cannot be cut without encoding it anew", question.file.native())};
    return errorOf(error, question.file);
}

} // namespace stillora
