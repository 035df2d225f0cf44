#include "platform/sound/SoundTimeline.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/MediaInput.h"
#include "platform/sound/GaplessTag.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <array>
#include <numeric>
#include <span>
#include <string_view>
#include <utility>

namespace platform {
namespace {

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

/// Samples from the file's first to its last, by reading every packet's times.
///
/// @param firstPosition  out, optional: where in the file the first packet lies
int64_t endByScanning(AVFormatContext& input, const AVStream& stream, int64_t* firstPosition = nullptr)
{
    const PacketPtr packet(av_packet_alloc());
    int64_t end = 0;
    bool isFirst = true;
    while (packet && readPacket(input, *packet) >= 0) {
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
    if (!packet || readPacket(input, *packet) < 0)
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
