#include "platform/sound/SoundFile.h"

#include "platform/aac/AACEncoder.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/MovieBoxes.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>

namespace platform {
namespace {

// Decoders need some sound before the place that is asked for: overlapping windows, bit reservoirs, the 80 ms that an
// Opus decoder takes to settle.
constexpr int64_t kDecoderLeadIn = 8192;
/// Frames that are asked for at once.
constexpr size_t kBlock = 4096;
/// Frames beyond the end that filters reach, at the most.
constexpr size_t kReflection = 256;

bool failNoSound(NSError* error, const NSURL& url, const std::string& why)
{
    return fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized, url.path() + " " + why);
}

bool isADTS(const AVFormatContext& input)
{
    return std::string_view(input.iformat->name) == "aac";
}

/// Bytes of the header that every packet of a raw AAC stream starts with; 0 if there is none that can be taken off.
size_t sizeOfADTSHeader(std::span<const uint8_t> packet)
{
    if (packet.size() < 7 || packet[0] != 0xFF || (packet[1] & 0xF6) != 0xF0 || (packet[6] & 0x03) != 0)
        return 0;
    const bool hasChecksum = !(packet[1] & 0x01);
    const size_t size = hasChecksum ? 9 : 7;
    return packet.size() > size ? size : 0;
}

/// Whether every packet of a movie's track stands where counting puts it.
bool hasEvenPackets(const AVStream& stream, int64_t packetLength)
{
    const int count = avformat_index_get_entries_count(&stream);
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(const_cast<AVStream*>(&stream), i);
        if (!entry || entry->timestamp != i * packetLength)
            return false;
    }
    return count > 0;
}

void describePackets(const AVFormatContext& input, const AVStream& stream, SoundFacts& facts)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const bool isMovie = std::string_view(input.iformat->name).starts_with("mov,");
    const bool countsSamples = stream.time_base.num == 1 && stream.time_base.den == parameters.sample_rate;
    if (parameters.ch_layout.nb_channels > 2)
        return;
    if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.profile == FF_PROFILE_AAC_LOW &&
        nearestAACRate(parameters.sample_rate) == parameters.sample_rate && facts.timeline.segments.size() == 1 &&
        facts.timeline.segments[0].mediaStart) {
        constexpr int kLength = kAACPacketLength;
        const std::vector<uint8_t> plain = configurationOfAAC(parameters.sample_rate, parameters.ch_layout.nb_channels);
        const std::span<const uint8_t> stored(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
        // Longer configurations may end in the note that no bands are replicated; the first bytes must be the plain
        // ones.
        const bool isPlain = stored.size() >= 2 && std::equal(plain.begin(), plain.end(), stored.begin());
        if ((isMovie && countsSamples && isPlain && hasEvenPackets(stream, kLength)) || isADTS(input)) {
            facts.codec = SoundCodec::AAC;
            facts.configuration = plain;
            facts.packetLength = kLength;
        }
        return;
    }
    // The configuration is a box: length, type, version, then the length of packets.
    const int packetLength = parameters.codec_id == AV_CODEC_ID_ALAC && parameters.extradata_size >= 36
                                 ? static_cast<int>(AV_RB32(parameters.extradata + 12) & INT32_MAX)
                                 : 0;
    if (packetLength > 0 && isMovie && countsSamples && facts.timeline.segments.size() == 1 &&
        facts.timeline.segments[0].mediaStart && hasEvenPackets(stream, packetLength)) {
        facts.codec = SoundCodec::ALAC;
        facts.configuration.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
        facts.packetLength = packetLength;
    }
}

/// Decodes what a file stores, by positions in the decoder's output.
class MediaDecoder final {
public:
    bool open(const SoundFacts& facts, NSError* error)
    {
        facts_ = &facts;
        packet_.reset(av_packet_alloc());
        frame_.reset(av_frame_alloc());
        if (!packet_ || !frame_)
            return failWithErrno(error, ENOMEM, facts.url.path() + " could not be opened");
        return reopen(error);
    }

    /// Samples at a place, or silence where there are none.
    /// @return frames written; fewer than there is room for only at the end of the file
    size_t read(int64_t position, std::span<float> samples)
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

    /// The library's number for what ended the file before its time; 0 if nothing did. Only the index of a movie
    /// promises sound that need not be there: other lengths come from the file's size or from counting.
    int inputError() const
    {
        const bool hasPromised = input_ && std::string_view(input_->iformat->name).starts_with("mov,");
        return inputError_ == AVERROR_EOF && !hasPromised ? 0 : inputError_;
    }

private:
    size_t buffered() const { return buffer_.size() / static_cast<size_t>(facts_->channels) - bufferStart_; }

    bool reopen(NSError* error)
    {
        input_ = openMediaFile(facts_->url, true, error);
        if (!input_)
            return false;
        stream_ = soundStreamOf(*input_, facts_->streamIndex);
        const AVCodec* codec = stream_ ? avcodec_find_decoder(stream_->codecpar->codec_id) : nullptr;
        if (!codec)
            return fail(error, kAVFoundationErrorDomain, kAVErrorDecoderNotFound,
                        facts_->url.path() + " holds sound of a kind that cannot be decoded");
        decoder_.reset(avcodec_alloc_context3(codec));
        if (!decoder_ || avcodec_parameters_to_context(decoder_.get(), stream_->codecpar) < 0)
            return failWithErrno(error, ENOMEM, facts_->url.path() + " could not be opened");
        decoder_->pkt_timebase = stream_->time_base;
        // The time line counts delay and padding out; the decoder must not do it again.
        decoder_->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
        decoder_->thread_count = 1;
        if (const int result = avcodec_open2(decoder_.get(), codec, nullptr); result < 0)
            return failWithAVError(error, result, facts_->url.path() + " could not be decoded");
        countsPackets_ = isFoundByCounting(*input_);
        isUntouched_ = true;
        restart();
        return true;
    }

    /// Forgets what was decoded; the next frame tells where it stands.
    void restart()
    {
        buffer_.clear();
        bufferStart_ = 0;
        nextFrame_.reset();
        atEnd_ = false;
        inputError_ = 0;
        position_ = -1;
    }

    /// Places the decoder so that the next sample is `target`.
    bool seek(int64_t target)
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

    bool placeInput(int64_t from)
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

    /// Decodes and drops what comes before `target`; false if it lies behind the decoder or beyond the end.
    bool skipTo(int64_t target)
    {
        for (;;) {
            if (buffered() == 0 && !decode())
                return false;
            if (position_ > target)
                return false;
            const auto count =
                static_cast<size_t>(std::min<int64_t>(target - position_, static_cast<int64_t>(buffered())));
            bufferStart_ += count;
            position_ += static_cast<int64_t>(count);
            if (position_ == target && buffered() > 0)
                return true;
        }
    }

    /// Decodes until there is more in the buffer.
    bool decode()
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

    void feed()
    {
        isUntouched_ = false;
        for (;;) {
            if (const int result = av_read_frame(input_.get(), packet_.get()); result < 0) {
                atEnd_ = true;
                inputError_ = result;
                avcodec_send_packet(decoder_.get(), nullptr);
                return;
            }
            const bool isWanted = packet_->stream_index == stream_->index && !isBeforeNeed();
            // A packet that the decoder refuses is a gap, which the next frame's time shows.
            const bool taken = isWanted && avcodec_send_packet(decoder_.get(), packet_.get()) >= 0;
            lostPacket_ = lostPacket_ || (isWanted && !taken);
            av_packet_unref(packet_.get());
            if (taken)
                return;
        }
    }

    bool isBeforeNeed() const
    {
        if (skipPacketsBefore_ == INT64_MIN || packet_->pts == AV_NOPTS_VALUE)
            return false;
        return inSamples(packet_->pts + packet_->duration) < skipPacketsBefore_;
    }

    int64_t inSamples(int64_t time) const { return av_rescale_q(time, stream_->time_base, {1, facts_->sampleRateHz}); }

    /// Moves the decoded frame into the buffer, after silence for what was lost before it.
    void takeFrame()
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

    /// The frame's samples as interleaved floats of at most two channels, in the buffer.
    size_t convertFrame()
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

    bool prepareMixer()
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

    const SoundFacts* facts_ = nullptr;
    InputPtr input_;
    AVStream* stream_ = nullptr;
    CodecPtr decoder_;
    PacketPtr packet_;
    FramePtr frame_;
    ResamplerPtr mixer_;
    int mixerFormat_ = -1;
    int mixerChannels_ = 0;
    bool countsPackets_ = false;
    /// Nothing was read since the file was opened.
    bool isUntouched_ = false;
    bool atEnd_ = false;
    /// What the end of the file was told by: the library's number, which may be that of a regular end.
    int inputError_ = 0;
    bool lostPacket_ = false;
    int64_t skipPacketsBefore_ = INT64_MIN;
    /// Decoded samples and how many of them are used up.
    std::vector<float> buffer_;
    size_t bufferStart_ = 0;
    /// Where the first unused sample stands; -1 before the first frame.
    int64_t position_ = -1;
    /// Where the next frame stands if nothing is lost.
    std::optional<int64_t> nextFrame_;
};

/// Reads the time line that edits make of what the decoder gives.
class TimelineReader final {
public:
    bool open(const SoundFacts& facts, NSError* error)
    {
        facts_ = &facts;
        return decoder_.open(facts, error);
    }

    size_t read(int64_t position, std::span<float> samples)
    {
        const auto channels = static_cast<size_t>(facts_->channels);
        size_t done = 0;
        int64_t start = 0;
        for (const SoundSegment& segment : facts_->timeline.segments) {
            const int64_t inside = position + static_cast<int64_t>(done) - start;
            const int64_t left = segment.length - inside;
            start += segment.length;
            if (left <= 0)
                continue;
            const size_t count =
                std::min(samples.size() / channels - done, static_cast<size_t>(std::min<int64_t>(left, INT32_MAX)));
            const auto part = samples.subspan(done * channels, count * channels);
            size_t got = count;
            if (segment.mediaStart)
                got = decoder_.read(*segment.mediaStart + inside, part);
            else
                std::fill(part.begin(), part.end(), 0.0F);
            done += got;
            if (got < count || done * channels == samples.size())
                break;
        }
        return done;
    }

    int inputError() const { return decoder_.inputError(); }

private:
    const SoundFacts* facts_ = nullptr;
    MediaDecoder decoder_;
};

} // namespace

std::optional<SoundFacts> readSoundFacts(const NSURL& url, std::optional<int> streamIndex, NSError* error)
{
    const InputPtr input = openMediaFile(url, true, error);
    if (!input)
        return std::nullopt;
    const AVStream* stream = soundStreamOf(*input, streamIndex);
    if (!stream) {
        failNoSound(error, url, "has no sound track");
        return std::nullopt;
    }
    SoundFacts facts{url, stream->index, stream->codecpar->sample_rate,
                     std::min(stream->codecpar->ch_layout.nb_channels, 2)};
    facts.timeline = soundTimelineOf(*input, *stream, url, readMovieBoxes(url), TimelinePrecision::ByScanning);
    if (facts.timeline.length() <= 0) {
        failNoSound(error, url, "has a sound track without sound");
        return std::nullopt;
    }
    describePackets(*input, *stream, facts);
    return facts;
}

struct SoundReader::State {
    SoundFacts facts;
    int sampleRateHz = 0;
    int channels = 0;
    TimelineReader source = {};

    /// @name Only if the rates differ
    /// Output sample `toUnit` * n stands where input sample `fromUnit` * n does.
    /// @{
    int64_t fromUnit = 1;
    int64_t toUnit = 1;
    ResamplerPtr resampler = nullptr;
    /// Where the next output of the resampler stands; its input likewise.
    int64_t outputPosition = -1;
    int64_t inputPosition = 0;
    bool inputEnded = false;
    /// The last frames that the resampler was given, at most as many as are reflected at the end.
    std::vector<float> lastInput = {};
    /// @}

    bool resamples() const { return sampleRateHz != facts.sampleRateHz; }

    bool makeResampler()
    {
        AVChannelLayout layout{};
        av_channel_layout_default(&layout, facts.channels);
        SwrContext* context = nullptr;
        swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_FLT, sampleRateHz, &layout, AV_SAMPLE_FMT_FLT,
                            facts.sampleRateHz, 0, nullptr);
        resampler.reset(context);
        return context && swr_init(context) >= 0;
    }

    /// Starts anew far enough before `position` for the filter to have settled there.
    bool restartAt(int64_t position)
    {
        constexpr int64_t kSettling = 1024;
        const int64_t unit = std::max<int64_t>(0, (position - kSettling) / toUnit);
        if (!makeResampler())
            return false;
        inputPosition = unit * fromUnit;
        outputPosition = unit * toUnit;
        inputEnded = false;
        lastInput.clear();
        std::vector<float> dropped(kBlock * static_cast<size_t>(facts.channels));
        while (outputPosition < position) {
            const auto count = static_cast<size_t>(std::min<int64_t>(position - outputPosition, kBlock));
            if (resample(std::span(dropped).first(count * static_cast<size_t>(facts.channels))) == 0)
                return false;
        }
        return true;
    }

    void remember(std::span<const float> samples)
    {
        const size_t kept = kReflection * static_cast<size_t>(facts.channels);
        if (samples.size() >= kept)
            lastInput.clear();
        lastInput.insert(lastInput.end(), samples.end() - static_cast<ptrdiff_t>(std::min(kept, samples.size())),
                         samples.end());
        if (lastInput.size() > kept)
            lastInput.erase(lastInput.begin(), lastInput.end() - static_cast<ptrdiff_t>(kept));
    }

    /// Fills up a block that holds the last `count` frames. What the filter reaches beyond the end is what lies before
    /// it, turned about the last sample: after silence there would be an edge, which the filter would spread.
    void goOnBeyondEnd(std::vector<float>& block, size_t count)
    {
        const auto width = static_cast<size_t>(facts.channels);
        std::vector<float> known = lastInput;
        known.insert(known.end(), block.begin(), block.begin() + static_cast<ptrdiff_t>(count * width));
        std::fill(block.begin() + static_cast<ptrdiff_t>(count * width), block.end(), 0.0F);
        const size_t frames = known.size() / width;
        const size_t reflected = std::min({kReflection, frames > 0 ? frames - 1 : 0, kBlock - count});
        for (size_t i = 0; i < reflected * width; ++i) {
            const size_t channel = i % width;
            const float last = known[(frames - 1) * width + channel];
            block[count * width + i] = 2 * last - known[(frames - 2 - i / width) * width + channel];
        }
    }

    /// The next samples of the resampler; fewer only at the end.
    size_t resample(std::span<float> samples)
    {
        const auto width = static_cast<size_t>(facts.channels);
        const size_t wanted = samples.size() / width;
        // The last output stands where the last input does, not later.
        const int64_t last = av_rescale_rnd(facts.timeline.length(), sampleRateHz, facts.sampleRateHz, AV_ROUND_UP);
        size_t done = 0;
        std::vector<float> block(kBlock * width);
        while (done < wanted && outputPosition < last) {
            auto* output = reinterpret_cast<uint8_t*>(samples.data() + done * width);
            const int room = static_cast<int>(std::min<size_t>(wanted - done, INT32_MAX / 16));
            int got = swr_convert(resampler.get(), &output, room, nullptr, 0);
            if (got <= 0 && !inputEnded) {
                const size_t count = source.read(inputPosition, block);
                inputPosition += static_cast<int64_t>(count);
                inputEnded = count < kBlock;
                if (inputEnded)
                    goOnBeyondEnd(block, count);
                remember(std::span(block).first(count * width));
                const auto* input = reinterpret_cast<const uint8_t*>(block.data());
                got = swr_convert(resampler.get(), &output, room, &input, kBlock);
            }
            if (got <= 0)
                break;
            if (inputEnded)
                got = static_cast<int>(std::min<int64_t>(
                    got,
                    std::max<int64_t>(0, av_rescale_rnd(inputPosition, sampleRateHz, facts.sampleRateHz, AV_ROUND_UP) -
                                             outputPosition)));
            if (got == 0)
                break;
            done += static_cast<size_t>(got);
            outputPosition += got;
        }
        return done;
    }

    size_t readNarrow(int64_t position, std::span<float> samples)
    {
        if (!resamples())
            return source.read(position, samples);
        if (position != outputPosition && !restartAt(position))
            return 0;
        return resample(samples);
    }
};

SoundReader::SoundReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
SoundReader::~SoundReader() = default;

std::unique_ptr<SoundReader> SoundReader::open(SoundFacts facts, int sampleRateHz, int channels, NSError* error)
{
    auto state = std::make_unique<State>(State{std::move(facts), sampleRateHz, channels, {}});
    const int common = std::gcd(state->facts.sampleRateHz, sampleRateHz);
    state->fromUnit = state->facts.sampleRateHz / common;
    state->toUnit = sampleRateHz / common;
    if (!state->source.open(state->facts, error))
        return nullptr;
    return std::unique_ptr<SoundReader>(new SoundReader(std::move(state)));
}

size_t SoundReader::read(int64_t position, std::span<float> samples)
{
    if (state_->channels == state_->facts.channels)
        return state_->readNarrow(position, samples);
    // One channel becomes two alike.
    const size_t frames = samples.size() / 2;
    const size_t got = state_->readNarrow(position, samples.first(frames));
    for (size_t i = got; i-- > 0;)
        samples[2 * i] = samples[2 * i + 1] = samples[i];
    return got;
}

std::optional<NSError> SoundReader::failure() const
{
    const int code = state_->source.inputError();
    if (code == 0)
        return std::nullopt;
    NSError error;
    if (code == AVERROR_EOF)
        fail(&error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse,
             state_->facts.url.path() + " ends before its sound does");
    else
        failWithAVError(&error, code, state_->facts.url.path() + " could not be read to its end");
    return error;
}

struct SoundPacketReader::State {
    SoundFacts facts;
    InputPtr input;
    AVStream* stream = nullptr;
    PacketPtr packet;
    bool isADTS = false;
    /// Index of the packet that is read next; -1 when not known.
    int64_t next = 0;

    bool reopen(NSError* error)
    {
        input = openMediaFile(facts.url, true, error);
        stream = input ? soundStreamOf(*input, facts.streamIndex) : nullptr;
        if (!stream)
            return input ? failNoSound(error, facts.url, "has no sound track") : false;
        isADTS = platform::isADTS(*input);
        next = 0;
        return true;
    }

    bool place(int64_t index)
    {
        if (index == next)
            return true;
        if (isADTS)
            return index > next || reopen(nullptr);
        if (av_seek_frame(input.get(), stream->index, index * facts.packetLength,
                          AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_ANY) < 0)
            return false;
        next = -1;
        return true;
    }
};

SoundPacketReader::SoundPacketReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
SoundPacketReader::~SoundPacketReader() = default;

std::unique_ptr<SoundPacketReader> SoundPacketReader::open(const SoundFacts& facts, NSError* error)
{
    auto state = std::make_unique<State>(State{facts, nullptr, nullptr, PacketPtr(av_packet_alloc())});
    if (!state->packet) {
        failWithErrno(error, ENOMEM, facts.url.path() + " could not be opened");
        return nullptr;
    }
    if (!state->reopen(error))
        return nullptr;
    return std::unique_ptr<SoundPacketReader>(new SoundPacketReader(std::move(state)));
}

std::span<const uint8_t> SoundPacketReader::packet(int64_t index)
{
    State& state = *state_;
    if (!state.place(index))
        return {};
    for (;;) {
        av_packet_unref(state.packet.get());
        if (av_read_frame(state.input.get(), state.packet.get()) < 0)
            return {};
        if (state.packet->stream_index != state.stream->index)
            continue;
        int64_t stands = state.next;
        if (!state.isADTS)
            stands = state.packet->pts / state.facts.packetLength;
        state.next = stands + 1;
        if (stands > index)
            return {};
        if (stands < index)
            continue;
        const std::span<const uint8_t> bytes(state.packet->data, static_cast<size_t>(state.packet->size));
        if (!state.isADTS)
            return bytes;
        const size_t header = sizeOfADTSHeader(bytes);
        return header > 0 ? bytes.subspan(header) : std::span<const uint8_t>{};
    }
}

} // namespace platform
