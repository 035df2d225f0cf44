#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"
#include "platform/media/AVMetadataItem.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>

struct AVCodecParameters;

namespace platform {

/// A QuickTime file with one track of pictures. For the writer alone; one thread at a time.
class AVAssetWriterMovieFile {
public:
    /// Makes the file, which must not be there yet.
    /// @return null if it cannot be made; `error` names it and says why
    [[nodiscard]] static std::unique_ptr<AVAssetWriterMovieFile> create(const NSURL& url, NSError* error = nullptr);

    /// Removes the file unless it was finished.
    virtual ~AVAssetWriterMovieFile() = default;

    /// To be called once, before the first packet.
    ///
    /// @param timescale       of the track and of the movie
    /// @param indexFirst      whether the index stands before the media
    /// @param maximumPackets  room for the index of so many packets is kept at the front; nothing: the media is moved
    ///                        once at the end to make room
    /// @param metadata        the movie tells its title, if there is one, and when it was made
    [[nodiscard]] virtual bool begin(const AVCodecParameters& parameters, int32_t timescale, bool indexFirst,
                                     std::optional<size_t> maximumPackets, const AVMetadataItemList& metadata,
                                     NSError* error = nullptr) = 0;

    /// @param time, duration  in the timescale, from the movie's start; times increase
    [[nodiscard]] virtual bool write(std::span<const uint8_t> packet, int64_t time, int64_t duration,
                                     NSError* error = nullptr) = 0;

    /// Writes the index. The file is whole then, though not yet flushed to the disk.
    [[nodiscard]] virtual bool finish(NSError* error = nullptr) = 0;
};

} // namespace platform
