#pragma once

#include "items/MORPhoto.h"
#include "platform/foundation/NSGeometry.h"
#include "util/StageContext.h"

#include <array>
#include <cstdint>
#include <optional>

/// Chooses the pixel size of the movie before anything is rendered. Any thread.
class VideoSize final {
public:
    /// Every size that a movie can have, in pixels, rising in both sides.
    static constexpr std::array<platform::CGSize, 7> kSizes = {
        {{320, 240}, {640, 360}, {854, 480}, {1280, 720}, {1920, 1080}, {2560, 1440}, {3840, 2160}}};

    /// The size of that height; nothing for any other number.
    static std::optional<platform::CGSize> sizeNamed(int64_t quality);
    /// The largest size that is covered by a photo of the smallest width and the smallest height of all; exactly on a
    /// bound counts as covered.
    static platform::CGSize sizeCoveredBy(platform::CGSize smallest);

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
