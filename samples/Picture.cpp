#include "samples/Picture.h"

#include "samples/Noise.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <memory>
#include <utility>

namespace {

struct DestroyCompressor {
    void operator()(void* handle) const { tjDestroy(handle); }
};
struct FreeBytes {
    void operator()(unsigned char* bytes) const { tjFree(bytes); }
};

/// A film-like curve (shadows open, highlights roll off instead of clipping), then the display's own curve. As a table
/// over the root of the light, which spends its steps where eyes see them.
class Development final {
public:
    Development()
    {
        for (size_t i = 0; i < levels_.size(); ++i) {
            const float root = kBrightest * static_cast<float>(i) / static_cast<float>(levels_.size() - 1);
            const float light = root * root;
            const float curve = (light * (2.51F * light + 0.03F)) / (light * (2.43F * light + 0.59F) + 0.14F);
            const float clipped = std::clamp(curve, 0.0F, 1.0F);
            levels_[i] =
                255.0F * (clipped <= 0.0031308F ? 12.92F * clipped : 1.055F * std::pow(clipped, 1.0F / 2.4F) - 0.055F);
        }
    }

    uint8_t operator()(float light, float grain) const
    {
        const float root = std::sqrt(std::clamp(light, 0.0F, kBrightest * kBrightest));
        const auto step = static_cast<size_t>(root * (static_cast<float>(levels_.size() - 1) / kBrightest));
        return static_cast<uint8_t>(std::clamp(levels_[step] + grain + 0.5F, 0.0F, 255.0F));
    }

private:
    static constexpr float kBrightest = 3;
    std::array<float, 8192> levels_{};
};

/// Position in the upright picture of what is stored at (x, y).
std::pair<int, int> upright(int x, int y, int width, int height, int orientation)
{
    switch (orientation) {
    case 2:
        return {width - 1 - x, y};
    case 3:
        return {width - 1 - x, height - 1 - y};
    case 4:
        return {x, height - 1 - y};
    case 5:
        return {y, x};
    case 6:
        return {width - 1 - y, x};
    case 7:
        return {width - 1 - y, height - 1 - x};
    case 8:
        return {y, height - 1 - x};
    default:
        return {x, y};
    }
}

/// An APP1 segment with the orientation and the time, big-endian as most cameras write it.
std::vector<uint8_t> exifSegment(const Shot& shot)
{
    std::vector<uint8_t> bytes;
    auto put16 = [&](unsigned value) {
        bytes.push_back(static_cast<uint8_t>(value >> 8));
        bytes.push_back(static_cast<uint8_t>(value));
    };
    auto put32 = [&](unsigned value) {
        put16(value >> 16);
        put16(value & 0xFFFF);
    };
    auto putText = [&](const std::string& text) {
        bytes.insert(bytes.end(), text.begin(), text.end());
        bytes.push_back(0);
    };
    constexpr unsigned kShort = 3;
    constexpr unsigned kLong = 4;
    constexpr unsigned kAscii = 2;
    // Offsets count from the byte order mark: 8 of header, then two directories of two and of one entry.
    constexpr unsigned kSecondDirectory = 8 + 2 + 2 * 12 + 4;
    constexpr unsigned kTime = kSecondDirectory + 2 + 12 + 4;
    put16(0xFFE1);
    put16(0);
    putText("Exif");
    bytes.push_back(0);
    put16(0x4D4D);
    put16(42);
    put32(8);
    put16(2);
    put16(0x0112), put16(kShort), put32(1), put16(static_cast<unsigned>(shot.orientation)), put16(0);
    put16(0x8769), put16(kLong), put32(1), put32(kSecondDirectory);
    put32(0);
    put16(1);
    put16(0x9003), put16(kAscii), put32(20), put32(kTime);
    put32(0);
    putText(shot.time);
    const size_t length = bytes.size() - 2;
    bytes[2] = static_cast<uint8_t>(length >> 8);
    bytes[3] = static_cast<uint8_t>(length);
    return bytes;
}

} // namespace

Picture::Picture(int width, int height)
    : width_(width), height_(height), pixels_(static_cast<size_t>(width) * static_cast<size_t>(height))
{}

Light Picture::between(float x, float y) const
{
    x = std::clamp(x, 0.0F, static_cast<float>(width_ - 1));
    y = std::clamp(y, 0.0F, static_cast<float>(height_ - 1));
    const int left = std::min(static_cast<int>(x), std::max(0, width_ - 2));
    const int top = std::min(static_cast<int>(y), std::max(0, height_ - 2));
    const int right = std::min(left + 1, width_ - 1);
    const int bottom = std::min(top + 1, height_ - 1);
    const float across = x - static_cast<float>(left);
    const float down = y - static_cast<float>(top);
    return mix(mix(at(left, top), at(right, top), across), mix(at(left, bottom), at(right, bottom), across), down);
}

bool writePhoto(const Picture& picture, const Shot& shot, unsigned seed, const std::filesystem::path& file)
{
    const Development developed;
    const bool onItsSide = shot.orientation >= 5;
    const int width = onItsSide ? picture.height() : picture.width();
    const int height = onItsSide ? picture.width() : picture.height();
    std::vector<uint8_t> pixels(static_cast<size_t>(width) * static_cast<size_t>(height) * 3);
    const float middleX = 0.5F * static_cast<float>(picture.width());
    const float middleY = 0.5F * static_cast<float>(picture.height());
    const float corner = middleX * middleX + middleY * middleY;
    for (int y = 0; y < height; ++y) {
        uint8_t* out = pixels.data() + static_cast<size_t>(y) * static_cast<size_t>(width) * 3;
        for (int x = 0; x < width; ++x, out += 3) {
            const auto [fromX, fromY] = upright(x, y, picture.width(), picture.height(), shot.orientation);
            const float dx = static_cast<float>(fromX) - middleX;
            const float dy = static_cast<float>(fromY) - middleY;
            const float away = (dx * dx + dy * dy) / corner;
            const Light light = picture.at(fromX, fromY) * (1.0F - 0.38F * away * away);
            // The sum of two evenly spread numbers is close enough to a sensor's noise; coarse grain is in twos.
            const float fine = noise::white(fromX, fromY, seed) + noise::white(fromX, fromY, seed + 1) - 1.0F;
            const float coarse = noise::white(fromX / 2, fromY / 2, seed + 2) - 0.5F;
            const float grain = 2.6F * fine + 2.0F * coarse;
            out[0] = developed(light.r, grain);
            out[1] = developed(light.g, grain);
            out[2] = developed(light.b, grain);
        }
    }

    const std::unique_ptr<void, DestroyCompressor> compressor(tjInitCompress());
    if (!compressor)
        return false;
    unsigned char* encoded = nullptr;
    unsigned long length = 0;
    const int status = tjCompress2(compressor.get(), pixels.data(), width, 0, height, TJPF_RGB, &encoded, &length,
                                   TJSAMP_420, 86, TJFLAG_ACCURATEDCT);
    const std::unique_ptr<unsigned char, FreeBytes> owned(encoded);
    if (status != 0)
        return false;

    const std::vector<uint8_t> exif = exifSegment(shot);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    // Right after the two bytes that start the image.
    out.write(reinterpret_cast<const char*>(encoded), 2);
    out.write(reinterpret_cast<const char*>(exif.data()), static_cast<std::streamsize>(exif.size()));
    out.write(reinterpret_cast<const char*>(encoded) + 2, static_cast<std::streamsize>(length - 2));
    out.close();
    return out.good();
}
