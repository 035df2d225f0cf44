#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform {

/// The pictures of a movie as they are coded, in any order. Decodes nothing, and keeps none. One thread.
class PicturePackets {
public:
    /// @return null for a file that cannot be read, or is no movie with one track of pictures that a writer here makes;
    ///         `error` names it and says why
    [[nodiscard]] static std::unique_ptr<PicturePackets> open(const NSURL& url, NSError* error = nullptr);

    virtual ~PicturePackets() = default;

    /// How many the index tells of.
    virtual size_t count() const = 0;

    /// Whether a decoder that was set up for these understands those of another movie as well.
    virtual bool isAlike(const PicturePackets& other) const = 0;

    /// A picture as its encoder gave it: of H.264 and HEVC, behind start codes.
    /// @param index  counted from 0, in the order in which they are shown
    /// @return nothing, and why, where there is none or the file cannot be read
    [[nodiscard]] virtual std::optional<std::vector<uint8_t>> packet(size_t index, NSError* error = nullptr) = 0;
};

} // namespace platform
