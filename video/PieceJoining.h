#pragma once

#include "platform/foundation/NSError.h"
#include "platform/media/CMTime.h"
#include "platform/writer/AVAssetWriterInput.h"
#include "video/VideoStageContext.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

/// Appends the coded frames of a movie's pieces to a writer's input, one after the other, and decodes none. Blocks
/// until all are appended, or the context is cancelled.
///
/// @param pieces    movies of one picture track each, all coded alike
/// @param count     frames of the whole movie, which the pieces must hold together
/// @param timeOf    when a frame is shown
/// @param appended  called for each frame once it is appended
/// @param error     out, optional: names the piece that is not as it should be; untouched after a cancel, and where the
///                  writer takes no more
/// @return whether all frames were appended
[[nodiscard]] bool appendPieces(const VideoStageContext& context, platform::AVAssetWriterInput& input,
                                const std::vector<platform::NSURL>& pieces, size_t count,
                                const std::function<platform::CMTime(uint64_t index)>& timeOf,
                                const std::function<void(uint64_t index)>& appended,
                                platform::NSError* error = nullptr);

/// Whether the header of a movie fits the frames of a piece that were copied to it: another version of an encoder may
/// have made these.
/// @param error  out, optional: why not
[[nodiscard]] bool hasHeaderOfPiece(const platform::NSURL& movie, const platform::NSURL& piece,
                                    platform::NSError* error = nullptr);
