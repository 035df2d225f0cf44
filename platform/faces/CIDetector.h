#pragma once

#include "platform/foundation/NSGeometry.h"
#include "platform/pixels/CGImage.h"

#include <functional>
#include <memory>
#include <vector>

namespace platform {

/// Finds faces. One thread at a time; each rendering operation makes its own.
class CIDetector {
public:
    using Factory = std::function<std::unique_ptr<CIDetector>()>;

    /// A detector of faces at high accuracy. The first one loads what it needs, which takes some time; making the next
    /// ones is quick.
    /// @return null where no detector is at hand; why is logged once
    static std::unique_ptr<CIDetector> detectorOfTypeFace();

    /// What `detectorOfTypeFace` asks from now on instead of the detector module; an empty one means that no detector
    /// is at hand. Any thread.
    static void setFaceDetectorFactory(Factory factory);

    virtual ~CIDetector() = default;

    /// The bounds of each face from the crown of its head to its chin, inside the image and in its pixels; the origin
    /// is its lower left corner. The surest first.
    virtual std::vector<CGRect> featuresInImage(const CGImage& image) = 0;
};

} // namespace platform
