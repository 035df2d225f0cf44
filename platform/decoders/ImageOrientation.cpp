#include "platform/decoders/ImageOrientation.h"

#include "platform/pixels/PixelRecycling.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace platform {

namespace {

uint32_t pixelAt(const uint8_t* row, size_t x)
{
    uint32_t pixel = 0;
    std::memcpy(&pixel, row + 4 * x, sizeof pixel);
    return pixel;
}

void setPixelAt(uint8_t* row, size_t x, uint32_t pixel)
{
    std::memcpy(row + 4 * x, &pixel, sizeof pixel);
}

void mirrorRow(const uint8_t* from, uint8_t* to, size_t width)
{
    for (size_t x = 0; x < width; ++x)
        setPixelAt(to, x, pixelAt(from, width - 1 - x));
}

/// Rows become columns, block by block so that both sides stay in the cache.
void turn(const CGImage& from, CGImage& to, bool mirrorX, bool mirrorY)
{
    constexpr size_t kBlock = 16;
    for (size_t top = 0; top < to.height; top += kBlock) {
        const size_t bottom = std::min(to.height, top + kBlock);
        for (size_t left = 0; left < to.width; left += kBlock) {
            const size_t right = std::min(to.width, left + kBlock);
            for (size_t y = top; y < bottom; ++y) {
                uint8_t* const row = to.row(y);
                const size_t fromX = mirrorX ? from.width - 1 - y : y;
                for (size_t x = left; x < right; ++x)
                    setPixelAt(row, x, pixelAt(from.row(mirrorY ? from.height - 1 - x : x), fromX));
            }
        }
    }
}

} // namespace

CGImage uprightImage(CGImage image, int orientation)
{
    if (orientation <= 1 || orientation > 8)
        return image;
    CGImage upright;
    upright.hasAlpha = image.hasAlpha;
    upright.width = turnsByQuarter(orientation) ? image.height : image.width;
    upright.height = turnsByQuarter(orientation) ? image.width : image.height;
    upright.bytesPerRow = upright.width * 4;
    upright.pixels = PixelRecycling::take();
    upright.pixels.resize(upright.bytesPerRow * upright.height);

    // The stored picture is: 2 mirrored, 3 turned by half, 4 both, 5 transposed, 6 turned a quarter to the left, 7
    // transposed and turned by half, 8 turned a quarter to the right.
    if (turnsByQuarter(orientation)) {
        turn(image, upright, orientation == 7 || orientation == 8, orientation == 6 || orientation == 7);
        PixelRecycling::give(std::move(image.pixels));
        return upright;
    }
    for (size_t y = 0; y < upright.height; ++y) {
        const uint8_t* const from = image.row(orientation == 2 ? y : image.height - 1 - y);
        if (orientation == 4)
            std::memcpy(upright.row(y), from, upright.width * 4);
        else
            mirrorRow(from, upright.row(y), upright.width);
    }
    PixelRecycling::give(std::move(image.pixels));
    return upright;
}

} // namespace platform
