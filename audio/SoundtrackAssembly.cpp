#include "audio/SoundtrackAssembly.h"

#include "audio/MORAudioWaveImage.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/NSLog.h"
#include "platform/media/AVAssetExportSession.h"
#include "platform/media/AVMutableAudioMix.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/system/NSWorkspace.h"
#include "util/StageContext.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

using namespace platform;

namespace {

constexpr std::string_view kOperation =
    "-[morStilloraVideoCreator finishedSoundtrackWithSoundtracks:totalVideoDuration:totalSoundtrackDuration:"
    "shouldLoopSoundtrack:error:]";

/// The text that stands for an item's file; one for all items without a file.
std::string keyOf(const MORSoundtrack& soundtrack)
{
    const auto url = soundtrack.soundtrackURL();
    return url ? url->absoluteString() : std::string();
}

/// Drops the items at the end that would start less than the margin before the video's end, or after it.
SoundtrackList withoutItemsAtEnd(const SoundtrackList& soundtracks, double totalVideoDuration,
                                 double totalSoundtrackDuration)
{
    const double threshold = totalVideoDuration - kSoundtrackMarginSeconds;
    double sum = 0;
    for (size_t i = soundtracks.size(); i-- > 0;) {
        sum += soundtracks[i]->duration();
        if (totalSoundtrackDuration - sum < threshold) {
            // The item's first place in the list, which may be before this one.
            const auto last = std::find(soundtracks.begin(), soundtracks.end(), soundtracks[i]);
            return {soundtracks.begin(), last + 1};
        }
    }
    return {};
}

/// Appends items in turn. That there is too little sound was decided before and is not asked again, so this goes on
/// until the process is stopped.
[[noreturn]] void appendItemsForEver(SoundtrackList list)
{
    const size_t count = list.size();
    for (size_t next = 0;; next = (next + 1) % count) {
        list.push_back(list[next]);
        for (const MORSoundtrackPtr& soundtrack : list)
            soundtrack->duration();
    }
}

SoundtrackList workingList(const SoundtrackList& soundtracks, double totalVideoDuration, double totalSoundtrackDuration,
                           bool shouldLoopSoundtrack)
{
    if (totalSoundtrackDuration > totalVideoDuration)
        return withoutItemsAtEnd(soundtracks, totalVideoDuration, totalSoundtrackDuration);
    if (totalVideoDuration - kSoundtrackMarginSeconds > totalSoundtrackDuration && shouldLoopSoundtrack)
        appendItemsForEver(soundtracks);
    return soundtracks;
}

/// The range of its file that an item plays; invalid for the whole file.
CMTimeRange rangeOf(const SoundtrackSelection& selection, const AVAsset* asset)
{
    if (selection == kNoSelection || selection == SoundtrackSelection{})
        return kCMTimeRangeInvalid;
    const int32_t timescale = asset ? asset->duration().timescale : 0;
    return CMTimeRangeMake(CMTimeMakeWithSeconds(selection.start, timescale),
                           CMTimeMakeWithSeconds(selection.length, timescale));
}

/// Converted files by the key of their item's file.
using ConversionTable = std::map<std::string, AVURLAssetPtr>;

/// Converts each distinct file once, as its first item selects it.
/// @return false on failure, or if cancelled, which is no error
bool convertFiles(StageContext& context, const SoundtrackList& list, ConversionTable& table, NSError* error)
{
    for (const MORSoundtrackPtr& soundtrack : list) {
        const std::string key = keyOf(*soundtrack);
        if (table.contains(key))
            continue;
        const auto url = soundtrack->soundtrackURL();
        // Measured at the first look, as the conversion needs it.
        const AVURLAssetPtr asset =
            url ? std::make_shared<AVURLAsset>(*url, AVURLAsset::Options{.preferPreciseDurationAndTiming = true})
                : nullptr;
        NSError failure;
        const auto converted = MORAudioWaveImage::synchronouslyConvertedAssetToM4AAtTempURL(
            asset, context.temporaryURL(), rangeOf(soundtrack->selection(), asset.get()), &failure);
        if (!converted) {
            logFailure(kOperation, "trimmedconvertedurl == nil");
            if (error && !failure.domain.empty())
                *error = failure;
            return false;
        }
        table.emplace(key, AVURLAsset::URLAssetWithURL(*converted));
        if (context.isCancelled())
            return false;
    }
    return true;
}

/// Lays the converted files end to end, each on a track of its own.
/// @return seconds that were laid; nothing on failure
std::optional<double> layPieces(const SoundtrackList& list, const ConversionTable& table,
                                AVMutableComposition& composition, NSError* error)
{
    double cursor = 0;
    for (const MORSoundtrackPtr& soundtrack : list) {
        const AVURLAssetPtr& asset = table.at(keyOf(*soundtrack));
        AVMutableCompositionTrack& track =
            composition.addMutableTrackWithMediaType(kAVMediaTypeAudio, AVMutableComposition::kTrackIDInvalid);
        const CMTime duration = asset->duration();
        if (!track.insertTimeRange(CMTimeRangeMake(kCMTimeZero, duration),
                                   asset->compatibleTrackForCompositionTrack(track.asAssetTrack()),
                                   CMTimeMakeWithSeconds(cursor, duration.timescale), error)) {
            logFailure(kOperation, "adding track to composition failed");
            return std::nullopt;
        }
        cursor += CMTimeGetSeconds(duration);
    }
    return cursor;
}

/// Lets the last track fade out towards the video's end and cuts the sound there.
void fadeAndCut(AVAssetExportSession& session, const AVMutableComposition& composition, double totalVideoDuration)
{
    const int32_t timescale = composition.duration().timescale;
    const double fade = std::min(totalVideoDuration, kLongestFadeSeconds);
    const std::vector<AVAssetTrack> tracks = composition.tracks();
    AVMutableAudioMix mix;
    if (!tracks.empty()) {
        AVMutableAudioMixInputParameters parameters(tracks.back().trackID);
        parameters.setVolumeRamp(1.0F, 0.0F,
                                 CMTimeRangeMake(CMTimeMakeWithSeconds(totalVideoDuration - fade, timescale),
                                                 CMTimeMakeWithSeconds(fade, timescale)));
        mix.setInputParameters({parameters});
    }
    session.setAudioMix(mix);
    session.setTimeRange(CMTimeRangeMake(kCMTimeZero, CMTimeMakeWithSeconds(totalVideoDuration, timescale)));
}

} // namespace

AVURLAssetPtr finishedSoundtrackWithSoundtracks(StageContext& context, const SoundtrackList& soundtracks,
                                                double totalVideoDuration, double totalSoundtrackDuration,
                                                bool shouldLoopSoundtrack, NSError* error)
{
    if (soundtracks.empty())
        return nullptr;
    const NSImagePtr icon = NSWorkspace::sharedWorkspace().iconForFileType("m4a");
    const auto queueUpdate = [&](std::string_view title, double progress, double total) {
        context.queueProgress([update = ProgressUpdate{std::string(title), icon, false, progress, total,
                                                       ProgressUpdate::kNoEstimate}] { return update; });
    };
    queueUpdate("VideoCreationTitleCalculatingSoundtrackDuration", 0, 0);
    if (context.isCancelled())
        return nullptr;

    const SoundtrackList list =
        workingList(soundtracks, totalVideoDuration, totalSoundtrackDuration, shouldLoopSoundtrack);
    queueUpdate("VideoCreationTitleConvertingAndTrimmingAssets", 0, 0);
    ConversionTable table;
    if (!convertFiles(context, list, table, error))
        return nullptr;
    const auto composition = AVMutableComposition::composition();
    const auto cursor = layPieces(list, table, *composition, error);
    if (!cursor)
        return nullptr;

    AVAssetExportSession session(composition, std::string(kAVAssetExportPresetAppleM4A));
    NSFileManager& files = NSFileManager::defaultManager();
    const NSURL folder = context.temporaryURL().URLByAppendingPathComponent(NSUUIDString(), true);
    if (!files.createDirectoryAtURL(folder, true)) {
        logFailure(kOperation, "could not create temporary directory");
        return nullptr;
    }
    const NSURL output = folder.URLByAppendingPathComponent("stilloraFinishedAudio.m4a", false);
    (void)files.removeItemAtURL(output);
    session.setDirectoryForTemporaryFiles(context.temporaryURL());
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(output);
    if (*cursor >= totalVideoDuration)
        fadeAndCut(session, *composition, totalVideoDuration);

    session.exportAsynchronouslyWithCompletionHandler({});
    while (session.status() != AVAssetExportSessionStatus::Completed) {
        if (session.status() == AVAssetExportSessionStatus::Failed || context.isCancelled())
            break;
        queueUpdate("VideoCreationTitleConvertingAndTrimmingAssets", double{session.progress()}, 1);
        session.waitForEnd(1);
    }

    if (context.isCancelled())
        return nullptr;
    const std::optional<NSError> failure = session.error();
    if (session.status() != AVAssetExportSessionStatus::Completed || failure) {
        logFailure(kOperation, "writing failed");
        if (error && failure)
            *error = *failure;
        return nullptr;
    }
    for (auto& [key, converted] : table) {
        const NSURL url = converted->URL();
        // Closes the file, which else would stay on some disks.
        converted.reset();
        (void)files.removeItemAtURL(url);
    }
    return AVURLAsset::URLAssetWithURL(output);
}
