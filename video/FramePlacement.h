#pragma once

#include "platform/foundation/NSGeometry.h"

#include <cstddef>
#include <vector>

/// How a photo lies in its frame. Origins are lower left corners.

/// The longer side asked of the decoder, so that the photo fits inside the frame without being enlarged, or, with
/// `reduceBorders`, covers the frame as far as its pixels allow. Covering, it is rounded up to a whole number: cut off,
/// it would leave one photo size in ten a black line of one pixel.
///
/// @param photo  the photo's own size, upright
double thumbnailBound(platform::CGSize photo, platform::CGSize frame, bool reduceBorders);

/// The rectangle around all faces; empty if there is none.
platform::CGRect unionOfFaces(const std::vector<platform::CGRect>& faces);

/// Where a picture's lower left corner lies in the frame: in the middle, or moved so that a face that would stick out
/// is in the middle, as far as no border shows.
///
/// @param face  in the picture's own coordinates; empty for none
platform::CGPoint placement(platform::CGSize picture, platform::CGRect face, platform::CGSize frame);

/// Whether the frame carries the product's mark: the first, the last and nine in the middle; with fewer than ten
/// frames the middle ones have none.
bool carriesWatermark(size_t index, size_t count);
