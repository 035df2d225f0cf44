#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace platform {
class PicturePackets;
}

/// A movie that holds some of a request's frames already.
struct FrameSource {
    platform::NSURL movie;
    /// By their places in the request: the places in the movie, both counted from 0.
    std::map<size_t, size_t> frames;
};

/// Coded frames of an earlier movie that are copied, since they would come out the same.
class ReusedFrames final {
public:
    /// @param count  frames of the whole request
    /// @return null, and why, where the movie has not all that it is said to have
    [[nodiscard]] static std::shared_ptr<ReusedFrames> open(FrameSource source, size_t count,
                                                            platform::NSError* error = nullptr);

    ~ReusedFrames();
    ReusedFrames(const ReusedFrames&) = delete;
    ReusedFrames& operator=(const ReusedFrames&) = delete;

    const FrameSource& source() const { return source_; }
    size_t count() const { return source_.frames.size(); }
    bool contains(size_t index) const { return source_.frames.contains(index); }

    /// One thread at a time.
    /// @param index  one that is contained
    /// @return the frame as its encoder gave it; nothing, and why, where it cannot be read
    [[nodiscard]] std::optional<std::vector<uint8_t>> packet(size_t index, platform::NSError* error = nullptr);

private:
    ReusedFrames(FrameSource source, std::unique_ptr<platform::PicturePackets> packets);

    const FrameSource source_;
    const std::unique_ptr<platform::PicturePackets> packets_;
};
