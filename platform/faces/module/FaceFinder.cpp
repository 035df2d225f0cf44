#include "platform/faces/module/FaceFinder.h"

#include <algorithm>
#include <optional>

namespace faces {

namespace {

/// A face needs some pixels.
constexpr size_t kLeastPictureSide = 16;

/// No decoder makes larger pictures; sides fit the library's integers.
constexpr size_t kMostPixels = size_t{1} << 28;

/// How much smaller the other pass is, which sees the faces that fill the photo.
constexpr double kCoarseShare = 0.375;

/// What a pass must say of a place to have it looked at again.
constexpr double kLeastScore = 0.3;

/// Below this a look from near saw nothing.
constexpr double kLeastScoreNear = 0.05;

/// Two boxes that overlap more are one face; a look from near means the same place if it overlaps it more.
constexpr double kSameFace = 0.3;
constexpr double kSamePlace = 0.4;

/// How much is looked at from near, in sides of the face, and how large the network then sees it.
struct NearLook {
    double faces;
    size_t side;
};
constexpr NearLook kNear = {3.2, 96};
constexpr NearLook kNearer = {2.6, 128};

/// In a crowd, faces between known ones change nothing: after so many the rest are looked at again only if they reach
/// farther out, and no more than so many times.
constexpr size_t kCrowd = 16;
constexpr size_t kMostLooks = 96;

/// What a face inside a crowd needs that is not looked at again.
constexpr double kSureScore = 0.7;

FaceBox surroundings(const FaceBox& box, double faces)
{
    const double side = std::max(box.width, box.height) * faces;
    return {box.x + (box.width - side) / 2, box.y + (box.height - side) / 2, side, side, 0};
}

struct Outline {
    double left, top, right, bottom;

    bool contains(const FaceBox& box) const
    {
        return box.x >= left && box.y >= top && box.x + box.width <= right && box.y + box.height <= bottom;
    }

    void add(const FaceBox& box)
    {
        left = std::min(left, box.x);
        top = std::min(top, box.y);
        right = std::max(right, box.x + box.width);
        bottom = std::max(bottom, box.y + box.height);
    }
};

/// Looks at a place from near: the boxes there, joined, with the best score; nothing where there is none.
std::optional<FaceBox> lookAgain(FaceNetwork& network, const PicturePyramid& picture, const FaceBox& box, NearLook look)
{
    auto seen = network.look(picture, surroundings(box, look.faces), look.side, kLeastScoreNear);
    std::erase_if(seen, [&](const FaceBox& other) { return overlap(box, other) <= kSamePlace; });
    // All of them mean this one place.
    const auto joined = joinBoxes(std::move(seen), 0);
    return joined.empty() ? std::nullopt : std::optional(joined.front());
}

} // namespace

FaceFinder::FaceFinder(const std::string& modelPath)
    : large_(modelPath), small_(modelPath), near_(modelPath), nearer_(modelPath)
{}

std::vector<FaceBox> FaceFinder::facesInPicture(const FaceModulePicture& picture)
{
    const auto [pixels, width, height, bytesPerRow] = picture;
    if (!pixels || std::min(width, height) < kLeastPictureSide || width > kMostPixels / height)
        return {};

    const PicturePyramid pyramid(picture);
    const FaceBox whole = {0, 0, static_cast<double>(width), static_cast<double>(height), 0};
    const size_t fineSide = finePassSide(whole.width, whole.height);
    auto places = large_.look(pyramid, whole, fineSide, kLeastScore);
    const auto coarse =
        small_.look(pyramid, whole, static_cast<size_t>(kCoarseShare * static_cast<double>(fineSide)), kLeastScore);
    places.insert(places.end(), coarse.begin(), coarse.end());

    std::vector<FaceBox> found;
    Outline outline{whole.width, whole.height, 0, 0};
    size_t looks = 0;
    for (FaceBox& box : joinBoxes(std::move(places), kSameFace)) {
        if (found.size() >= kCrowd && outline.contains(box)) {
            if (box.score >= kSureScore)
                found.push_back(box);
            continue;
        }
        if (looks == kMostLooks)
            break;
        ++looks;
        if (isFace(pyramid, box)) {
            found.push_back(box);
            outline.add(box);
        }
    }

    std::vector<FaceBox> bounds;
    for (const FaceBox& box : surestBoxes(std::move(found), kSameFace)) {
        const FaceBox inside = faceBounds(box, whole.width, whole.height);
        if (inside.width > 0 && inside.height > 0)
            bounds.push_back(inside);
    }
    return bounds;
}

bool FaceFinder::isFace(const PicturePyramid& picture, FaceBox& box)
{
    const auto near = lookAgain(near_, picture, box, kNear);
    if (!near || bestAgreement(box.score, near->score) <= 0)
        return false;
    const auto nearer = lookAgain(nearer_, picture, box, kNearer);
    if (!nearer || agreement(box.score, near->score, nearer->score) <= 0)
        return false;
    box = {nearer->x, nearer->y, nearer->width, nearer->height, box.score};
    return true;
}

} // namespace faces
