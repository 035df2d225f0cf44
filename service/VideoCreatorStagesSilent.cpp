#include "service/VideoCreatorStages.h"

#include "platform/foundation/NSBundle.h"
#include "util/MORPalvineCommons.h"
#include "util/MORURLCategory.h"
#include "video/FrameProduction.h"
#include "video/SilentVideo.h"
#include "video/VideoSize.h"

// TODO: goes when sound assembly and composition are there; until then a request with soundtracks is answered with an
// error.
VideoCreatorStages VideoCreatorStages::real()
{
    const auto refuse = [](platform::NSError* error) {
        platform::fail(error, platform::kAVFoundationErrorDomain, platform::kAVErrorUnknown,
                       "This build makes movies without sound only");
        return nullptr;
    };
    return {
        .finishedSoundtrack = [refuse](StageContext&, const SoundtrackList&, double, double, bool,
                                       platform::NSError* error) -> platform::AVURLAssetPtr { return refuse(error); },
        .silentVideo =
            [](VideoStageContext& context, const PhotoList& photos, int64_t quality, bool reduceBorders,
               double durationPerPhoto, const std::optional<std::string>& desiredCodec, platform::NSError* error) {
                return videoWithPhotos(context, photos, quality, reduceBorders, durationPerPhoto, desiredCodec, error);
            },
        .videoSize = VideoSize::videoSizeForQuality,
        .fillBufferArray = ::fillBufferArray,
        .movieByCombining = [refuse](StageContext&, const platform::AVURLAssetPtr&, const platform::AVURLAssetPtr&,
                                     const std::optional<platform::NSURL>&,
                                     platform::NSError* error) -> platform::AVURLAssetPtr { return refuse(error); },
        .finalVideoURL =
            [](StageContext& context, const std::optional<platform::NSURL>& document) {
                const auto folder = context.destinationURL();
                const auto name =
                    document
                        ? document->URLByDeletingPathExtension().lastPathComponent() + ".mov"
                        : platform::NSBundle::mainBundle().localizedStringForKey("VideoCreationMovieFileTitleUntitled");
                return MORURLCategory::URLForNotOverridingURL(folder.URLByAppendingPathComponent(name, false));
            },
        .customSaveDirectory = MORPalvineCommons::customSaveDirectory,
        .temporarySaveDirectory = MORPalvineCommons::temporarySaveDirectory,
        .createAssertion =
            [](const std::string& name, platform::IOPMAssertionID* assertionID) {
                return platform::IOPMAssertionCreateWithName(platform::kIOPMAssertPreventUserIdleSystemSleep,
                                                             platform::kIOPMAssertionLevelOn, name, assertionID);
            },
        .releaseAssertion = [](platform::IOPMAssertionID assertionID) { platform::IOPMAssertionRelease(assertionID); },
    };
}
