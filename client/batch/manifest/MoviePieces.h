#pragma once

#include <stillora/Movie.h>

#include "client/batch/manifest/MovieInputs.h"
#include "platform/foundation/Lock.h"

#include <cstddef>
#include <memory>
#include <string>

namespace stillora {

/// The most pieces that a line may ask for.
inline constexpr size_t kMostPieces = 1000;

/// A movie that is made in pieces, as whoever makes one of them or joins them has to know it: which frames a piece has
/// follows from all photos.
struct MovieInPieces {
    /// Of the movie.
    std::string key;
    std::string settings;
    MovieInputs inputs;
    /// Of the whole movie.
    MovieRequest request;
    /// 1 where there are too few photos for more.
    size_t count = 1;
};

/// In how many pieces a movie is made: none has so few frames that the service would wait for more.
size_t pieceCount(size_t wanted, const MovieRequest& whole);

/// A piece without sound, to be made by itself.
/// @param number  counted from 1, at most `count`
MovieRequest requestOfPiece(const MovieRequest& whole, size_t number, size_t count);

/// What was found out about the movie that was looked at last: a look into ten thousand photos takes its time, and is
/// needed by every job and as long as others make pieces. Any thread.
class KnownPieces final {
public:
    /// Null for another movie, or other settings.
    std::shared_ptr<const MovieInPieces> find(const std::string& key, const std::string& settings) const;
    void keep(std::shared_ptr<const MovieInPieces> movie);

private:
    mutable platform::Lock lock_;
    std::shared_ptr<const MovieInPieces> movie_ GUARDED_BY(lock_);
};

} // namespace stillora
