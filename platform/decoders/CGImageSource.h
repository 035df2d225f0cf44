#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSGeometry.h"
#include "platform/picturefiles/PhotoOrigin.h"
#include "platform/pixels/CGImage.h"

#include <memory>
#include <optional>
#include <string>

namespace platform {

/// A picture file, recognised by its content. Opened and read once; the first picture of a file counts. One thread at a
/// time.
class CGImageSource {
public:
    /// The most pixels that a picture may claim (2^28).
    static constexpr uint64_t kMaxPixels = uint64_t{1} << 28;

    struct Properties {
        /// As stored, before orientation.
        size_t pixelWidth = 0;
        size_t pixelHeight = 0;
        /// EXIF orientation 1 to 8; nothing where the file states none. For HEIC and AVIF the container's own rotation
        /// is applied while decoding and counted in the stored size, and no orientation is given.
        std::optional<int> orientation;
        /// "jpeg", "png", "webp", "heic", "avif", "tiff", "gif", "bmp" or "jp2".
        std::string format;
        /// A JPEG file that comes ever finer, in several passes over all of the picture.
        bool isProgressive = false;
        /// Dots an inch; nothing where the file states none.
        std::optional<double> dpi;
        PhotoOrigin origin;

        /// In points: pixels x 72 / dpi, or pixels where no resolution is stated.
        CGSize size() const;
    };

    struct ThumbnailOptions {
        /// The longer side is at most this many pixels, and never more than the picture's own; truncated to an integer,
        /// at least 1. Nothing: the picture's own size.
        std::optional<double> maxPixelSize;
        /// Turn the picture upright by its orientation.
        bool withTransform = false;
    };

    /// Opens the file and recognises its format; reads no pixels.
    /// @return null if it cannot be read or is no picture of a known format; `error` names the file and why
    [[nodiscard]] static std::unique_ptr<CGImageSource> createWithURL(const platform::NSURL& url,
                                                                      NSError* error = nullptr);

    /// The same of a file's bytes.
    /// @param name  stands for the file in messages
    [[nodiscard]] static std::unique_ptr<CGImageSource> createWithData(platform::NSData data, const std::string& name,
                                                                       NSError* error = nullptr);

    virtual ~CGImageSource() = default;

    /// From the file's header alone; nothing if it is damaged or claims more than kMaxPixels.
    [[nodiscard]] virtual std::optional<Properties> copyPropertiesAtIndex(NSError* error = nullptr) = 0;

    /// Decodes at the size asked for, to sRGB. A picture that is cut off shows what could be decoded.
    /// @return null on failure; may be asked again
    [[nodiscard]] virtual CGImagePtr createThumbnailAtIndex(const ThumbnailOptions& options,
                                                            NSError* error = nullptr) = 0;

    /// Whether a picture comes of decoding the file. Looks at no more of it than tells: damage that would only show in
    /// the picture is not looked for.
    [[nodiscard]] virtual bool canDecode(NSError* error = nullptr) = 0;

    /// Whether the file ends before the picture does, which is then shown as far as it goes. Looked for where that is
    /// decoded at all, in JPEG, PNG and GIF files; damage before the end is not. Once the properties are known; reads
    /// the end of the file, and all of it only where that does not tell.
    [[nodiscard]] virtual bool isCutOff() = 0;

    /// Decodes in full, as stored, to sRGB.
    [[nodiscard]] CGImagePtr createImageAtIndex(NSError* error = nullptr) { return createThumbnailAtIndex({}, error); }
};

} // namespace platform
