#include "service/VideoCreatorStages.h"

#include "audio/SoundtrackAssembly.h"
#include "util/MORPalvineCommons.h"
#include "video/FinalMovie.h"
#include "video/FrameProduction.h"
#include "video/SilentVideo.h"
#include "video/VideoSize.h"

VideoCreatorStages VideoCreatorStages::real()
{
    return {
        .finishedSoundtrack = finishedSoundtrackWithSoundtracks,
        .silentVideo =
            [](VideoStageContext& context, const PhotoList& photos, int64_t quality, bool reduceBorders,
               double durationPerPhoto, const std::optional<std::string>& desiredCodec, platform::NSError* error) {
                return videoWithPhotos(context, photos, quality, reduceBorders, durationPerPhoto, desiredCodec, error);
            },
        .videoSize = VideoSize::videoSizeForQuality,
        .fillBufferArray = ::fillBufferArray,
        .movieByCombining = movieByCombiningVideo,
        .finalVideoURL = URLForFinalVideoAtDocumentURL,
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
