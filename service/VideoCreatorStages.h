#pragma once

#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/foundation/NSURL.h"
#include "platform/media/AVURLAsset.h"
#include "platform/system/IOPMAssertion.h"
#include "video/VideoStageContext.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// What a creator runs and asks outside itself, so that its own rules can be driven without photos, sound or a login
/// manager. None may be empty.
struct VideoCreatorStages {
    std::function<platform::AVURLAssetPtr(StageContext& context, const SoundtrackList& soundtracks,
                                          double totalVideoDuration, double totalSoundtrackDuration,
                                          bool shouldLoopSoundtrack, platform::NSError* error)>
        finishedSoundtrack;
    std::function<platform::AVURLAssetPtr(VideoStageContext& context, const PhotoList& photos, int64_t quality,
                                          bool reduceBorders, double durationPerPhoto,
                                          const std::optional<std::string>& desiredCodec, platform::NSError* error)>
        silentVideo;
    std::function<platform::CGSize(StageContext& context, int64_t quality, const PhotoList& photos,
                                   uint64_t* totalFileSize, PhotoList* failedPhotos)>
        videoSize;
    std::function<void(VideoStageContext& context, const PhotoList& photos, platform::CGSize maxVidSize,
                       bool reduceBorders)>
        fillBufferArray;
    std::function<platform::AVURLAssetPtr(StageContext& context, const platform::AVURLAssetPtr& video,
                                          const platform::AVURLAssetPtr& soundtrack,
                                          const std::optional<platform::NSURL>& finalDocURL, platform::NSError* error)>
        movieByCombining;
    std::function<platform::NSURL(StageContext& context, const std::optional<platform::NSURL>& documentURL)>
        finalVideoURL;

    /// Where a request's folders are taken from if they cannot be found.
    std::function<platform::NSURL()> customSaveDirectory;
    std::function<platform::NSURL()> temporarySaveDirectory;

    std::function<platform::IOReturn(const std::string& name, platform::IOPMAssertionID* assertionID)> createAssertion;
    std::function<void(platform::IOPMAssertionID assertionID)> releaseAssertion;

    /// The service's own.
    static VideoCreatorStages real();
};
