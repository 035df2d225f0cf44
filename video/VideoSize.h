#pragma once

#include "items/MORPhoto.h"
#include "platform/foundation/NSGeometry.h"
#include "util/StageContext.h"

#include <cstdint>

/// Chooses the pixel size of the movie before anything is rendered. Any thread.
class VideoSize final {
public:
    /// The size that a quality names; for every other quality the largest size that enlarges none of the photos.
    /// Reports progress after each photo.
    ///
    /// @param quality        the height of one of seven sizes; anything else chooses by the smallest photo
    /// @param totalFileSize  out, optional: bytes of all photos; without it their sizes are not read
    /// @param failedPhotos   out, optional: always emptied
    /// @return the zero size if the job was cancelled meanwhile; the out-values are then not written
    static platform::CGSize videoSizeForQuality(StageContext& context, int64_t quality, const PhotoList& photos,
                                                uint64_t* totalFileSize = nullptr, PhotoList* failedPhotos = nullptr);
};
