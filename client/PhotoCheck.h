#pragma once

#include "client/MoviePlan.h"
#include "client/PhotoListing.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace stillora {

/// What a look into every candidate found.
struct CheckedPhotos {
    /// In the order of the candidates.
    std::vector<PhotoFacts> good;
    std::vector<BadPhoto> bad;
    /// Files of folders that turned out to be no pictures.
    size_t passedOver = 0;
    bool isCancelled = false;
};

/// Opens each candidate, reads its header and decodes a small picture of it, so that no photo which the service would
/// wait for in vain ever reaches it. Uses all processors.
///
/// @param progress  called on this thread after some of them, with how many are done; answers whether to go on
CheckedPhotos checkPhotos(const std::vector<PhotoCandidate>& candidates, const std::function<bool(size_t)>& progress);

} // namespace stillora
