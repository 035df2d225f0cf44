#include "platform/decoders/WebPPixels.h"

#include "platform/bytes/ByteReader.h"
#include "platform/foundation/Handle.h"
#include "platform/pixels/PlaneMemory.h"

#include <webp/decode.h>

#include <algorithm>

namespace platform {
namespace {

// In front of the pixels there may be a profile.
constexpr size_t kHeaderBytes = size_t{1} << 16;

} // namespace

std::optional<WebPPixels> WebPPixels::inFile(ImageFile& file)
{
    constexpr int kWithLoss = 1;
    const auto start = file.first(kHeaderBytes);
    WebPBitstreamFeatures features{};
    if (WebPGetFeatures(start.data(), start.size(), &features) != VP8_STATUS_OK || features.format != kWithLoss ||
        features.has_alpha != 0 || features.has_animation != 0 || features.width < 1 || features.height < 1)
        return std::nullopt;
    return WebPPixels{static_cast<size_t>(features.width), static_cast<size_t>(features.height)};
}

bool WebPPixels::hasFirstRows(ImageFile& file) const
{
    constexpr size_t kContainerBytes = 8;
    const auto start = file.first(kHeaderBytes);
    const auto length = littleEndian32(start, 4);
    if (!length || *length > file.length() - kContainerBytes)
        return false;
    const Handle<WebPIDecoder, WebPIDelete> decoder(
        WebPINewYUVA(nullptr, 0, 0, nullptr, 0, 0, nullptr, 0, 0, nullptr, 0, 0));
    if (!decoder)
        return false;
    // In front of the first row there is what all rows are made of, up to half a megabyte of it.
    size_t given = 0;
    for (size_t next = kHeaderBytes; given < file.length(); next *= 2) {
        const auto bytes = file.first(next).subspan(given);
        if (bytes.empty())
            return false;
        const auto status = WebPIAppend(decoder.get(), bytes.data(), bytes.size());
        given += bytes.size();
        int lastRow = 0;
        if (status != VP8_STATUS_OK && status != VP8_STATUS_SUSPENDED)
            return false;
        if (WebPIDecGetYUV(decoder.get(), &lastRow, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) &&
            lastRow > 0)
            return true;
    }
    return false;
}

std::optional<ImagePlanes> WebPPixels::read(ImageFile& file) const
{
    ImagePlanes kind;
    kind.family = ImagePlanes::Family::YUV;
    kind.count = 3;
    kind.subsampleX = 1;
    kind.subsampleY = 1;
    kind.isFullRange = false;
    kind.shownWidth = static_cast<double>(width);
    kind.shownHeight = static_cast<double>(height);
    PlaneMemory memory(kind, width, height);
    WebPDecoderConfig config;
    if (!memory.isReady() || !WebPInitDecoderConfig(&config))
        return std::nullopt;
    config.output.colorspace = MODE_YUV;
    config.output.is_external_memory = 1;
    auto& planes = config.output.u.YUVA;
    const auto stride = [&](size_t plane) { return static_cast<int>(memory.planes().planes[plane].bytesPerRow); };
    planes.y = memory.row(0, 0);
    planes.u = memory.row(1, 0);
    planes.v = memory.row(2, 0);
    planes.y_stride = stride(0);
    planes.u_stride = stride(1);
    planes.v_stride = stride(2);
    planes.y_size = static_cast<size_t>(stride(0)) * memory.height(0);
    planes.u_size = static_cast<size_t>(stride(1)) * memory.height(1);
    planes.v_size = static_cast<size_t>(stride(2)) * memory.height(2);
    const auto bytes = file.all();
    if (WebPDecode(bytes.data(), bytes.size(), &config) != VP8_STATUS_OK)
        return std::nullopt;
    memory.repeatEdges();
    return memory.planes();
}

} // namespace platform
