#pragma once

#include <stillora/Document.h>

#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stillora {

/// Copies files into a document's folder, under their own names or free ones like them, several at once. What was
/// copied goes with the object, unless it is kept.
class ResourceCopier final {
public:
    enum class Kind { Photo, Sound };

    /// One file that is copied.
    struct Copy {
        std::string source;
        std::string path;
        Kind kind = Kind::Photo;
        /// When the file was made.
        std::optional<platform::NSDate> created;
        // Once it is copied:
        uint64_t bytes = 0;
        std::optional<platform::NSColor> averageColor;
    };

    explicit ResourceCopier(std::string documentFolder) : documentFolder_(std::move(documentFolder)) {}
    ~ResourceCopier();
    ResourceCopier(const ResourceCopier&) = delete;
    ResourceCopier& operator=(const ResourceCopier&) = delete;

    /// Takes names for files, in their order, by empty files; a source that was given before needs none.
    /// @param folder  below the document's; made if it is missing
    [[nodiscard]] bool reserve(std::string_view folder, const std::vector<std::string>& sources, Kind kind,
                               platform::NSError* error = nullptr);

    /// Copies all that was reserved, and finds the photos' colours.
    /// @param progress  called on this thread; answers whether to go on
    [[nodiscard]] bool copy(const std::function<bool(const CopyProgress&)>& progress,
                            platform::NSError* error = nullptr);

    /// @param index  counted over all sources that were reserved
    const Copy& copyOf(size_t index) const { return copies_[indices_[index]]; }

    /// Leaves the copies where they are.
    /// @return their paths
    std::vector<std::string> keep();

private:
    struct Work;

    const std::string documentFolder_;
    std::vector<Copy> copies_;
    /// Of each source's copy.
    std::vector<size_t> indices_;
    /// Copies by kind, device and inode of their sources.
    std::map<std::pair<Kind, std::pair<uint64_t, uint64_t>>, size_t> known_;
    uint64_t byteCount_ = 0;
    bool isKept_ = false;
};

} // namespace stillora
