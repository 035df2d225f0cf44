#include "platform/faces/module/FaceBoxes.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace faces {

namespace {

/// Weights and threshold of `agreement`, measured: docs/faces.md.
constexpr double kWeightInPassing = 0.2;
constexpr double kWeightNear = 0.4;
constexpr double kLeastAgreement = 0.4;

/// A last look is hardly ever surer than this where the one before had doubts.
constexpr double kBestLastLook = 0.85;

/// How far a head reaches beyond the network's box, as shares of its side: below and beside, the mean over faces marked
/// by eye; above, where hair is cut off more easily than seen, as far as all but the highest reach (docs/faces.md).
constexpr double kCrown = 0.58;
constexpr double kHairline = 0.19;

/// Height of a wide screen as a share of its width: what is shown of a tall picture that fills it.
constexpr double kScreen = 9.0 / 16;
constexpr double kChin = 0.03;
constexpr double kCheek = -0.03;

/// The finer pass over a photo of 3 : 2, which sees faces of a thirtieth of its long side.
constexpr double kFineSide = 512;
constexpr double kFineAspect = 1.5;
constexpr double kLongestSide = 2048;

/// The logarithm of the odds: scores near 0 and 1 weigh more than a mean of the scores would let them.
double logOdds(double score)
{
    const double inside = std::clamp(score, 0.01, 0.99);
    return std::log(inside / (1 - inside));
}

void sortBySureness(std::vector<FaceBox>& boxes)
{
    std::stable_sort(boxes.begin(), boxes.end(), [](const FaceBox& a, const FaceBox& b) { return a.score > b.score; });
}

} // namespace

double overlap(const FaceBox& a, const FaceBox& b)
{
    const double width = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
    const double height = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
    if (width <= 0 || height <= 0)
        return 0;
    const double common = width * height;
    return common / (a.width * a.height + b.width * b.height - common);
}

std::vector<FaceBox> joinBoxes(std::vector<FaceBox> boxes, double limit)
{
    sortBySureness(boxes);
    std::vector<FaceBox> joined;
    while (!boxes.empty()) {
        const FaceBox surest = boxes.front();
        FaceBox mean{.score = surest.score};
        double weight = 0;
        std::vector<FaceBox> others;
        for (size_t i = 0; i < boxes.size(); ++i) {
            const FaceBox& box = boxes[i];
            if (i > 0 && overlap(surest, box) <= limit) {
                others.push_back(box);
                continue;
            }
            mean.x += box.x * box.score;
            mean.y += box.y * box.score;
            mean.width += box.width * box.score;
            mean.height += box.height * box.score;
            weight += box.score;
        }
        if (weight > 0)
            joined.push_back({mean.x / weight, mean.y / weight, mean.width / weight, mean.height / weight, mean.score});
        boxes = std::move(others);
    }
    return joined;
}

std::vector<FaceBox> surestBoxes(std::vector<FaceBox> boxes, double limit)
{
    sortBySureness(boxes);
    std::vector<FaceBox> kept;
    for (const FaceBox& box : boxes) {
        if (std::none_of(kept.begin(), kept.end(), [&](const FaceBox& other) { return overlap(box, other) > limit; }))
            kept.push_back(box);
    }
    return kept;
}

double agreement(double inPassing, double near, double nearer)
{
    return kWeightInPassing * logOdds(inPassing) + kWeightNear * (logOdds(near) + logOdds(nearer)) - kLeastAgreement;
}

double bestAgreement(double inPassing, double near)
{
    return agreement(inPassing, near, kBestLastLook);
}

FaceBox faceBounds(const FaceBox& box, double pictureWidth, double pictureHeight)
{
    const double left = std::clamp(box.x - kCheek * box.width, 0.0, pictureWidth);
    const double right = std::clamp(box.x + box.width * (1 + kCheek), 0.0, pictureWidth);
    const double bottom = std::clamp(box.y + box.height * (1 + kChin), 0.0, pictureHeight);
    // A head that no screen shows whole gives up its crown before its chin.
    const double shown = bottom - std::min(pictureHeight, kScreen * pictureWidth);
    const double highest = std::min(box.y - kHairline * box.height, std::max(box.y - kCrown * box.height, shown));
    const double top = std::clamp(highest, 0.0, pictureHeight);
    return {left, top, right - left, bottom - top, box.score};
}

size_t finePassSide(double pictureWidth, double pictureHeight)
{
    const double aspect = std::max(pictureWidth, pictureHeight) / std::min(pictureWidth, pictureHeight);
    return static_cast<size_t>(std::min(kFineSide * std::sqrt(std::max(1.0, aspect / kFineAspect)), kLongestSide));
}

} // namespace faces
