#pragma once

#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/NSImage.h"
#include "platform/media/AVAsset.h"
#include "platform/media/AVURLAsset.h"
#include "platform/media/CMTime.h"

#include <functional>
#include <optional>
#include <string>
#include <vector>

/// What assets can do with sound beyond the platform.
namespace MORAudioWaveImage {

using ConversionHandler =
    std::move_only_function<void(std::optional<platform::NSURL> converted, std::optional<platform::NSError> error)>;
using TrimHandler =
    std::move_only_function<void(platform::AVURLAssetPtr trimmed, std::optional<platform::NSError> error)>;

/// What went wrong may be unknown: neither an image nor an error.
using WaveFormHandler =
    std::move_only_function<void(platform::NSImagePtr image, std::optional<platform::NSError> error)>;

/// Uniform type identifiers of the sound files that can be converted.
const std::vector<std::string>& supportedAudioTypes();

/// Turns a sound file into AAC in an M4A file of the same name, in a folder of its own. Blocks the calling thread and
/// ends only when the export completes or fails. The caller deletes the file.
///
/// @param asset      a file; any other kind of asset gives nothing and leaves the error alone
/// @param tempURL    where the new folder is made; none means the process's temporary directory
/// @param withRange  invalid or zero means the whole file
/// @param error      out, optional: what the export says; an error without a domain if that is nothing
/// @return the converted file, or nothing
[[nodiscard]] std::optional<platform::NSURL>
synchronouslyConvertedAssetToM4AAtTempURL(const platform::AVAssetPtr& asset,
                                          const std::optional<platform::NSURL>& tempURL,
                                          platform::CMTimeRange withRange, platform::NSError* error = nullptr);

/// The same on the global queue, where `completionHandler` is called; without a handler nothing happens. What is no
/// file is answered at once with nothing.
void audioAssetConvertedToM4AAtTempURL(const platform::AVAssetPtr& asset, std::optional<platform::NSURL> tempURL,
                                       platform::CMTimeRange withRange, ConversionHandler completionHandler);

/// The same for a file by its location.
void audioAssetAtURL(const std::optional<platform::NSURL>& url, std::optional<platform::NSURL> convertedToM4AAtTempURL,
                     platform::CMTimeRange withRange, ConversionHandler completionHandler);

/// Cuts an asset to a range without encoding it anew. `completionHandler` is called on the main queue; without one
/// nothing happens. A range that is invalid, indefinite or empty is answered with nothing.
///
/// @param outputURL  none means a file named for the second, in the process's temporary directory
void trimAssetAsynchronouslyWithTimeRange(const platform::AVAssetPtr& asset, platform::CMTimeRange timeRange,
                                          const std::optional<platform::NSURL>& outputURL,
                                          TrimHandler completionHandler);

/// Draws the loudness of an asset's first sound track: one black line for each pixel column on a clear ground, mirrored
/// about the middle, the loudest column as high as the image. Reads in the background, in little memory, and calls
/// `completionHandler` on the main queue, with an error only if the asset cannot be opened: sound that cannot be read
/// is logged and gives an image of the centre line alone. Without a handler, or with the zero size, nothing is called.
///
/// @param asset      must be shared
/// @param timeRange  invalid or zero means the whole track
/// @param imageSize  pixels; fractions are cut off, and less than one column gives the centre line alone
void loadWaveFormImageAsynchronouslyForTimeRange(const platform::AVAssetPtr& asset, platform::CMTimeRange timeRange,
                                                 platform::CGSize imageSize, WaveFormHandler completionHandler);

/// The same for the whole track.
void loadWaveFormImageAsynchronouslyOfSize(const platform::AVAssetPtr& asset, platform::CGSize size,
                                           WaveFormHandler completionHandler);

} // namespace MORAudioWaveImage
