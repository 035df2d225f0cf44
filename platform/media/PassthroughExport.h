#pragma once

#include "platform/files/NSURL.h"
#include "platform/media/AVAsset.h"
#include "platform/media/AVMetadataItem.h"
#include "platform/sound/ExportControl.h"

#include <optional>

namespace platform {

/// Copies an asset's picture and sound tracks, packet by packet, into a new MPEG-4 movie: samples in order of time,
/// times exact, the index before the media if asked for. Each track must be one stretch of a file; sound is cut by an
/// edit list, picture cannot be cut.
///
/// @param metadata  the movie tells its title, if there is one, and when it was made
/// @return false on failure, or if cancelled, which is no error; what was written is then left
[[nodiscard]] bool copyMovie(const AVAsset& asset, const std::optional<CMTimeRange>& timeRange, const NSURL& url,
                             bool indexFirst, const AVMetadataItemList& metadata, const ExportControl& control,
                             NSError* error = nullptr);

} // namespace platform
