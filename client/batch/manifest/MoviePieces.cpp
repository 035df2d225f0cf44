#include "client/batch/manifest/MoviePieces.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace stillora {

namespace {

/// More than the five that the service waits for, whatever is lost by beginning at even frames.
constexpr size_t kLeastFrames = 8;

/// The frames before a piece, of which the service takes an even number.
size_t framesBefore(size_t number, size_t count, size_t frames)
{
    return number > count ? frames : (number - 1) * frames / count / 2 * 2;
}

} // namespace

size_t pieceCount(size_t wanted, const MovieRequest& whole)
{
    // Few photos are shown several times each, and need no pieces.
    if (whole.plan.framesPerPhoto != 1)
        return 1;
    return std::clamp<size_t>(whole.photos.size() / kLeastFrames, 1, std::max<size_t>(1, wanted));
}

MovieRequest requestOfPiece(const MovieRequest& whole, size_t number, size_t count)
{
    const size_t frames = whole.photos.size();
    const size_t begin = framesBefore(number, count, frames);
    const size_t end = framesBefore(number + 1, count, frames);
    MovieRequest piece;
    piece.photos.assign(std::next(whole.photos.begin(), static_cast<ptrdiff_t>(begin)),
                        std::next(whole.photos.begin(), static_cast<ptrdiff_t>(end)));
    piece.plan.timePerFrame = whole.plan.timePerFrame;
    piece.plan.timePerPhoto = whole.plan.timePerPhoto;
    piece.plan.totalVideoDuration = whole.plan.timePerFrame * static_cast<double>(end - begin);
    piece.codec = whole.codec;
    // All photos decide on it.
    piece.quality = static_cast<int64_t>(frameSizeForQuality(whole.quality, whole.photos).height);
    piece.reducesBorders = whole.reducesBorders;
    piece.title = "piece";
    piece.watermark = whole.watermark;
    piece.part = MoviePart{begin, frames};
    return piece;
}

std::shared_ptr<const MovieInPieces> KnownPieces::find(const std::string& key, const std::string& settings) const
{
    const platform::LockGuard guard(lock_);
    return movie_ && movie_->key == key && movie_->settings == settings ? movie_ : nullptr;
}

void KnownPieces::keep(std::shared_ptr<const MovieInPieces> movie)
{
    const platform::LockGuard guard(lock_);
    movie_ = std::move(movie);
}

} // namespace stillora
