#pragma once

#include "items/MORPhoto.h"
#include "platform/foundation/NSGeometry.h"
#include "video/VideoStageContext.h"

/// Replaces the context's `imageBuffers` with a new list and queues one operation a photo on `bufferCreationQ`, each of
/// which turns its photo into a finished frame of that list. Returns at once. A photo that cannot be shown is logged
/// and gives no frame, as does one whose frame is copied; after a cancel nothing more is queued, started or published.
///
/// @param context        must outlive the operations of its `bufferCreationQ`
/// @param photos         in showing order; one that occurs twice has the index of its first place both times
/// @param maxVidSize     the size of every frame, in pixels; fractions are cut off for the pixels
/// @param reduceBorders  cover the frame, keeping faces in view, instead of showing the whole photo
void fillBufferArray(VideoStageContext& context, const PhotoList& photos, platform::CGSize maxVidSize,
                     bool reduceBorders);
