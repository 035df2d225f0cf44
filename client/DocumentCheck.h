#pragma once

#include "client/Document.h"
#include "client/MoviePlan.h"

#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace stillora {

/// An item of a document that cannot be used, and why.
struct BadItem {
    enum class Kind { Photo, Soundtrack };

    Kind kind = Kind::Photo;
    /// In the document's list.
    size_t index = 0;
    /// Its file's path, as far as that is known; else "photo 3".
    std::string path;
    /// One sentence without the path.
    std::string reason;
};

/// What a look into every file of a document found.
struct CheckedDocument {
    /// In the document's order.
    std::vector<PhotoFacts> photos;
    std::vector<SoundFacts> sounds;
    std::vector<BadItem> bad;
    /// Photos whose files are not as they were added, one sentence each with the path.
    std::vector<std::string> changed;
    bool isCancelled = false;
};

/// Finds items that are damaged, whose files are missing, or whose files do not decode.
///
/// @param progress  called on this thread after some of the photos, with how many are done; answers whether to go on
CheckedDocument checkDocument(const Document& document, const std::function<bool(size_t)>& progress);

/// The items that are seen to be bad without opening a file.
std::vector<BadItem> badItemsOf(const Document& document);

} // namespace stillora
