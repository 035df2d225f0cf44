#pragma once

#include <cstddef>
#include <vector>

namespace faces {

/// A box that may hold a face, and how sure the network is of it: 0 to 1. Pixels of the picture, (x, y) is the upper
/// left corner.
struct FaceBox {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;
    double score = 0;
};

/// The share of both boxes' common area in what they cover together: 0 to 1.
double overlap(const FaceBox& a, const FaceBox& b);

/// Joins boxes that mean the same face: the surest box takes every one that overlaps it by more than `limit`; their
/// mean, weighted by score, is the box, and the best score stays. The surest first.
std::vector<FaceBox> joinBoxes(std::vector<FaceBox> boxes, double limit);

/// The surest of boxes that overlap by more than `limit`, as they are.
std::vector<FaceBox> surestBoxes(std::vector<FaceBox> boxes, double limit);

/// One number for what several looks at the same place said: above 0 means a face. The looks from near count twice, as
/// they see the face in the size that the network knows best.
///
/// @param scores  0 to 1: in passing, and from near at two distances
double agreement(double inPassing, double near, double nearer);

/// The best that `agreement` can still become when the last look is missing.
double bestAgreement(double inPassing, double near);

/// The network marks a face from the brows down: reaches up to the crown, or less far, down to the hairline,
/// where a wide screen would not show the whole head, and cuts off what lies outside the
/// picture. A width or height of 0 where nothing is left.
FaceBox faceBounds(const FaceBox& box, double pictureWidth, double pictureHeight);

/// The long side of the finer pass, in pixels of the network: more for panoramas, so that each pass takes about the
/// same time, and never more than what the picture's shape makes sense of.
size_t finePassSide(double pictureWidth, double pictureHeight);

} // namespace faces
