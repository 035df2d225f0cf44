#include "platform/foundation/Handle.h"
#include "platform/pixels/SharpEdges.h"
#include "platform/writer/AVAssetWriterEncoder.h"

#include <memory>
#include <string>
#include <turbojpeg.h>

extern "C" {
#include <libavcodec/codec_par.h>
}

namespace platform {

namespace {

/// Structural similarity of the luma 0.986 on photographs, at 0.33 MB a frame of 1920 x 1080.
constexpr int kQuality = 92;
/// Where sharp edges meet fine texture the same takes more.
constexpr int kQualityOfSharpEdges = 96;

/// 4:2:0, full range, BT.601 matrix: what every decoder takes a JPEG picture for.
class EncoderTurboJPEG final : public AVAssetWriterEncoder {
public:
    bool build(int width, int height, NSError* error)
    {
        compressor_.reset(tjInitCompress());
        parameters_.reset(avcodec_parameters_alloc());
        if (!compressor_ || !parameters_)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, "the JPEG encoder cannot be made");
        // Enough for any picture of this size, so that the library never has to ask for more.
        outputBytes_ = tjBufSize(width, height, TJSAMP_420);
        output_ = std::make_unique_for_overwrite<unsigned char[]>(outputBytes_);
        AVCodecParameters& parameters = *parameters_;
        parameters.codec_type = AVMEDIA_TYPE_VIDEO;
        parameters.codec_id = AV_CODEC_ID_MJPEG;
        parameters.codec_tag = MKTAG('j', 'p', 'e', 'g');
        parameters.width = width;
        parameters.height = height;
        parameters.format = AV_PIX_FMT_YUVJ420P;
        parameters.sample_aspect_ratio = {1, 1};
        parameters.color_range = AVCOL_RANGE_JPEG;
        parameters.color_primaries = AVCOL_PRI_BT709;
        parameters.color_trc = AVCOL_TRC_BT709;
        parameters.color_space = AVCOL_SPC_SMPTE170M;
        parameters.chroma_location = AVCHROMA_LOC_CENTER;
        return true;
    }

    bool encode(std::shared_ptr<CVPixelBuffer> buffer, std::vector<uint8_t>& packet, NSError* error) override
    {
        if (buffer->lockBaseAddress() != kCVReturnSuccess)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, "a frame's pixels cannot be read back");
        // Green is most of the brightness.
        constexpr size_t kGreen = 2;
        constexpr double kMostEdges = 1.0 / 256;
        const bool isSharp =
            sharpEdgesOf(buffer->baseAddress() + kGreen, 4, buffer->width(), buffer->height(), buffer->bytesPerRow())
                .share > kMostEdges;
        unsigned char* to = output_.get();
        unsigned long size = outputBytes_;
        const int result =
            tjCompress2(compressor_.get(), buffer->baseAddress(), static_cast<int>(buffer->width()),
                        static_cast<int>(buffer->bytesPerRow()), static_cast<int>(buffer->height()), TJPF_XRGB, &to,
                        &size, TJSAMP_420, isSharp ? kQualityOfSharpEdges : kQuality, TJFLAG_NOREALLOC);
        buffer->unlockBaseAddress();
        if (result != 0)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                        std::string("a frame cannot be coded as JPEG: ") + tjGetErrorStr2(compressor_.get()));
        packet.assign(to, to + size);
        return true;
    }

    const AVCodecParameters& parameters() const override { return *parameters_; }

private:
    Handle<void, tjDestroy> compressor_;
    Handle<AVCodecParameters, avcodec_parameters_free> parameters_;
    /// Only the part that a picture needs is ever touched.
    std::unique_ptr<unsigned char[]> output_;
    unsigned long outputBytes_ = 0;
};

} // namespace

std::unique_ptr<AVAssetWriterEncoder> makeTurboJPEGEncoder(int width, int height, NSError* error)
{
    auto encoder = std::make_unique<EncoderTurboJPEG>();
    if (!encoder->build(width, height, error))
        return nullptr;
    return encoder;
}

} // namespace platform
