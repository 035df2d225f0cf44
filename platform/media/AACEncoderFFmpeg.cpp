#include "platform/media/AACEncoder.h"

#include "platform/media/FFmpegHandles.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <array>

namespace platform {
namespace {

// Standard order: the index is what a decoder's configuration holds.
constexpr std::array kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

/// Below this rate bits are too few for the quick search.
constexpr int kLowestQuickRate = 22050;

int bitRateOf(int sampleRateHz, int channels)
{
    // Two bits a sample where the rate is too low to use more. At the usual rates files come out as large as those of
    // the thorough search that is asked for 128 kbit/s of stereo.
    return std::min(66000, 2 * sampleRateHz) * channels;
}

CodecPtr openEncoder(int sampleRateHz, int channels, NSError* error)
{
    const AVCodec* codec = avcodec_find_encoder_by_name("aac");
    if (!codec) {
        fail(error, kAVFoundationErrorDomain, kAVErrorExportFailed, "There is no AAC encoder");
        return nullptr;
    }
    CodecPtr encoder(avcodec_alloc_context3(codec));
    if (!encoder) {
        failWithErrno(error, ENOMEM, "The AAC encoder could not be made");
        return nullptr;
    }
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->sample_rate = sampleRateHz;
    encoder->time_base = {1, sampleRateHz};
    encoder->bit_rate = bitRateOf(sampleRateHz, channels);
    encoder->profile = FF_PROFILE_AAC_LOW;
    encoder->thread_count = 1;
    // No note of the library's version among the sound.
    encoder->flags |= AV_CODEC_FLAG_BITEXACT;
    av_channel_layout_default(&encoder->ch_layout, channels);
    if (sampleRateHz >= kLowestQuickRate) {
        // Takes half the time of the thorough search for step sizes. With enough bits its noise lies lower against the
        // threshold of hearing on music, and no packet of a tone is spoilt. One channel in place of two satisfies it
        // too easily, though.
        av_opt_set(encoder->priv_data, "aac_coder", "fast", 0);
        av_opt_set(encoder->priv_data, "aac_is", "0", 0);
    }
    if (const int result = avcodec_open2(encoder.get(), codec, nullptr); result < 0) {
        failWithAVError(error, result, "The AAC encoder could not be opened");
        return nullptr;
    }
    return encoder;
}

} // namespace

void PacketRun::append(std::span<const uint8_t> packet)
{
    bytes_.insert(bytes_.end(), packet.begin(), packet.end());
    ends_.push_back(bytes_.size());
}

std::span<const uint8_t> PacketRun::packet(size_t index) const
{
    const size_t start = index == 0 ? 0 : ends_[index - 1];
    return std::span(bytes_).subspan(start, ends_[index] - start);
}

int nearestAACRate(int sampleRateHz)
{
    // From low to high.
    for (size_t i = kRates.size(); i-- > 3;) {
        if (kRates[i] >= sampleRateHz)
            return kRates[i];
    }
    return 48000;
}

std::vector<uint8_t> configurationOfAAC(int sampleRateHz, int channels)
{
    const auto index = static_cast<unsigned>(std::find(kRates.begin(), kRates.end(), sampleRateHz) - kRates.begin());
    // Object type 2 in 5 bits, rate index in 4, channels in 4, three flags of 0.
    const unsigned bits = 2U << 11 | index << 7 | static_cast<unsigned>(channels) << 3;
    return {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits & 0xFF)};
}

std::optional<PacketRun> encodeAAC(std::span<const float> samples, int sampleRateHz, int channels,
                                   const std::function<bool()>& isCancelled, NSError* error)
{
    const CodecPtr encoder = openEncoder(sampleRateHz, channels, error);
    if (!encoder)
        return std::nullopt;
    const PacketPtr packet(av_packet_alloc());
    const FramePtr frame(av_frame_alloc());
    PacketRun run;
    const size_t width = static_cast<size_t>(channels) * kAACPacketLength;
    for (size_t offset = 0; offset + width <= samples.size(); offset += width) {
        if (isCancelled())
            return std::nullopt;
        av_frame_unref(frame.get());
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->sample_rate = sampleRateHz;
        frame->nb_samples = kAACPacketLength;
        frame->pts = static_cast<int64_t>(offset / static_cast<size_t>(channels));
        int result = av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
        if (result >= 0)
            result = av_frame_get_buffer(frame.get(), 0);
        if (result < 0) {
            failWithAVError(error, result, "Sound could not be encoded");
            return std::nullopt;
        }
        for (size_t channel = 0; channel < static_cast<size_t>(channels); ++channel) {
            auto* plane = reinterpret_cast<float*>(frame->extended_data[channel]);
            const float* source = samples.data() + offset + channel;
            for (size_t i = 0; i < kAACPacketLength; ++i)
                plane[i] = source[i * static_cast<size_t>(channels)];
        }
        result = avcodec_send_frame(encoder.get(), frame.get());
        while (result >= 0) {
            result = avcodec_receive_packet(encoder.get(), packet.get());
            if (result < 0)
                break;
            run.append({packet->data, static_cast<size_t>(packet->size)});
            av_packet_unref(packet.get());
        }
        if (result != AVERROR(EAGAIN)) {
            failWithAVError(error, result, "Sound could not be encoded");
            return std::nullopt;
        }
    }
    return run;
}

std::optional<uint8_t> windowOfAAC(std::span<const uint8_t> packet)
{
    if (packet.size() < 4)
        return std::nullopt;
    const uint32_t bits = uint32_t{packet[0]} << 24 | uint32_t{packet[1]} << 16 | uint32_t{packet[2]} << 8 | packet[3];
    const auto take = [bits](int offset, int count) { return bits << offset >> (32 - count); };
    constexpr uint32_t kSingle = 0;
    constexpr uint32_t kPair = 1;
    // Element, its tag; then a single channel's gain, or whether a pair shares its window; then a reserved bit,
    // sequence and shape.
    if (take(0, 3) == kSingle)
        return static_cast<uint8_t>(take(16, 3));
    if (take(0, 3) == kPair && take(7, 1) == 1)
        return static_cast<uint8_t>(take(9, 3));
    return std::nullopt;
}

} // namespace platform
