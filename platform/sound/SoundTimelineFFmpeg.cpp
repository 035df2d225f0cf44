#include "platform/sound/SoundTimeline.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/ID3Head.h"
#include "platform/libav/MediaInput.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <numeric>
#include <span>
#include <string_view>
#include <utility>

namespace platform {
namespace {

/// Encoder delay and padding that tags tell, in samples.
struct GaplessTag {
    int64_t delay = 0;
    /// Samples between delay and padding; nothing where the tag does not say.
    std::optional<int64_t> length;
    /// Where in the file the frame lies that holds the tag, and to how many samples it decodes.
    int64_t position = -1;
    int64_t frameLength = 0;
};

bool isFormat(const AVFormatContext& input, std::string_view name)
{
    const std::string_view names = input.iformat->name;
    return names == name || names.starts_with(std::string(name) + ",");
}

int64_t rescale(int64_t value, int64_t toScale, int64_t fromScale)
{
    return av_rescale(value, toScale, fromScale);
}

int64_t inSamples(int64_t time, const AVStream& stream)
{
    return av_rescale_q(time, stream.time_base, {1, stream.codecpar->sample_rate});
}

/// Bytes of the frame of MPEG sound, layer 3, that starts here; 0 if none does.
size_t sizeOfMP3Frame(std::span<const uint8_t> bytes)
{
    if (bytes.size() < 4 || bytes[0] != 0xFF || (bytes[1] & 0xE6) != 0xE2)
        return 0;
    const unsigned version = bytes[1] >> 3 & 3;
    const unsigned bitRateIndex = bytes[2] >> 4;
    const unsigned rateIndex = bytes[2] >> 2 & 3;
    constexpr unsigned kReservedVersion = 1;
    if (version == kReservedVersion || bitRateIndex == 0 || bitRateIndex == 15 || rateIndex == 3)
        return 0;
    // In kbit/s: for version 1, and for the versions of lower rates.
    constexpr std::array<size_t, 15> kBitRates = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    constexpr std::array<size_t, 15> kLowBitRates = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    constexpr std::array<size_t, 3> kSampleRates = {44100, 48000, 32000};
    const bool isVersion1 = version == 3;
    const size_t rate = kSampleRates[rateIndex] / (isVersion1 ? 1 : version == 2 ? 2 : 4);
    const size_t bitRate = 1000 * (isVersion1 ? kBitRates : kLowBitRates)[bitRateIndex];
    return (isVersion1 ? 144 : 72) * bitRate / rate + (bytes[2] >> 1 & 1);
}

/// Where the first frame starts. Noise has what looks like one, but hardly another of its kind right behind it.
std::optional<size_t> firstFrameOfMP3(std::span<const uint8_t> bytes)
{
    for (size_t at = 0; at + 4 <= bytes.size(); ++at) {
        const auto frame = bytes.subspan(at);
        const size_t size = sizeOfMP3Frame(frame);
        if (size == 0 || size + 4 > frame.size() || sizeOfMP3Frame(frame.subspan(size)) == 0)
            continue;
        const bool isAlike =
            (frame[1] & 0xFE) == (frame[size + 1] & 0xFE) && (frame[2] & 0x0C) == (frame[size + 2] & 0x0C);
        if (isAlike)
            return at;
    }
    return std::nullopt;
}

/// What the frame of information at the start of an MP3 file says of delay, padding and length.
std::optional<GaplessTag> gaplessTagOfMP3(const FileBytes& file)
{
    const int64_t start = endOfID3Tags(file);
    std::vector<uint8_t> bytes(static_cast<size_t>(std::clamp<int64_t>(file.size() - start, 0, 1 << 16)));
    if (!file.read(start, bytes))
        return std::nullopt;

    const auto first = firstFrameOfMP3(bytes);
    if (!first)
        return std::nullopt;
    const size_t frame = *first;
    const bool isMPEG1 = (bytes[frame + 1] & 0x18) == 0x18;
    const bool isMono = (bytes[frame + 3] & 0xC0) == 0xC0;
    const size_t sideInformation = isMPEG1 ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    const size_t tag = frame + 4 + sideInformation;
    const auto name = bigEndian32(bytes, tag);
    if (name != fourCharacterCode("Xing") && name != fourCharacterCode("Info"))
        return std::nullopt;

    const uint32_t flags = bigEndian32(bytes, tag + 4).value_or(0);
    size_t field = tag + 8;
    int64_t frames = 0;
    if (flags & 1) {
        frames = bigEndian32(bytes, field).value_or(0);
        field += 4;
    }
    if (flags & 2)
        field += 4;
    if (flags & 4)
        field += 100;
    if (flags & 8)
        field += 4;
    if (field + 24 > bytes.size())
        return std::nullopt;
    // Only these encoders write delay and padding here.
    const auto encoder = bigEndian32(bytes, field);
    if (encoder != fourCharacterCode("LAME") && encoder != fourCharacterCode("Lavc") &&
        encoder != fourCharacterCode("Lavf"))
        return std::nullopt;
    const auto pads = static_cast<int64_t>(bigEndianNumber(std::span(bytes).subspan(field + 21, 3)));
    const int64_t startPad = pads >> 12;
    const int64_t endPad = pads & 0xFFF;
    // The decoder's own delay comes on top of the encoder's.
    constexpr int64_t kDecoderDelay = 528 + 1;
    const int64_t frameLength = isMPEG1 ? 1152 : 576;
    GaplessTag result{startPad + kDecoderDelay, std::nullopt, start + static_cast<int64_t>(frame), frameLength};
    if (frames > 0)
        result.length = frames * frameLength - startPad - endPad;
    return result;
}

/// What the packet table of a CAF file says: frames that play, frames before them.
std::optional<GaplessTag> gaplessTagOfCAF(const FileBytes& file)
{
    int64_t offset = 8;
    // Chunks before the packet table are few; a file with more is not worth the walk.
    for (int chunk = 0; chunk < 256; ++chunk) {
        std::array<uint8_t, 24> bytes{};
        if (!file.read(offset, std::span(bytes).first(12)))
            return std::nullopt;
        const auto size = static_cast<int64_t>(*bigEndian64(bytes, 4));
        if (bigEndian32(bytes, 0) == fourCharacterCode("pakt")) {
            if (size < 24 || !file.read(offset + 12, bytes))
                return std::nullopt;
            const auto validFrames = static_cast<int64_t>(*bigEndian64(bytes, 8));
            const auto priming = static_cast<int32_t>(*bigEndian32(bytes, 16));
            if (priming < 0 || validFrames <= 0)
                return std::nullopt;
            return GaplessTag{.delay = priming, .length = validFrames};
        }
        if (size < 0 || size > INT64_MAX / 2)
            return std::nullopt;
        offset += 12 + size;
    }
    return std::nullopt;
}

/// The text tag in which some encoders of MPEG-4 sound tell delay, padding and length, in hexadecimal numbers.
std::optional<GaplessTag> gaplessTagOfMovie(const AVFormatContext& input)
{
    const AVDictionaryEntry* entry = av_dict_get(input.metadata, "iTunSMPB", nullptr, 0);
    if (!entry)
        return std::nullopt;
    unsigned delay = 0;
    unsigned padding = 0;
    unsigned long long length = 0;
    if (std::sscanf(entry->value, "%*x %x %x %llx", &delay, &padding, &length) != 3 || length > INT64_MAX)
        return std::nullopt;
    return GaplessTag{.delay = delay,
                      .length = length > 0 ? std::optional(static_cast<int64_t>(length)) : std::nullopt};
}

/// Samples from the file's first to its last, by reading every packet's times.
///
/// @param firstPosition  out, optional: where in the file the first packet lies
int64_t endByScanning(AVFormatContext& input, const AVStream& stream, int64_t* firstPosition = nullptr)
{
    const PacketPtr packet(av_packet_alloc());
    int64_t end = 0;
    bool isFirst = true;
    while (packet && av_read_frame(&input, packet.get()) >= 0) {
        if (packet->stream_index == stream.index && packet->pts != AV_NOPTS_VALUE)
            end = std::max(end, inSamples(packet->pts + packet->duration, stream));
        if (std::exchange(isFirst, false) && firstPosition)
            *firstPosition = packet->pos;
        av_packet_unref(packet.get());
    }
    return end;
}

/// Bytes of samples that a file of this kind of 64-bit chunks holds; each chunk is padded to eight bytes.
std::optional<int64_t> sampleBytesOfW64(const FileBytes& file)
{
    // The first chunk's head, of which a name follows.
    int64_t offset = 24 + 16;
    for (int chunk = 0; chunk < 256; ++chunk) {
        std::array<uint8_t, 24> head{};
        if (!file.read(offset, head))
            return std::nullopt;
        const auto size = static_cast<int64_t>(*littleEndian64(head, 16));
        if (size < 24 || size > INT64_MAX / 2)
            return std::nullopt;
        if (bigEndian32(head, 0) == fourCharacterCode("data"))
            return size - 24;
        offset += (size + 7) / 8 * 8;
    }
    return std::nullopt;
}

/// Whole frames that lie between the first packet and the end of the file; nothing if the packets have no fixed size.
std::optional<int64_t> framesInFile(AVFormatContext& input, const AVStream& stream)
{
    const int bits = av_get_exact_bits_per_sample(stream.codecpar->codec_id);
    const int64_t frameSize = int64_t{bits} * stream.codecpar->ch_layout.nb_channels / 8;
    if (frameSize <= 0)
        return std::nullopt;
    const PacketPtr packet(av_packet_alloc());
    if (!packet || av_read_frame(&input, packet.get()) < 0)
        return 0;
    const int64_t size = avio_size(input.pb);
    if (packet->pos < 0 || size < packet->pos)
        return std::nullopt;
    const int64_t bytes = size - packet->pos;
    const auto claimed = isFormat(input, "w64") ? sampleBytesOfW64(*bytesOf(input)) : std::nullopt;
    return std::min(bytes, claimed.value_or(bytes)) / frameSize;
}

SoundTimeline oneSegment(int64_t mediaStart, int64_t length)
{
    SoundTimeline timeline;
    if (length > 0)
        timeline.segments.push_back({mediaStart, length});
    return timeline;
}

SoundTimeline timelineOfMovie(AVFormatContext& input, const AVStream& stream, const MovieBoxes& boxes)
{
    const auto track = std::find_if(boxes.tracks.begin(), boxes.tracks.end(),
                                    [&](const MovieTrackBoxes& candidate) { return candidate.trackID == stream.id; });
    const int64_t rate = stream.codecpar->sample_rate;
    int64_t mediaEnd = 0;
    if (track != boxes.tracks.end() && !boxes.isFragmented)
        mediaEnd = rescale(track->mediaDuration, rate, track->timescale);
    else
        mediaEnd = endByScanning(input, stream);
    if (track == boxes.tracks.end() || track->edits.empty()) {
        const auto tag = gaplessTagOfMovie(input);
        if (!tag || tag->delay >= mediaEnd)
            return oneSegment(0, mediaEnd);
        const int64_t rest = mediaEnd - tag->delay;
        return oneSegment(tag->delay, std::min(tag->length.value_or(rest), rest));
    }

    // Longer than any music; keeps sums of hostile lengths in range.
    const int64_t limit = INT64_MAX / 65536 / 4;
    SoundTimeline timeline;
    for (const MovieEdit& edit : track->edits) {
        int64_t length = std::min(rescale(edit.duration, rate, boxes.timescale), limit);
        if (edit.mediaTime < 0) {
            if (length > 0)
                timeline.segments.push_back({std::nullopt, length});
            continue;
        }
        const int64_t start = rescale(edit.mediaTime, rate, track->timescale);
        const int64_t rest = mediaEnd - start;
        // The movie's scale may be coarser than a sample: an edit that ends within a tick of the media ends with it.
        const int64_t tick = rate / boxes.timescale + 1;
        if (edit.duration == 0 || length > rest || rest - length <= tick)
            length = rest;
        if (length > 0)
            timeline.segments.push_back({start, length});
    }
    return timeline;
}

SoundTimeline timelineOfMP3(AVFormatContext& input, const AVStream& stream, TimelinePrecision precision)
{
    const auto tag = gaplessTagOfMP3(*bytesOf(input));
    int64_t delay = tag ? tag->delay : 0;
    if (precision == TimelinePrecision::FromIndex) {
        if (tag && tag->length)
            return oneSegment(delay, *tag->length);
        return oneSegment(delay, inSamples(std::max<int64_t>(stream.duration, 0), stream) - delay);
    }
    int64_t firstPosition = -1;
    const int64_t end = endByScanning(input, stream, &firstPosition);
    // The demuxer keeps the frame with the tag to itself only at the very start of a file; behind something else it
    // hands it on, and it decodes to silence.
    if (tag && firstPosition == tag->position)
        delay += tag->frameLength;
    const int64_t rest = end - delay;
    // A file cut short plays what it has; one that goes on behind what the tag counts, and so was put together from
    // several, plays to its end.
    if (tag && tag->length && rest >= *tag->length && rest - *tag->length < 4096)
        return oneSegment(delay, *tag->length);
    return oneSegment(delay, rest);
}

} // namespace

int64_t SoundTimeline::length() const
{
    return std::accumulate(segments.begin(), segments.end(), int64_t{0},
                           [](int64_t sum, const SoundSegment& segment) { return sum + segment.length; });
}

bool isFoundByCounting(const AVFormatContext& input)
{
    return isFormat(input, "mp3") || isFormat(input, "aac") || isFormat(input, "ogg") || isFormat(input, "flac");
}

AVStream* soundStreamOf(AVFormatContext& input, std::optional<int> streamIndex)
{
    for (unsigned i = 0; i < input.nb_streams; ++i) {
        AVStream* stream = input.streams[i];
        const AVCodecParameters& parameters = *stream->codecpar;
        if (streamIndex && *streamIndex != stream->index)
            continue;
        if (parameters.codec_type == AVMEDIA_TYPE_AUDIO && parameters.sample_rate > 0 &&
            parameters.ch_layout.nb_channels > 0)
            return stream;
    }
    return nullptr;
}

SoundTimeline soundTimelineOf(AVFormatContext& input, const AVStream& stream, const std::optional<MovieBoxes>& boxes,
                              TimelinePrecision precision)
{
    if (isFormat(input, "mov") && boxes)
        return timelineOfMovie(input, stream, *boxes);
    if (isFormat(input, "mp3"))
        return timelineOfMP3(input, stream, precision);

    const int64_t claimed = stream.duration > 0 ? inSamples(stream.duration, stream) : 0;
    // Lengths in headers of uncompressed sound are often wrong; the file's size is not.
    if (const auto frames = framesInFile(input, stream))
        return oneSegment(0, claimed > 0 ? std::min(claimed, *frames) : *frames);
    if (isFormat(input, "caf")) {
        if (const auto tag = gaplessTagOfCAF(*bytesOf(input)); tag && tag->length)
            return oneSegment(tag->delay, *tag->length);
    }
    if (isFormat(input, "ogg") && stream.codecpar->codec_id == AV_CODEC_ID_OPUS && claimed > 0 &&
        stream.codecpar->extradata_size >= 12) {
        // The stream starts before zero by what its header says is to be skipped; its length counts that in.
        return oneSegment(0, claimed - AV_RL16(stream.codecpar->extradata + 10));
    }
    const bool isEstimate = input.duration_estimation_method == AVFMT_DURATION_FROM_BITRATE;
    if (precision == TimelinePrecision::ByScanning && (isEstimate || claimed == 0))
        return oneSegment(0, endByScanning(input, stream));
    return oneSegment(0, claimed);
}

} // namespace platform
