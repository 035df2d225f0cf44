#include "platform/foundation/Handle.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/LibavLog.h"
#include "platform/movie/SequenceHeader.h"
#include "platform/writer/AVAssetWriterEncoder.h"
#include "platform/writer/AVAssetWriterPixelConverter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <span>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/dict.h>
#include <libavutil/frame.h>
#include <libavutil/imgutils.h>
#include <libavutil/mem.h>
}

namespace platform {

namespace {

using Layout = AVAssetWriterPixelConverter::Layout;

/// How one codec's encoder is called.
struct Recipe {
    std::string_view codec;
    const char* encoder;
    AVPixelFormat pixelFormat;
    Layout layout;
    int profile;
    /// Key and value pairs.
    std::array<std::pair<const char*, const char*>, 4> options;
};

// A constant quantiser with adaptive quantisation (qcomp=1) instead of the usual rate control, which codes a frame by
// what came before it: packets would depend on their encoder, and the worst frames get worse for the same bytes. No
// arithmetic coding: it doubles the time and saves six bytes in a hundred. force-cfr: or one frame is held back. With
// adaptive quantisation the fastest preset is as good as the next, in three quarters of the time for three to sixteen
// bytes in a hundred.
constexpr const char* kX264Parameters =
    "keyint=1:scenecut=0:rc-lookahead=0:sync-lookahead=0:mbtree=0:weightp=0:qcomp=1:no-cabac=1:force-cfr=1:aq-mode=1";
// Key frames are asked for one by one: told that there is nothing else, the encoder names a profile that few players
// take.
constexpr const char* kX265Parameters =
    "open-gop=0:scenecut=0:ref=1:bframes=0:rc-lookahead=0:lookahead-slices=0:frame-threads=1:pools=none:wpp=0:"
    "cutree=0:qcomp=1:info=0:repeat-headers=0:log-level=none";

// Quantisers were chosen on photographs by the structural similarity of the worst frame, above 0.99. Of the two ProRes
// encoders the one that also spends bits on the worst frames (0.995 against 0.980) takes a fifth of the time.
constexpr std::array kRecipes{
    Recipe{kAVVideoCodecH264,
           "libx264",
           AV_PIX_FMT_YUV420P,
           Layout::YUV420,
           FF_PROFILE_H264_CONSTRAINED_BASELINE,
           {{{"preset", "ultrafast"}, {"crf", "14"}, {"x264-params", kX264Parameters}}}},
    // The next slower preset takes three times as long for two bytes in a hundred.
    Recipe{kAVVideoCodecHEVC,
           "libx265",
           AV_PIX_FMT_YUV420P,
           Layout::YUV420,
           FF_PROFILE_HEVC_MAIN,
           {{{"preset", "ultrafast"}, {"qp", "15"}, {"forced-idr", "1"}, {"x265-params", kX265Parameters}}}},
    Recipe{kAVVideoCodecAppleProRes422Proxy, "prores_aw", AV_PIX_FMT_YUV422P10, Layout::YUV422Deep, 0, {}},
    Recipe{kAVVideoCodecAppleProRes422LT, "prores_aw", AV_PIX_FMT_YUV422P10, Layout::YUV422Deep, 1, {}},
    Recipe{kAVVideoCodecAppleProRes422, "prores_aw", AV_PIX_FMT_YUV422P10, Layout::YUV422Deep, 2, {}},
    Recipe{kAVVideoCodecAppleProRes422HQ, "prores_aw", AV_PIX_FMT_YUV422P10, Layout::YUV422Deep, 3, {}},
    Recipe{kAVVideoCodecAppleProRes4444, "prores_aw", AV_PIX_FMT_YUVA444P10, Layout::YUV444Deep, 4, {}},
    Recipe{kAVVideoCodecAppleProRes4444XQ, "prores_aw", AV_PIX_FMT_YUVA444P10, Layout::YUV444Deep, 5, {}},
};

/// HEVC's largest picture (luma samples) that may be made of units of 16, by its table of levels. Units of 32 take half
/// as much time again and save two to four bytes in a hundred.
constexpr int kMaxSamplesOfSmallUnits = 2'228'224;

/// The largest value of a 10-bit sample.
constexpr uint16_t kOpaque = 1023;

uint32_t tagOf(std::string_view codec)
{
    uint32_t tag = 0;
    for (size_t i = 0; i < 4; ++i)
        tag |= uint32_t{static_cast<uint8_t>(codec[i])} << (8 * i);
    return tag;
}

/// Without the notes that an H.264 encoder writes about itself before its first picture: they would tell encoders
/// apart.
std::span<const uint8_t> withoutLeadingNotes(std::span<const uint8_t> packet)
{
    constexpr std::array<uint8_t, 3> kStartCode{0, 0, 1};
    constexpr int kSupplementalInformation = 6;
    while (true) {
        const auto start = std::search(packet.begin(), packet.end(), kStartCode.begin(), kStartCode.end());
        if (packet.end() - start < 4 || (start[3] & 31) != kSupplementalInformation)
            return packet;
        const auto next = std::search(start + 3, packet.end(), kStartCode.begin(), kStartCode.end());
        packet = packet.subspan(static_cast<size_t>(next - packet.begin()));
    }
}

class EncoderFFmpeg final : public AVAssetWriterEncoder {
public:
    bool build(const Recipe& recipe, int width, int height, NSError* error)
    {
        const auto refuse = [&](const std::string& reason) {
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                        "a video of " + std::to_string(width) + " x " + std::to_string(height) +
                            " pixels cannot be coded as \"" + std::string(recipe.codec) + "\": " + reason);
        };
        silenceLibavLog();
        const AVCodec* codec = avcodec_find_encoder_by_name(recipe.encoder);
        if (!codec)
            return refuse(std::string("the encoder ") + recipe.encoder + " is not there");
        context_.reset(avcodec_alloc_context3(codec));
        parameters_.reset(avcodec_parameters_alloc());
        frame_.reset(av_frame_alloc());
        packet_.reset(av_packet_alloc());
        if (!context_ || !parameters_ || !frame_ || !packet_)
            return refuse("no memory");

        AVCodecContext& context = *context_;
        context.width = width;
        context.height = height;
        context.pix_fmt = recipe.pixelFormat;
        context.profile = recipe.profile;
        context.codec_tag = tagOf(recipe.codec);
        // The movie's times are the file's business, and the header does not tell of them. The encoder gets the rate
        // from which it derives a level that every player of such a size knows.
        context.time_base = {1, 25};
        context.framerate = {25, 1};
        context.sample_aspect_ratio = {1, 1};
        context.gop_size = codec->id == AV_CODEC_ID_HEVC ? 250 : 1;
        context.max_b_frames = 0;
        context.color_range = AVCOL_RANGE_MPEG;
        context.color_primaries = AVCOL_PRI_BT709;
        context.color_trc = AVCOL_TRC_BT709;
        context.colorspace = AVCOL_SPC_BT709;
        context.chroma_sample_location = AVCHROMA_LOC_LEFT;
        // The writer runs one encoder a thread.
        context.thread_count = 1;
        context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER | AV_CODEC_FLAG_BITEXACT;
        AVDictionary* options = nullptr;
        for (const auto& [key, value] : recipe.options)
            if (key)
                av_dict_set(&options, key, value, 0);
        if (codec->id == AV_CODEC_ID_HEVC && width * height <= kMaxSamplesOfSmallUnits)
            av_dict_set(&options, "x265-params", ":ctu=16:max-tu-size=16", AV_DICT_APPEND);
        const int result = avcodec_open2(&context, codec, &options);
        const AVDictionaryEntry* unknown = av_dict_get(options, "", nullptr, AV_DICT_IGNORE_SUFFIX);
        const std::string unknownKey = unknown ? unknown->key : "";
        av_dict_free(&options);
        if (result < 0)
            return refuse(textOfAVError(result));
        if (!unknownKey.empty())
            return refuse("its encoder knows no option " + unknownKey);
        if (avcodec_parameters_from_context(parameters_.get(), &context) < 0)
            return refuse("no memory");
        if ((codec->id == AV_CODEC_ID_H264 || codec->id == AV_CODEC_ID_HEVC) && !leaveOutTiming())
            return refuse("its header cannot be changed");
        if (codec->id == AV_CODEC_ID_H264) {
            identifiers_ = KeyFrameIdentifiers::ofHeader(
                {parameters_->extradata, static_cast<size_t>(parameters_->extradata_size)});
            if (!identifiers_)
                return refuse("its header cannot be read");
        }

        converter_ = AVAssetWriterPixelConverter::create(width, height, recipe.layout, error);
        if (!converter_)
            return false;
        return takeFrame() || refuse("no memory");
    }

    bool number(std::vector<uint8_t>& packet, uint64_t index) const override
    {
        return !identifiers_ || identifiers_->set(packet, static_cast<uint32_t>(index % 2));
    }

    bool encode(std::shared_ptr<CVPixelBuffer> buffer, std::vector<uint8_t>& packet, NSError* error) override
    {
        if (av_frame_make_writable(frame_.get()) < 0)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, "there is no memory to code a frame");
        if (buffer->lockBaseAddress() != kCVReturnSuccess)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, "a frame's pixels cannot be read back");
        AVAssetWriterPixelConverter::Planes planes;
        for (size_t i = 0; i < 3; ++i) {
            planes.data[i] = frame_->data[i];
            planes.strides[i] = frame_->linesize[i];
        }
        const bool converted = converter_->convert(buffer->baseAddress(), buffer->bytesPerRow(), planes, error);
        buffer->unlockBaseAddress();
        buffer.reset();
        if (!converted)
            return false;

        frame_->pts = static_cast<int64_t>(coded_);
        frame_->pict_type = AV_PICTURE_TYPE_I;
        int result = avcodec_send_frame(context_.get(), frame_.get());
        if (result >= 0)
            result = avcodec_receive_packet(context_.get(), packet_.get());
        if (result < 0)
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                        std::string("a frame cannot be coded by ") + context_->codec->name + ": " +
                            textOfAVError(result));
        // An encoder that held frames back would put the packets of several encoders out of order.
        if (packet_->pts != static_cast<int64_t>(coded_) || !(packet_->flags & AV_PKT_FLAG_KEY)) {
            av_packet_unref(packet_.get());
            return fail(error, kAVFoundationErrorDomain, kAVErrorUnknown,
                        std::string(context_->codec->name) + " did not code a frame by itself");
        }
        ++coded_;
        std::span<const uint8_t> bytes(packet_->data, static_cast<size_t>(packet_->size));
        if (context_->codec_id == AV_CODEC_ID_H264)
            bytes = withoutLeadingNotes(bytes);
        packet.assign(bytes.begin(), bytes.end());
        av_packet_unref(packet_.get());
        return true;
    }

    const AVCodecParameters& parameters() const override { return *parameters_; }

private:
    /// Some players believe it more than the file, and end a movie after so short a last picture. One of the encoders
    /// cannot be told to leave it out, and the other writes a broken header then.
    bool leaveOutTiming()
    {
        const auto header = headerWithoutTiming(
            context_->codec_id == AV_CODEC_ID_H264 ? SequenceHeaderKind::H264 : SequenceHeaderKind::HEVC,
            {parameters_->extradata, static_cast<size_t>(std::max(0, parameters_->extradata_size))});
        if (!header)
            return false;
        auto* const bytes = static_cast<uint8_t*>(av_mallocz(header->size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (!bytes)
            return false;
        std::copy(header->begin(), header->end(), bytes);
        av_freep(&parameters_->extradata);
        parameters_->extradata = bytes;
        parameters_->extradata_size = static_cast<int>(header->size());
        return true;
    }

    bool takeFrame()
    {
        frame_->width = context_->width;
        frame_->height = context_->height;
        frame_->format = context_->pix_fmt;
        frame_->color_range = context_->color_range;
        frame_->color_primaries = context_->color_primaries;
        frame_->color_trc = context_->color_trc;
        frame_->colorspace = context_->colorspace;
        frame_->chroma_location = context_->chroma_sample_location;
        if (av_frame_get_buffer(frame_.get(), 64) < 0)
            return false;
        // The first byte of a frame's pixel is no alpha: all is opaque.
        if (context_->pix_fmt == AV_PIX_FMT_YUVA444P10)
            for (int y = 0; y < frame_->height; ++y) {
                auto* row = reinterpret_cast<uint16_t*>(frame_->data[3] + ptrdiff_t{y} * frame_->linesize[3]);
                std::fill_n(row, frame_->width, kOpaque);
            }
        return true;
    }

    CodecPtr context_;
    Handle<AVCodecParameters, avcodec_parameters_free> parameters_;
    FramePtr frame_;
    PacketPtr packet_;
    std::unique_ptr<AVAssetWriterPixelConverter> converter_;
    std::optional<KeyFrameIdentifiers> identifiers_;
    uint64_t coded_ = 0;
};

} // namespace

std::unique_ptr<AVAssetWriterEncoder> makeFFmpegEncoder(const AVVideoSettings& settings, int width, int height,
                                                        NSError* error)
{
    const auto recipe =
        std::find_if(kRecipes.begin(), kRecipes.end(), [&](const Recipe& r) { return r.codec == settings.codec; });
    if (recipe == kRecipes.end()) {
        fail(error, kAVFoundationErrorDomain, kAVErrorUnknown, "there is no video codec \"" + settings.codec + "\"");
        return nullptr;
    }
    auto encoder = std::make_unique<EncoderFFmpeg>();
    if (!encoder->build(*recipe, width, height, error))
        return nullptr;
    return encoder;
}

} // namespace platform
