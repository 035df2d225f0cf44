#include "platform/graphics/CGBitmapContext.h"

#include "platform/graphics/TextRenderer.h"
#include "platform/pixels/ImageScaler.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace platform {

namespace {

// Far outside every picture, and safe to calculate with.
constexpr double kFarAway = 1e9;

int64_t whole(double value)
{
    return static_cast<int64_t>(std::clamp(std::isnan(value) ? 0.0 : value, -kFarAway, kFarAway));
}

constexpr uint32_t kOpaque = std::endian::native == std::endian::little ? 0x000000FFu : 0xFF000000u;

void copyOpaque(uint8_t* to, const uint8_t* from, size_t count)
{
    for (size_t x = 0; x < count; ++x) {
        uint32_t pixel = 0;
        std::memcpy(&pixel, from + 4 * x, sizeof pixel);
        pixel |= kOpaque;
        std::memcpy(to + 4 * x, &pixel, sizeof pixel);
    }
}

void blendOver(uint8_t* to, const uint8_t* from, size_t count)
{
    for (size_t x = 0; x < count; ++x, to += 4, from += 4) {
        const unsigned rest = 255u - from[0];
        for (size_t i = 1; i < 4; ++i)
            to[i] = static_cast<uint8_t>(std::min(255u, from[i] + (to[i] * rest + 127) / 255));
        to[0] = 0xFF;
    }
}

} // namespace

CGBitmapContext::CGBitmapContext(uint8_t* pixels, size_t width, size_t height, size_t bytesPerRow)
    : pixels_(pixels), width_(width), height_(height), bytesPerRow_(bytesPerRow)
{}

void CGBitmapContext::clearRect(CGRect rect)
{
    const auto width = static_cast<int64_t>(width_);
    const auto height = static_cast<int64_t>(height_);
    const int64_t left = std::clamp<int64_t>(whole(std::round(rect.origin.x)), 0, width);
    const int64_t right = std::clamp<int64_t>(whole(std::round(rect.origin.x + rect.size.width)), left, width);
    const int64_t bottom = std::clamp<int64_t>(whole(std::round(rect.origin.y)), 0, height);
    const int64_t top = std::clamp<int64_t>(whole(std::round(rect.origin.y + rect.size.height)), bottom, height);
    for (int64_t y = height - top; y < height - bottom; ++y) {
        uint8_t* const row = pixels_ + static_cast<size_t>(y) * bytesPerRow_;
        for (int64_t x = left; x < right; ++x)
            std::memcpy(row + 4 * x, &kOpaque, sizeof kOpaque);
    }
}

bool CGBitmapContext::drawImage(CGRect rect, const CGImage& image)
{
    const int64_t width = whole(std::round(rect.size.width));
    const int64_t height = whole(std::round(rect.size.height));
    if (width <= 0 || height <= 0)
        return true;
    const int64_t left = whole(std::floor(rect.origin.x));
    const int64_t top = static_cast<int64_t>(height_) - (whole(std::floor(rect.origin.y)) + height);
    if (static_cast<size_t>(width) == image.width && static_cast<size_t>(height) == image.height) {
        blend(image, left, top);
        return true;
    }
    CGImage scaled;
    if (!scaleImage(image, static_cast<size_t>(width), static_cast<size_t>(height), scaled))
        return false;
    blend(scaled, left, top);
    return true;
}

void CGBitmapContext::drawTextAtPoint(std::string_view text, CGPoint point, const TextAttributes& attributes)
{
    if (const auto rendered = renderText(text, attributes))
        blend(rendered->image, whole(std::floor(point.x)) + rendered->left,
              static_cast<int64_t>(height_) - whole(std::floor(point.y)) - rendered->top);
}

void CGBitmapContext::blend(const CGImage& image, int64_t left, int64_t top)
{
    const int64_t firstX = std::max<int64_t>(left, 0);
    const int64_t endX = std::min<int64_t>(left + static_cast<int64_t>(image.width), static_cast<int64_t>(width_));
    const int64_t firstY = std::max<int64_t>(top, 0);
    const int64_t endY = std::min<int64_t>(top + static_cast<int64_t>(image.height), static_cast<int64_t>(height_));
    if (firstX >= endX)
        return;
    const auto count = static_cast<size_t>(endX - firstX);
    for (int64_t y = firstY; y < endY; ++y) {
        const uint8_t* const from = image.row(static_cast<size_t>(y - top)) + 4 * (firstX - left);
        uint8_t* const to = pixels_ + static_cast<size_t>(y) * bytesPerRow_ + 4 * firstX;
        if (image.hasAlpha)
            blendOver(to, from, count);
        else
            copyOpaque(to, from, count);
    }
}

} // namespace platform
