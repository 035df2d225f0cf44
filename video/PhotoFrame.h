#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/CGBitmapContext.h"
#include "platform/pixels/CGImage.h"
#include "platform/pixels/CVPixelBuffer.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What one frame is made of.
struct PhotoFrameOptions {
    std::optional<platform::NSURL> photo = {};
    /// The photo's own size, upright.
    platform::CGSize photoSize;
    /// Pixels; fractions are cut off.
    platform::CGSize frame;
    /// Cover the frame, keeping faces in view, instead of showing the whole photo.
    bool reduceBorders = false;
    bool carriesWatermark = false;
    /// Look for faces also where they cannot change the photo's place.
    bool alwaysFindsFaces = false;
};

/// A photo drawn as one frame of a movie.
struct PhotoFrame {
    /// Exactly the size of the frame; unlocked.
    std::shared_ptr<platform::CVPixelBuffer> buffer;
    /// The photo as it lies in the frame.
    platform::CGImagePtr picture;
    /// The lower left corner of the picture, seen from the frame's.
    platform::CGPoint origin;
    /// The faces that were found, in the picture's own coordinates; none where they were not looked for.
    std::vector<platform::CGRect> faces;

    /// A copy of the frame's pixels; null if they cannot be read.
    std::shared_ptr<platform::CGImage> copyImage() const;
};

/// How the watermark is written on a frame that is so many pixels high.
platform::TextAttributes watermarkAttributes(double frameHeight);

/// Decodes, places and draws a photo. What goes wrong is logged as frame production's own. Any thread.
/// @return nothing if the photo cannot be shown
std::optional<PhotoFrame> renderPhotoFrame(const PhotoFrameOptions& options);
