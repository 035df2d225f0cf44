#include "platform/bytes/ByteReader.h"
#include "platform/decoders/ImageDecoder.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/LibavLog.h"
#include "platform/picturefiles/EXIF.h"
#include "platform/picturefiles/JPEG2000Header.h"
#include "platform/picturefiles/TIFFHeader.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <utility>

namespace platform {

namespace {

/// Size and resolution by the file's own header, before any decoder sees it.
struct Header {
    size_t width = 0;
    size_t height = 0;
    std::optional<double> dpi;
};

std::optional<Header> readBMPHeader(std::span<const uint8_t> bytes)
{
    const auto length = littleEndian32(bytes, 14);
    if (!length)
        return std::nullopt;
    Header header;
    if (*length == 12) {
        header.width = littleEndian16(bytes, 18).value_or(0);
        header.height = littleEndian16(bytes, 20).value_or(0);
        return header;
    }
    const auto width = static_cast<int32_t>(littleEndian32(bytes, 18).value_or(0));
    // Negative where the top row comes first.
    const auto height = static_cast<int32_t>(littleEndian32(bytes, 22).value_or(0));
    if (width <= 0 || height == std::numeric_limits<int32_t>::min())
        return std::nullopt;
    header.width = static_cast<size_t>(width);
    header.height = static_cast<size_t>(std::abs(height));
    constexpr double kMetresPerInch = 0.0254;
    if (const auto perMetre = littleEndian32(bytes, 38); *length >= 40 && perMetre && *perMetre > 0)
        header.dpi = *perMetre * kMetresPerInch;
    return header;
}

class AVCodecDecoder final : public ImageDecoder {
public:
    AVCodecDecoder(std::unique_ptr<ImageFile> imageFile, std::string_view imageFormat)
        : ImageDecoder(std::move(imageFile), imageFormat), codec_(codecOf(imageFormat))
    {}

private:
    enum class Codec { BMP, JPEG2000, TIFF };

    static Codec codecOf(std::string_view imageFormat)
    {
        return imageFormat == "bmp" ? Codec::BMP : imageFormat == "tiff" ? Codec::TIFF : Codec::JPEG2000;
    }

    /// By name: the system may bring a second decoder of JPEG 2000.
    const char* codecName() const { return codec_ == Codec::BMP ? "bmp" : codec_ == Codec::TIFF ? "tiff" : "jpeg2000"; }

    bool readProperties(Properties& properties, NSError* error) override
    {
        if (codec_ == Codec::TIFF) {
            const auto tiff = readTIFFHeader(file());
            if (!tiff)
                return failDecoding(error, localized("is damaged: it has no picture header"));
            properties.pixelWidth = tiff->width;
            properties.pixelHeight = tiff->height;
            properties.orientation = tiff->orientation;
            properties.dpi = tiff->dpi;
            properties.origin = readTIFFOrigin(file());
            reference_ = tiff->reference;
            return true;
        }
        if (codec_ == Codec::JPEG2000) {
            constexpr size_t kHeaderBytes = size_t{1} << 16;
            const auto header = readJPEG2000Header(file().first(kHeaderBytes));
            if (!header)
                return failDecoding(error, localized("is damaged: it has no picture header"));
            properties.pixelWidth = header->width;
            properties.pixelHeight = header->height;
            return true;
        }
        const auto header = readBMPHeader(file().first(64));
        if (!header)
            return failDecoding(error, localized("is damaged: it has no picture header"));
        properties.pixelWidth = header->width;
        properties.pixelHeight = header->height;
        properties.dpi = header->dpi;
        return true;
    }

    DecodingCost cost() override
    {
        return codec_ == Codec::JPEG2000 ? costOfJPEG2000() : DecodingCost{pixelCount() * 4, pixelCount() * 2};
    }

    /// Coefficients of four bytes, and what is kept of each tile, level, block and group of blocks, as measured. What
    /// the coded bits cost goes with the file.
    DecodingCost costOfJPEG2000()
    {
        const auto header = readJPEG2000Header(file().all());
        if (!header)
            return {};
        constexpr uint64_t kBytesOfLevel = 2200;
        constexpr uint64_t kBytesOfBlock = 200;
        constexpr uint64_t kBytesOfGroup = 500;
        const uint64_t samples = pixelCount() * std::min(header->components, 4u);
        const uint64_t levels = header->tiles * std::min(header->components, 4u) * (header->levels + 1);
        const uint64_t parts = levels * kBytesOfLevel + samples / header->pixelsOfBlock * kBytesOfBlock +
                               samples / header->pixelsOfGroup * kBytesOfGroup;
        return {pixelCount() * 12 + parts, pixelCount() * 8 + parts};
    }

    bool decode(size_t width, size_t height, CGImage& image, NSError* error) override
    {
        const FramePtr frame = decodeFrame(width, height, error);
        if (!frame)
            return false;
        const auto* const description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame->format));
        if (!description || frame->width < 1 || frame->height < 1 || (description->flags & AV_PIX_FMT_FLAG_FLOAT))
            return failDecoding(error, localized("cannot be decoded: its colours are of a kind that is not known"));

        const PixelSize picture = {static_cast<size_t>(frame->width), static_cast<size_t>(frame->height)};
        const bool isPalette = (description->flags & AV_PIX_FMT_FLAG_PAL) != 0;
        const bool isRGB = isPalette || (description->flags & AV_PIX_FMT_FLAG_RGB) != 0;
        const bool hasAlpha = !isPalette && (description->flags & AV_PIX_FMT_FLAG_ALPHA) != 0;
        const size_t bands = isPalette ? 3 : description->nb_components;
        const size_t colorBands = bands - (hasAlpha ? 1 : 0);
        ColorDescription colors;
        colors.model = colorBands == 1 ? ColorDescription::Model::Grey : ColorDescription::Model::RGB;

        RowCollector rows(picture, bands, hasAlpha, {std::min(width, picture.width), std::min(height, picture.height)});
        if (!rows.isReady())
            return failDecoding(error, localized("needs more memory than there is"));
        std::vector<uint16_t> samples(picture.width);
        std::vector<uint8_t> row(picture.width * bands);
        for (int y = 0; y < frame->height; ++y) {
            for (size_t band = 0; band < bands; ++band)
                readSamples(*frame, *description, y, band, samples, row, bands);
            if (!isRGB && colorBands == 3)
                turnIntoRGB(row, bands);
            rows.addRow(row.data());
        }
        return finish(rows.planes(), width, height, colors, image, error);
    }

    /// One component of a row, as 8 bits, to its place among the others.
    static void readSamples(const AVFrame& frame, const AVPixFmtDescriptor& description, int y, size_t band,
                            std::vector<uint16_t>& samples, std::vector<uint8_t>& row, size_t bands)
    {
        const bool isPalette = (description.flags & AV_PIX_FMT_FLAG_PAL) != 0;
        const bool isColorDifference = (band == 1 || band == 2) && !isPalette;
        const int shiftX = isColorDifference ? description.log2_chroma_w : 0;
        const int shiftY = isColorDifference ? description.log2_chroma_h : 0;
        const size_t component = isPalette ? 0 : band;
        const auto width = static_cast<size_t>(frame.width);
        const auto count = static_cast<int>((width + (size_t{1} << shiftX) - 1) >> shiftX);
        av_read_image_line2(samples.data(), const_cast<const uint8_t**>(frame.data), frame.linesize, &description, 0,
                            y >> shiftY, static_cast<int>(component), count, 0, sizeof(uint16_t));
        if (isPalette) {
            for (size_t x = 0; x < width; ++x) {
                // Whole numbers 0xAARRGGBB of the machine's byte order.
                uint32_t color = 0;
                std::memcpy(&color, frame.data[1] + 4 * (samples[x] & 0xFFu), sizeof color);
                row[x * bands + band] = static_cast<uint8_t>(color >> (16 - 8 * band));
            }
            return;
        }
        const unsigned most = (1u << description.comp[band].depth) - 1;
        for (size_t x = 0; x < width; ++x)
            row[x * bands + band] =
                static_cast<uint8_t>((std::min<unsigned>(samples[x >> shiftX], most) * 255u + most / 2) / most);
    }

    /// Colour differences by the matrix of JPEG.
    void turnIntoRGB(std::vector<uint8_t>& row, size_t bands) const
    {
        // A range of nothing is damage, and shows as black or grey.
        const auto scale = [this](size_t i, double range) {
            const double length = reference_[2 * i + 1] - reference_[2 * i];
            return length > 0 ? range / length : 0;
        };
        const std::array<double, 3> scales = {scale(0, 255), scale(1, 127), scale(2, 127)};
        const auto clamped = [](double value) { return static_cast<uint8_t>(std::clamp(value + 0.5, 0.0, 255.0)); };
        for (size_t i = 0; i + 2 < row.size(); i += bands) {
            const double y = (row[i] - reference_[0]) * scales[0];
            const double cb = (row[i + 1] - reference_[2]) * scales[1];
            const double cr = (row[i + 2] - reference_[4]) * scales[2];
            row[i] = clamped(y + 1.402 * cr);
            row[i + 1] = clamped(y - 0.344136 * cb - 0.714136 * cr);
            row[i + 2] = clamped(y + 1.772 * cb);
        }
    }

    /// A wavelet picture of fewer levels than most refuses to be halved so often.
    FramePtr decodeFrame(size_t width, size_t height, NSError* error)
    {
        FramePtr frame;
        for (int count = codec_ == Codec::JPEG2000 ? halvings(width, height) : 0; count >= 0 && !frame; --count)
            frame = decodeHalved(count, count == 0 ? error : nullptr);
        return frame;
    }

    FramePtr decodeHalved(int count, NSError* error)
    {
        const auto bytes = file().all();
        if (bytes.size() > static_cast<size_t>(std::numeric_limits<int>::max())) {
            failDecoding(error, localized("is too long for a picture of this format"));
            return nullptr;
        }
        silenceLibavLog();
        const AVCodec* const codec = avcodec_find_decoder_by_name(codecName());
        const CodecPtr context(codec ? avcodec_alloc_context3(codec) : nullptr);
        const PacketPtr packet(av_packet_alloc());
        FramePtr frame(av_frame_alloc());
        if (!context || !packet || !frame) {
            failDecoding(error, localized("cannot be decoded: its decoder is not at hand"));
            return nullptr;
        }
        context->thread_count = 1;
        context->max_pixels = static_cast<int64_t>(kMaxPixels);
        if (codec_ == Codec::JPEG2000)
            av_opt_set_int(context->priv_data, "lowres", count, 0);
        packet->data = const_cast<uint8_t*>(bytes.data());
        packet->size = static_cast<int>(bytes.size());
        const bool isDecoded = avcodec_open2(context.get(), codec, nullptr) == 0 &&
                               avcodec_send_packet(context.get(), packet.get()) == 0 &&
                               avcodec_receive_frame(context.get(), frame.get()) == 0;
        if (!isDecoded) {
            failDecoding(error, localized("is damaged: it cannot be decoded"));
            return nullptr;
        }
        return frame;
    }

    /// How often a wavelet picture can be halved and still cover the size wanted.
    int halvings(size_t width, size_t height) const
    {
        int count = 0;
        constexpr int kMost = 3;
        while (count < kMost && properties().pixelWidth >> (count + 1) >= width &&
               properties().pixelHeight >> (count + 1) >= height)
            ++count;
        return count;
    }

    const Codec codec_;
    // Full range, unless a file says otherwise.
    std::array<double, 6> reference_ = {0, 255, 128, 255, 128, 255};
};

} // namespace

std::unique_ptr<CGImageSource> makeAVCodecDecoder(std::unique_ptr<ImageFile> file, std::string_view format)
{
    return std::make_unique<AVCodecDecoder>(std::move(file), format);
}

} // namespace platform
