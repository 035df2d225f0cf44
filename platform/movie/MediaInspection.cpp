#include "platform/movie/MediaInspection.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/GivenFile.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/MediaInput.h"
#include "platform/libav/MovieBoxes.h"

#include <algorithm>
#include <string>
#include <sys/stat.h>

extern "C" {
#include <libavformat/avformat.h>
}

namespace platform {

namespace {

/// In which order a file's outermost boxes stand.
struct Outline {
    bool indexFirst = false;
    /// No box claims more than the file holds.
    bool isWhole = true;
};

Outline outlineOf(const FileBytes& file)
{
    constexpr int64_t kSmallestBox = 8;
    Outline outline;
    bool hasMedia = false;
    const int64_t end = BoxWalker(file).forEachBox(0, file.size(), [&](const Box& box) {
        if (box.type == fourCharacterCode("moov"))
            outline.indexFirst = !hasMedia;
        hasMedia = hasMedia || box.type == fourCharacterCode("mdat");
    });
    // What is left may be too short for a box.
    outline.isWhole = file.size() - end < kSmallestBox;
    return outline;
}

std::string textOf(uint32_t tag)
{
    std::string text;
    for (int shift = 0; shift < 32; shift += 8)
        text += static_cast<char>(tag >> shift & 255);
    return text;
}

CMTime timeOf(int64_t value, AVRational timeBase)
{
    return CMTimeMake(value * timeBase.num, timeBase.den);
}

MediaTrackReport reportOf(const AVStream& stream, const MovieBoxes& boxes)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    MediaTrackReport report;
    report.mediaType = parameters.codec_type == AVMEDIA_TYPE_VIDEO ? "vide" : "soun";
    report.codec = textOf(parameters.codec_tag);
    report.width = parameters.width;
    report.height = parameters.height;
    report.sampleRateHz = parameters.sample_rate;
    report.channels = parameters.ch_layout.nb_channels;
    const auto track = std::ranges::find(boxes.tracks, stream.id, &MovieTrackBoxes::trackID);
    if (track == boxes.tracks.end())
        return report;
    if (track->edits.empty()) {
        report.end = CMTimeMake(track->mediaDuration, track->timescale);
        return report;
    }
    int64_t length = 0;
    for (const MovieEdit& edit : track->edits)
        length += edit.duration;
    report.end = CMTimeMake(length, boxes.timescale);
    return report;
}

/// The demuxer tells how long a packet lasts only where packets are stored in order of showing. Else that is the
/// distance to the next stored one; the last lasts as long as the one before.
class MissingDurations final {
public:
    void add(MediaTrackReport& track, int64_t storedAt, AVRational timeBase)
    {
        auto& samples = track.samples;
        if (samples.size() > 1 && isMissing_)
            samples[samples.size() - 2].duration = timeOf(storedAt - storedAt_, timeBase);
        isMissing_ = samples.back().duration.value == 0;
        storedAt_ = storedAt;
    }

    void finish(MediaTrackReport& track) const
    {
        auto& samples = track.samples;
        if (samples.size() > 1 && isMissing_)
            samples.back().duration = samples[samples.size() - 2].duration;
    }

private:
    bool isMissing_ = false;
    int64_t storedAt_ = 0;
};

} // namespace

std::optional<MediaReport> inspectMedia(const NSURL& url, NSError* error)
{
    struct stat status {};
    if (!statForReading(url.path(), status)) {
        failWithErrno(error, errno, localized("{} could not be opened", {url.path()}), FileAccess::Reading);
        return std::nullopt;
    }
    const auto file = std::make_shared<const FileBytes>(url.path());
    const auto boxes = readMovieBoxes(*file);
    if (!boxes) {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
             localized("{} is no movie that can be read", {url.path()}));
        return std::nullopt;
    }
    const InputPtr input = openMovieIndex(file, url, error);
    if (!input)
        return std::nullopt;

    const auto refuseCut = [&] {
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse, localized("{} is cut off", {url.path()}));
        return std::nullopt;
    };
    MediaReport report;
    report.duration = CMTimeMake(boxes->duration, boxes->timescale);
    const Outline outline = outlineOf(*file);
    report.indexFirst = outline.indexFirst;
    if (!outline.isWhole)
        return refuseCut();

    std::vector<std::optional<size_t>> trackOfStream(input->nb_streams);
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream& stream = *input->streams[i];
        if (stream.codecpar->codec_type != AVMEDIA_TYPE_VIDEO && stream.codecpar->codec_type != AVMEDIA_TYPE_AUDIO)
            continue;
        trackOfStream[i] = report.tracks.size();
        report.tracks.push_back(reportOf(stream, *boxes));
        // Growing takes half as much again, and silence of some hours has a million samples.
        report.tracks.back().samples.reserve(static_cast<size_t>(avformat_index_get_entries_count(&stream)));
    }

    std::vector<MissingDurations> missingDurations(trackOfStream.size());
    const PacketPtr packet(av_packet_alloc());
    while (packet && av_read_frame(input.get(), packet.get()) >= 0) {
        const auto stream = static_cast<size_t>(packet->stream_index);
        const bool isCut = packet->flags & AV_PKT_FLAG_CORRUPT;
        // Streams can still turn up while fragments are read.
        const bool isShown = stream < trackOfStream.size() && trackOfStream[stream] && packet->pts != AV_NOPTS_VALUE &&
                             !(packet->flags & AV_PKT_FLAG_DISCARD);
        if (isShown) {
            const AVRational timeBase = input->streams[stream]->time_base;
            report.tracks[*trackOfStream[stream]].samples.push_back(
                {.presentationTime = timeOf(packet->pts, timeBase),
                 .duration = timeOf(packet->duration, timeBase),
                 .size = static_cast<uint32_t>(packet->size),
                 .isKeyFrame = (packet->flags & AV_PKT_FLAG_KEY) != 0});
            missingDurations[stream].add(report.tracks[*trackOfStream[stream]], packet->dts, timeBase);
        }
        av_packet_unref(packet.get());
        if (isCut)
            return refuseCut();
    }
    for (size_t stream = 0; stream < trackOfStream.size(); ++stream)
        if (trackOfStream[stream])
            missingDurations[stream].finish(report.tracks[*trackOfStream[stream]]);
    return report;
}

} // namespace platform
