#include "platform/sound/SoundDecoder.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/libav/MediaInput.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

namespace platform {
namespace {

// Decoders need some sound before the place that is asked for: overlapping windows, bit reservoirs, the 80 ms that an
// Opus decoder takes to settle.
constexpr int64_t kDecoderLeadIn = 8192;

} // namespace

bool SoundDecoder::open(const SoundFacts& facts, NSError* error)
{
    facts_ = &facts;
    packet_.reset(av_packet_alloc());
    frame_.reset(av_frame_alloc());
    if (!packet_ || !frame_)
        return failWithErrno(error, ENOMEM, localized("{} could not be opened", {facts.url.path()}));
    return reopen(error);
}

size_t SoundDecoder::read(int64_t position, std::span<float> samples)
{
    const auto channels = static_cast<size_t>(facts_->channels);
    size_t done = 0;
    const size_t wanted = samples.size() / channels;
    if (position < 0) {
        done = static_cast<size_t>(std::min<int64_t>(-position, static_cast<int64_t>(wanted)));
        std::fill_n(samples.begin(), done * channels, 0.0F);
    }
    if (done == wanted ||
        (position_ != position + static_cast<int64_t>(done) && !seek(position + static_cast<int64_t>(done))))
        return done;
    while (done < wanted) {
        if (buffered() == 0 && !decode())
            break;
        const size_t count = std::min(wanted - done, buffered());
        const auto from = buffer_.begin() + static_cast<ptrdiff_t>(bufferStart_ * channels);
        std::copy_n(from, count * channels, samples.begin() + static_cast<ptrdiff_t>(done * channels));
        bufferStart_ += count;
        position_ += static_cast<int64_t>(count);
        done += count;
    }
    return done;
}

int SoundDecoder::inputError() const
{
    const bool hasPromised = input_ && std::string_view(input_->iformat->name).starts_with("mov,");
    return inputError_ == AVERROR_EOF && !hasPromised ? 0 : inputError_;
}

bool SoundDecoder::reopen(NSError* error)
{
    // The same file once more, whatever stands under its name by now.
    input_ = input_ ? openMediaFile(bytesOf(*input_), facts_->url, true, error) : openSound(*facts_, error);
    if (!input_)
        return false;
    stream_ = soundStreamOf(*input_, facts_->streamIndex);
    const AVCodec* codec = stream_ ? avcodec_find_decoder(stream_->codecpar->codec_id) : nullptr;
    if (!codec)
        return fail(error, kAVFoundationErrorDomain, kAVErrorDecoderNotFound,
                    localized("{} holds sound of a kind that cannot be decoded", {facts_->url.path()}));
    decoder_.reset(avcodec_alloc_context3(codec));
    if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream_->codecpar) < 0)
        return failWithErrno(error, ENOMEM, localized("{} could not be opened", {facts_->url.path()}));
    decoder_->pkt_timebase = stream_->time_base;
    // The time line counts delay and padding out; the decoder must not do it again.
    decoder_->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
    decoder_->thread_count = 1;
    if (const int result = avcodec_open2(decoder_.get(), codec, nullptr); result < 0)
        return failWithAVError(error, result, localized("{} could not be decoded", {facts_->url.path()}));
    countsPackets_ = isFoundByCounting(*input_);
    isUntouched_ = true;
    restart();
    return true;
}

void SoundDecoder::restart()
{
    buffer_.clear();
    bufferStart_ = 0;
    nextFrame_.reset();
    atEnd_ = false;
    inputError_ = 0;
    position_ = -1;
}

bool SoundDecoder::seek(int64_t target)
{
    const int64_t from = target - kDecoderLeadIn;
    // A little ahead is quicker to decode than to seek.
    const bool isAhead = position_ >= 0 && position_ <= target && target - position_ < 4 * kDecoderLeadIn;
    if (!isAhead && !placeInput(from))
        return false;
    if (skipTo(target))
        return true;
    if (isUntouched_ || countsPackets_ || atEnd_)
        return false;
    // The seek went too far: read on from the start of the file instead.
    if (!reopen(nullptr))
        return false;
    return skipTo(target);
}

bool SoundDecoder::placeInput(int64_t from)
{
    restart();
    if (countsPackets_) {
        if (!isUntouched_ && !reopen(nullptr))
            return false;
        skipPacketsBefore_ = from;
        return true;
    }
    skipPacketsBefore_ = INT64_MIN;
    if (from <= 0 && isUntouched_)
        return true;
    const int64_t time = av_rescale_q(std::max<int64_t>(from, 0), {1, facts_->sampleRateHz}, stream_->time_base);
    avcodec_flush_buffers(decoder_.get());
    isUntouched_ = false;
    if (av_seek_frame(input_.get(), stream_->index, time, AVSEEK_FLAG_BACKWARD) >= 0)
        return true;
    return reopen(nullptr);
}

bool SoundDecoder::skipTo(int64_t target)
{
    for (;;) {
        if (buffered() == 0 && !decode())
            return false;
        if (position_ > target)
            return false;
        const auto count = static_cast<size_t>(std::min<int64_t>(target - position_, static_cast<int64_t>(buffered())));
        bufferStart_ += count;
        position_ += static_cast<int64_t>(count);
        if (position_ == target && buffered() > 0)
            return true;
    }
}

bool SoundDecoder::decode()
{
    buffer_.clear();
    bufferStart_ = 0;
    while (buffer_.empty()) {
        const int result = avcodec_receive_frame(decoder_.get(), frame_.get());
        if (result == 0) {
            takeFrame();
            av_frame_unref(frame_.get());
        } else if (result == AVERROR(EAGAIN)) {
            feed();
        } else if (result == AVERROR_EOF || atEnd_) {
            return false;
        } else {
            lostPacket_ = true;
            feed();
        }
    }
    return true;
}

void SoundDecoder::feed()
{
    bool isFirst = std::exchange(isUntouched_, false);
    for (;;) {
        if (const int result = readPacket(*input_, *packet_); result < 0) {
            atEnd_ = true;
            inputError_ = result;
            avcodec_send_packet(decoder_.get(), nullptr);
            return;
        }
        const bool isOfStream = packet_->stream_index == stream_->index;
        if (isOfStream && std::exchange(isFirst, false))
            lateBy_ = leadOfFirstPacket();
        const bool isWanted = isOfStream && !isBeforeNeed();
        // A packet that the decoder refuses is a gap, which the next frame's time shows.
        const bool taken = isWanted && avcodec_send_packet(decoder_.get(), packet_.get()) >= 0;
        lostPacket_ = lostPacket_ || (isWanted && !taken);
        av_packet_unref(packet_.get());
        if (taken)
            return;
    }
}

/// The first packet of Vorbis gives no sound, and the demuxer places it before zero; but not in a file of one page,
/// where all packets then stand too late by it.
int64_t SoundDecoder::leadOfFirstPacket() const
{
    const bool isOgg = std::string_view(input_->iformat->name) == "ogg";
    if (!isOgg || stream_->codecpar->codec_id != AV_CODEC_ID_VORBIS || packet_->pts == AV_NOPTS_VALUE)
        return 0;
    return std::max<int64_t>(0, packet_->pts + packet_->duration);
}

bool SoundDecoder::isBeforeNeed() const
{
    if (skipPacketsBefore_ == INT64_MIN || packet_->pts == AV_NOPTS_VALUE)
        return false;
    return inSamples(packet_->pts + packet_->duration) < skipPacketsBefore_;
}

int64_t SoundDecoder::inSamples(int64_t time) const
{
    return av_rescale_q(time - lateBy_, stream_->time_base, {1, facts_->sampleRateHz});
}

void SoundDecoder::takeFrame()
{
    const size_t frames = convertFrame();
    if (frames == 0)
        return;
    const auto channels = static_cast<size_t>(facts_->channels);
    const int64_t time = frame_->best_effort_timestamp;
    if (time != AV_NOPTS_VALUE && (!nextFrame_ || lostPacket_)) {
        const int64_t stands = inSamples(time);
        // Longer gaps than a minute are wrong times, not lost packets.
        const int64_t gap = nextFrame_ ? stands - *nextFrame_ : 0;
        if (gap > 0 && gap < int64_t{60} * facts_->sampleRateHz)
            buffer_.insert(buffer_.begin(), static_cast<size_t>(gap) * channels, 0.0F);
        if (!nextFrame_) {
            position_ = stands;
            nextFrame_ = stands;
        }
    } else if (!nextFrame_) {
        position_ = 0;
        nextFrame_ = 0;
    }
    lostPacket_ = false;
    *nextFrame_ += static_cast<int64_t>(buffer_.size() / channels);
}

size_t SoundDecoder::convertFrame()
{
    if (frame_->nb_samples <= 0 || frame_->sample_rate != facts_->sampleRateHz)
        return 0;
    if (!prepareMixer())
        return 0;
    const auto channels = static_cast<size_t>(facts_->channels);
    buffer_.resize(static_cast<size_t>(frame_->nb_samples) * channels);
    auto* output = reinterpret_cast<uint8_t*>(buffer_.data());
    const int got = swr_convert(mixer_.get(), &output, frame_->nb_samples,
                                const_cast<const uint8_t**>(frame_->extended_data), frame_->nb_samples);
    buffer_.resize(static_cast<size_t>(std::max(got, 0)) * channels);
    // Floating-point files can hold anything, which encoders refuse.
    constexpr float kLoudest = 8;
    for (float& sample : buffer_)
        sample = std::isfinite(sample) ? std::clamp(sample, -kLoudest, kLoudest) : 0.0F;
    return static_cast<size_t>(std::max(got, 0));
}

bool SoundDecoder::prepareMixer()
{
    const int channels = frame_->ch_layout.nb_channels;
    if (mixer_ && mixerFormat_ == frame_->format && mixerChannels_ == channels)
        return true;
    AVChannelLayout from{};
    // An arrangement that the file does not tell is the usual one of so many channels.
    if (frame_->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&from, channels);
    else
        av_channel_layout_copy(&from, &frame_->ch_layout);
    AVChannelLayout to{};
    av_channel_layout_default(&to, facts_->channels);
    // The same number of channels in another arrangement is taken as it is.
    if (channels == facts_->channels) {
        av_channel_layout_uninit(&from);
        av_channel_layout_default(&from, channels);
    }
    SwrContext* context = nullptr;
    const int result =
        swr_alloc_set_opts2(&context, &to, AV_SAMPLE_FMT_FLT, facts_->sampleRateHz, &from,
                            static_cast<AVSampleFormat>(frame_->format), facts_->sampleRateHz, 0, nullptr);
    av_channel_layout_uninit(&from);
    av_channel_layout_uninit(&to);
    mixer_.reset(context);
    // Several channels at once must not become louder than one can be.
    av_opt_set_double(context, "rematrix_maxval", 1, 0);
    if (result < 0 || swr_init(mixer_.get()) < 0) {
        mixer_.reset();
        return false;
    }
    mixerFormat_ = frame_->format;
    mixerChannels_ = channels;
    return true;
}

} // namespace platform
