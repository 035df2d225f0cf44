#pragma once

#include "client/reader/WorkLimit.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>

namespace stillora {

/// How much of the processor's time looking at a photo is worth: a bit more than a second, and more for the bytes and
/// the pixels that it has. What a photo costs is known from its header as a rule; this is for the files of which it is
/// not. Many times as much as any that is meant well takes.
std::chrono::milliseconds workForPhoto(int64_t bytes, double pixels);

/// Limits what the calling thread takes for a photo while this lives: first for its header, then for its pixels.
class PhotoWork final {
public:
    explicit PhotoWork(const std::filesystem::path& file);

    /// The header is known; from now on so many pixels are decoded.
    void beginPixels(double pixels);

private:
    int64_t bytes_ = 0;
    std::optional<WorkLimit> limit_;
};

} // namespace stillora
