#include "platform/encoders/ImageEncoder.h"

#include <algorithm>

namespace platform {

double clampedFactor(double compressionFactor)
{
    return compressionFactor > 0 ? std::min(compressionFactor, 1.0) : 0;
}

double dotsPerInch(size_t pixels, double points)
{
    constexpr double kPointsPerInch = 72;
    constexpr double kMost = 100000;
    const double dpi = static_cast<double>(pixels) * kPointsPerInch / points;
    // Also where it is no number.
    return dpi > 0 && dpi <= kMost ? dpi : kPointsPerInch;
}

void copyUnmultiplied(const CGImage& image, size_t y, uint8_t* samples)
{
    const uint8_t* from = image.row(y);
    if (!image.hasAlpha) {
        for (size_t x = 0; x < image.width; ++x, from += 4, samples += 3)
            std::copy_n(from + 1, 3, samples);
        return;
    }
    for (size_t x = 0; x < image.width; ++x, from += 4, samples += 4) {
        const unsigned alpha = from[0];
        for (size_t i = 0; i < 3; ++i)
            samples[i] =
                static_cast<uint8_t>(alpha == 0 ? 0 : std::min(255u, (from[i + 1] * 255u + alpha / 2) / alpha));
        samples[3] = static_cast<uint8_t>(alpha);
    }
}

} // namespace platform
