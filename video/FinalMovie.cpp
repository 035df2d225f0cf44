#include "video/FinalMovie.h"

#include "platform/files/NSFileManager.h"
#include "platform/foundation/NSBundle.h"
#include "platform/media/AVAssetExportSession.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/system/NSWorkspace.h"
#include "util/MORURLCategory.h"
#include "util/StageContext.h"
#include "video/MovieTitle.h"

#include <string>
#include <string_view>
#include <utility>

using namespace platform;

namespace {

/// The name of a document's movie; nothing for a location without a name.
std::optional<std::string> movieNameOf(const NSURL& documentURL)
{
    return stringByAppendingPathExtension(titleOfDocument(documentURL), "mov");
}

void queueUpdate(StageContext& context, std::string title, double progress)
{
    context.queueProgress([title = std::move(title), progress] {
        return ProgressUpdate{title, NSWorkspace::sharedWorkspace().iconForFileType("mov"),
                              true,  progress,
                              1,     ProgressUpdate::kNoEstimate};
    });
}

/// Puts the whole of an asset on a new track of the composition.
bool insertWhole(const AVURLAsset& asset, std::string_view mediaType, AVMutableComposition& composition, NSError* error)
{
    AVMutableCompositionTrack& track =
        composition.addMutableTrackWithMediaType(mediaType, AVMutableComposition::kTrackIDInvalid);
    return track.insertTimeRange(CMTimeRangeMake(kCMTimeZero, asset.duration()),
                                 asset.compatibleTrackForCompositionTrack(track.asAssetTrack()), kCMTimeZero, error);
}

} // namespace

NSURL URLForFinalVideoAtDocumentURL(StageContext& context, const std::optional<NSURL>& documentURL)
{
    auto name = documentURL ? movieNameOf(*documentURL) : std::nullopt;
    // The untitled name is used as it is, without an extension.
    if (!name)
        name = NSBundle::mainBundle().localizedStringForKey("VideoCreationMovieFileTitleUntitled");
    return MORURLCategory::URLForNotOverridingURL(context.destinationURL().URLByAppendingPathComponent(*name, false));
}

AVURLAssetPtr movieByCombiningVideo(StageContext& context, const AVURLAssetPtr& video, const AVURLAssetPtr& soundtrack,
                                    const std::optional<NSURL>& finalDocURL, NSError* error)
{
    if (!video || !soundtrack)
        return nullptr;
    queueUpdate(context, "VideoCreationCompositingVideoAndSoundtrack", 0);

    const auto composition = AVMutableComposition::composition();
    if (!insertWhole(*video, kAVMediaTypeVideo, *composition, error) ||
        !insertWhole(*soundtrack, kAVMediaTypeAudio, *composition, error))
        return nullptr;

    AVAssetExportSession session(composition, std::string(kAVAssetExportPresetPassthrough));
    session.setDirectoryForTemporaryFiles(context.temporaryURL());
    session.setOutputFileType(kAVFileTypeMPEG4);
    session.setOutputURL(URLForFinalVideoAtDocumentURL(context, finalDocURL));
    session.setShouldOptimizeForNetworkUse(true);
    session.setMetadata(metadataOfMovie(finalDocURL));
    // The export has ended when this function returns, so it may look at the context.
    session.setOutputURLWhenTaken([&](const NSURL&) { return URLForFinalVideoAtDocumentURL(context, finalDocURL); });
    session.exportAsynchronouslyWithCompletionHandler({});

    while (session.status() == AVAssetExportSessionStatus::Exporting) {
        queueUpdate(context, "VideoCreationWritingFinalVideo", double{session.progress()});
        if (context.isCancelled()) {
            session.cancelExport();
            // The export may have ended since the last look; a movie that the answer denies is not left behind.
            if (session.status() == AVAssetExportSessionStatus::Completed)
                (void)NSFileManager::defaultManager().removeItemAtURL(*session.outputURL());
            return nullptr;
        }
        session.waitForEnd(1);
    }
    if (session.status() == AVAssetExportSessionStatus::Completed)
        return AVURLAsset::URLAssetWithURL(*session.outputURL());
    if (const auto failure = session.error(); failure && error)
        *error = *failure;
    return nullptr;
}
