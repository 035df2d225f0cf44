#pragma once

#include "platform/foundation/NSGeometry.h"
#include "platform/graphics/CGImage.h"

#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// Finds faces. One thread at a time; each rendering operation makes its own.
class CIDetector {
public:
    using Factory = std::function<std::unique_ptr<CIDetector>()>;

    /// A detector of faces at high accuracy.
    /// @return null where no detector is at hand
    static std::unique_ptr<CIDetector> detectorOfTypeFace();

    /// What `detectorOfTypeFace` asks from now on; an empty one means that no detector is at hand. Any thread.
    static void setFaceDetectorFactory(Factory factory);

    virtual ~CIDetector() = default;

    /// The bounds of each face, in pixels of the image; the origin is its lower left corner.
    virtual std::vector<CGRect> featuresInImage(const CGImage& image) = 0;
};

} // namespace platform
