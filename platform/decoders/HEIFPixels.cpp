#include "platform/decoders/HEIFPixels.h"

#include "platform/decoders/CGImageSource.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/LibavLog.h"
#include "platform/pixels/PlaneMemory.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <bit>
#include <cstring>
#include <span>

namespace platform {
namespace {

using Family = ImagePlanes::Family;

/// Decodes tiles that were coded alike, one after another.
class TileDecoder final {
public:
    TileDecoder(ImageFile& file, const HEIFPicture& picture) : file_(file), picture_(picture)
    {
        silenceLibavLog();
        // By name: the system may bring other decoders.
        const auto* const codec =
            avcodec_find_decoder_by_name(picture.codec == HEIFPicture::Codec::HEVC ? "hevc" : "libdav1d");
        CodecPtr context(codec ? avcodec_alloc_context3(codec) : nullptr);
        if (!context || !setConfiguration(*context))
            return;
        context->thread_count = 1;
        context->max_pixels = static_cast<int64_t>(CGImageSource::kMaxPixels);
        // What is damaged is no picture: others may still make something of it.
        context->err_recognition = AV_EF_EXPLODE;
        if (avcodec_open2(context.get(), codec, nullptr) == 0)
            context_ = std::move(context);
    }

    /// Null where it is damaged or of another size than the file says.
    FramePtr decode(const HEIFPicture::Tile& tile)
    {
        PacketPtr packet(av_packet_alloc());
        FramePtr frame(av_frame_alloc());
        if (!context_ || !packet || !frame || !fill(*packet, tile))
            return nullptr;
        avcodec_flush_buffers(context_.get());
        // Nothing follows: the decoder is not to wait for pictures that refer to this one.
        const bool isDecoded = avcodec_send_packet(context_.get(), packet.get()) == 0 &&
                               avcodec_send_packet(context_.get(), nullptr) == 0 &&
                               avcodec_receive_frame(context_.get(), frame.get()) == 0;
        const bool isWhole = isDecoded && frame->decode_error_flags == 0 &&
                             static_cast<size_t>(frame->width) == picture_.tileWidth &&
                             static_cast<size_t>(frame->height) == picture_.tileHeight;
        return isWhole ? std::move(frame) : nullptr;
    }

private:
    bool setConfiguration(AVCodecContext& context) const
    {
        const auto& bytes = picture_.configuration;
        context.extradata = static_cast<uint8_t*>(av_mallocz(bytes.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!context.extradata)
            return false;
        std::ranges::copy(bytes, context.extradata);
        context.extradata_size = static_cast<int>(bytes.size());
        return true;
    }

    bool fill(AVPacket& packet, const HEIFPicture::Tile& tile)
    {
        int64_t length = 0;
        for (const auto& extent : tile)
            length += extent.length;
        if (length > static_cast<int64_t>(ImageFile::kMaxBytes) - AV_INPUT_BUFFER_PADDING_SIZE ||
            av_new_packet(&packet, static_cast<int>(length)) != 0)
            return false;
        std::span<uint8_t> room(packet.data, static_cast<size_t>(length));
        for (const auto& extent : tile) {
            if (!file_.read(extent.offset, room.first(static_cast<size_t>(extent.length))))
                return false;
            room = room.subspan(static_cast<size_t>(extent.length));
        }
        return true;
    }

    ImageFile& file_;
    const HEIFPicture& picture_;
    CodecPtr context_;
};

std::optional<ImagePlanes::Matrix> matrixOf(int code)
{
    switch (code) {
    case AVCOL_SPC_BT709:
        return ImagePlanes::Matrix::BT709;
    case AVCOL_SPC_UNSPECIFIED:
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        return ImagePlanes::Matrix::BT601;
    case AVCOL_SPC_BT2020_NCL:
        return ImagePlanes::Matrix::BT2020;
    default:
        return std::nullopt;
    }
}

/// Planes of the kind that a tile is of, still without memory.
std::optional<ImagePlanes> planesLike(const AVFrame& frame, const HEIFPicture& picture)
{
    const auto* const format = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    constexpr uint64_t kOther = AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL | AV_PIX_FMT_FLAG_ALPHA |
                                AV_PIX_FMT_FLAG_BITSTREAM | AV_PIX_FMT_FLAG_HWACCEL | AV_PIX_FMT_FLAG_FLOAT;
    constexpr bool kIsBig = std::endian::native == std::endian::big;
    if (!format || (format->flags & kOther) != 0 || (format->nb_components != 1 && format->nb_components != 3))
        return std::nullopt;
    ImagePlanes planes;
    planes.depth = static_cast<unsigned>(format->comp[0].depth);
    planes.count = format->nb_components;
    planes.family = planes.count == 1 ? Family::Grey : Family::YUV;
    for (int i = 0; i < format->nb_components; ++i) {
        const auto& component = format->comp[i];
        const int bytes = component.depth > 8 ? 2 : 1;
        if (component.plane != i || component.shift != 0 || component.step != bytes ||
            component.depth != format->comp[0].depth)
            return std::nullopt;
    }
    if (planes.depth > 8 && kIsBig != ((format->flags & AV_PIX_FMT_FLAG_BE) != 0))
        return std::nullopt;
    planes.subsampleX = planes.count == 3 ? format->log2_chroma_w : 0;
    planes.subsampleY = planes.count == 3 ? format->log2_chroma_h : 0;
    if (planes.subsampleX > 1 || planes.subsampleY > 1)
        return std::nullopt;
    const auto matrix = matrixOf(picture.codes ? picture.codes->matrix : static_cast<int>(frame.colorspace));
    if (!matrix)
        return std::nullopt;
    planes.matrix = *matrix;
    planes.isFullRange = picture.codes ? picture.codes->isFullRange : frame.color_range == AVCOL_RANGE_JPEG;
    planes.shownWidth = static_cast<double>(picture.width);
    planes.shownHeight = static_cast<double>(picture.height);
    return planes;
}

void lay(const AVFrame& tile, const HEIFPicture& picture, size_t number, PlaneMemory& canvas)
{
    for (size_t i = 0; i < canvas.planes().count; ++i) {
        const unsigned subsamplingX = canvas.subsamplingX(i);
        const unsigned subsamplingY = canvas.subsamplingY(i);
        const size_t tileWidth = (picture.tileWidth + subsamplingX) >> subsamplingX;
        const size_t tileHeight = (picture.tileHeight + subsamplingY) >> subsamplingY;
        const size_t left = number % picture.columns * tileWidth;
        const size_t top = number / picture.columns * tileHeight;
        const size_t samples = std::min(tileWidth, canvas.width(i) - left);
        const size_t rows = std::min(tileHeight, canvas.height(i) - top);
        for (size_t y = 0; y < rows; ++y)
            std::memcpy(canvas.row(i, top + y) + left * canvas.sampleBytes(),
                        tile.data[i] + static_cast<ptrdiff_t>(y) * tile.linesize[i], samples * canvas.sampleBytes());
    }
}

bool isLike(const ImagePlanes& one, const ImagePlanes& other)
{
    return one.family == other.family && one.depth == other.depth && one.subsampleX == other.subsampleX &&
           one.subsampleY == other.subsampleY;
}

} // namespace

std::optional<ImagePlanes> readHEIFPixels(ImageFile& file, const HEIFPicture& picture)
{
    TileDecoder decoder(file, picture);
    std::optional<PlaneMemory> canvas;
    for (size_t number = 0; number < picture.tiles.size(); ++number) {
        const FramePtr tile = decoder.decode(picture.tiles[number]);
        const auto planes = tile ? planesLike(*tile, picture) : std::nullopt;
        if (!planes)
            return std::nullopt;
        if (!canvas)
            canvas.emplace(*planes, picture.width, picture.height);
        if (!canvas->isReady() || !isLike(canvas->planes(), *planes))
            return std::nullopt;
        lay(*tile, picture, number, *canvas);
    }
    canvas->repeatEdges();
    return canvas->planes();
}

bool hasHEIFPixels(ImageFile& file, const HEIFPicture& picture)
{
    const FramePtr tile = TileDecoder(file, picture).decode(picture.tiles.front());
    return tile && planesLike(*tile, picture);
}

} // namespace platform
