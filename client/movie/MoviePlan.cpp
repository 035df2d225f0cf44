#include <stillora/Movie.h>

#include "audio/SoundtrackAssembly.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "video/SilentVideo.h"
#include "video/VideoSize.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <fmt/format.h>

namespace stillora {

namespace {

/// By so much the sound is planned longer than the pictures, so that rounding to samples never leaves it shorter:
/// only a soundtrack that reaches the end is faded and cut there.
constexpr Seconds kOverlap{0.25};

/// So much shorter than the music are the pictures that fit it, for the same reason.
constexpr Seconds kFitReserve{0.05};

/// The longest piece of silence.
constexpr Seconds kMaxSilence{600};

/// More pieces than any sensible soundtrack; each is opened and joined by the service.
constexpr size_t kMaxSounds = 5000;

Seconds lengthOfAll(const std::vector<SoundFacts>& sounds)
{
    Seconds length{0};
    for (const SoundFacts& sound : sounds)
        length += sound.length;
    return length;
}

/// Chooses the pieces of music and sets what is heard of them.
Result<void> planMusic(const MovieWish& wish, MoviePlan& plan)
{
    const Seconds end = plan.totalVideoDuration;
    // Where the sounds outlast the pictures none begins while the music fades. What fits is heard, and so is all that
    // the pictures are fitted to; what is to be repeated until the end is, however little of it is left.
    const bool outlasts = !wish.loopsSounds && !wish.fitsMusic && lengthOfAll(wish.sounds) > end;
    const Seconds lastStart = outlasts ? end - Seconds(kSoundtrackMarginSeconds) : end;
    std::vector<bool> isUsed(wish.sounds.size());
    Seconds cursor{0};
    for (size_t i = 0; !wish.sounds.empty(); ++i) {
        if (!wish.loopsSounds && i == wish.sounds.size())
            break;
        if (cursor.count() > 0 && cursor >= lastStart)
            break;
        if (plan.sounds.size() == kMaxSounds)
            return Error{ErrorCode::OutOfRange,
                         {},
                         localized("the music is too short to be repeated for {}: that takes more than {} "
                                   "repeats",
                                   secondsText(end), kMaxSounds)};
        const size_t source = i % wish.sounds.size();
        const SoundFacts& sound = wish.sounds[source];
        PlannedSound piece{source, sound.selection, sound.length};
        const Seconds needed = end - cursor + kOverlap;
        // A repeated file is converted once, with its first selection, so only a first one is worth shortening.
        if (!isUsed[source] && piece.length > needed + kOverlap) {
            const Seconds start = sound.selection ? sound.selection->start : Seconds(0);
            piece.selection = SoundFacts::Selection{start, start + needed};
            piece.length = needed;
        }
        isUsed[source] = true;
        cursor += piece.length;
        plan.sounds.push_back(piece);
    }
    for (size_t source = 0; source < isUsed.size(); ++source) {
        if (!isUsed[source])
            plan.leftOut.push_back(source);
    }
    plan.musicEnd = std::min(cursor, end);
    if (!plan.sounds.empty() && cursor >= end)
        plan.fadeStart = end - std::min(end, Seconds(kLongestFadeSeconds));
    if (cursor < end && wish.fillsSilence) {
        // One file for all pieces, so that hours of silence are converted in minutes; the last is cut anyway.
        const Seconds length = end - cursor + kOverlap;
        const double pieces = std::ceil(length / kMaxSilence);
        for (double i = 0; i < pieces; ++i)
            plan.sounds.push_back({std::nullopt, std::nullopt, length / pieces});
        cursor += length;
    }
    plan.totalSoundtrackDuration = std::min(cursor, end);
    return {};
}

platform::CGSize sizeForSmallest(const std::vector<PhotoFacts>& photos)
{
    platform::CGSize smallest = {std::numeric_limits<double>::max(), std::numeric_limits<double>::max()};
    for (const PhotoFacts& photo : photos) {
        smallest.width = std::min(smallest.width, photo.size.width);
        smallest.height = std::min(smallest.height, photo.size.height);
    }
    return VideoSize::sizeCoveredBy(smallest);
}

/// One photo in five may be smaller than suits the frame, and one of three or four. Of two, neither is most of them.
size_t mostSmallerPhotos(size_t count)
{
    return count < 3 ? 0 : std::max<size_t>(1, count / 5);
}

/// An upright photo leaves a frame black at its sides, whatever the frame's size: its height says how much of it is
/// seen. A frame beyond full HD is worth its bytes where it is filled.
bool suits(platform::CGSize frame, const PhotoFacts& photo)
{
    constexpr double kHeightOfFullHD = 1080;
    const bool isUpright = photo.size.width <= photo.size.height;
    return photo.size.height >= frame.height &&
           (photo.size.width >= frame.width || (isUpright && frame.height <= kHeightOfFullHD));
}

platform::CGSize sizeFor(const PhotoFacts& photo)
{
    const auto& sizes = VideoSize::kSizes;
    const auto largest =
        std::ranges::find_if(sizes.rbegin(), sizes.rend(), [&](auto size) { return suits(size, photo); });
    return largest == sizes.rend() ? sizes.front() : *largest;
}

platform::CGSize sizeForMost(const std::vector<PhotoFacts>& photos)
{
    std::vector<platform::CGSize> sizes;
    for (const PhotoFacts& photo : photos)
        sizes.push_back(sizeFor(photo));
    if (sizes.empty())
        return VideoSize::kSizes.back();
    // The sizes rise in both sides, so that the heights put them in order.
    const auto chosen = sizes.begin() + static_cast<std::ptrdiff_t>(mostSmallerPhotos(sizes.size()));
    std::ranges::nth_element(sizes, chosen, {}, &platform::CGSize::height);
    return *chosen;
}

} // namespace

Result<MoviePlan> planMovie(const MovieWish& wish)
{
    if (wish.photos.empty())
        return Error{ErrorCode::NothingToShow, {}, localized("there is no photo to show")};

    MoviePlan plan;
    const auto photoCount = static_cast<double>(wish.photos.size());
    plan.timePerPhoto = wish.timePerPhoto;
    if (wish.fitsMusic) {
        const Seconds length = lengthOfAll(wish.sounds) - kFitReserve;
        plan.timePerPhoto = Seconds(std::floor(length.count() / photoCount * kPictureTimescale) / kPictureTimescale);
    }
    if (!(plan.timePerPhoto >= kMinTimePerPhoto && plan.timePerPhoto <= kMaxTimePerPhoto))
        return Error{ErrorCode::OutOfRange,
                     {},
                     localized("{} a photo is out of range: from {} to {} can be shown",
                               secondsText(std::max(plan.timePerPhoto, Seconds(0))), secondsText(kMinTimePerPhoto),
                               secondsText(kMaxTimePerPhoto))};

    plan.framesPerPhoto = (kFramesBeforeWriting + wish.photos.size() - 1) / wish.photos.size();
    plan.timePerFrame = plan.timePerPhoto / static_cast<double>(plan.framesPerPhoto);
    plan.totalVideoDuration = plan.timePerPhoto * photoCount;
    if (const auto music = planMusic(wish, plan); !music)
        return music.error();
    return plan;
}

std::optional<Seconds> MoviePlan::soundEnd() const
{
    if (sounds.empty())
        return std::nullopt;
    Seconds length{0};
    for (const PlannedSound& piece : sounds)
        length += piece.length;
    return std::min(length, totalVideoDuration);
}

Size frameSizeForQuality(std::int64_t quality, const std::vector<PhotoFacts>& photos)
{
    const auto named = VideoSize::sizeNamed(quality);
    const platform::CGSize size = named                          ? *named
                                  : quality == kAutomaticQuality ? sizeForMost(photos)
                                                                 : sizeForSmallest(photos);
    return {size.width, size.height};
}

std::vector<std::size_t> photosSmallerThanFrame(Size frame, const std::vector<PhotoFacts>& photos)
{
    std::vector<std::size_t> smaller;
    for (size_t i = 0; i < photos.size(); ++i)
        if (!suits({frame.width, frame.height}, photos[i]))
            smaller.push_back(i);
    return smaller;
}

} // namespace stillora
