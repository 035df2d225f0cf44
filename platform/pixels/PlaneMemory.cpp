#include "platform/pixels/PlaneMemory.h"

#include <cstring>

namespace platform {

PlaneMemory::PlaneMemory(const ImagePlanes& kind, size_t width, size_t height)
    : pictureWidth_(width), pictureHeight_(height), planes_(kind)
{
    const auto whole = [](size_t side, unsigned subsampling) {
        return (side + (size_t{1} << subsampling) - 1) >> subsampling << subsampling;
    };
    planes_.width = whole(width, planes_.subsampleX);
    planes_.height = whole(height, planes_.subsampleY);
    size_t total = 0;
    for (size_t i = 0; i < planes_.count; ++i) {
        planes_.planes[i].bytesPerRow = alignedRow(this->width(i) * sampleBytes());
        offsets_[i] = total;
        total += planes_.planes[i].bytesPerRow * this->height(i);
    }
    memory_ = ScratchMemory::take(ScratchMemory::Use::Planes, total);
    for (size_t i = 0; i < planes_.count && memory_; ++i)
        planes_.planes[i].samples = row(i, 0);
}

uint8_t* PlaneMemory::row(size_t plane, size_t y)
{
    return memory_ + offsets_[plane] + y * planes_.planes[plane].bytesPerRow;
}

void PlaneMemory::repeatEdges()
{
    for (size_t y = 0; y < pictureHeight_; ++y)
        for (size_t x = pictureWidth_; x < planes_.width; ++x)
            std::memcpy(row(0, y) + x * sampleBytes(), row(0, y) + (x - 1) * sampleBytes(), sampleBytes());
    for (size_t y = pictureHeight_; y < planes_.height; ++y)
        std::memcpy(row(0, y), row(0, y - 1), planes_.width * sampleBytes());
}

} // namespace platform
