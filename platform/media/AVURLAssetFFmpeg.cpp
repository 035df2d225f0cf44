#include "platform/media/AVURLAsset.h"

#include "platform/libav/MediaInput.h"
#include "platform/libav/MovieBoxes.h"
#include "platform/media/FileTags.h"
#include "platform/sound/SoundFacts.h"

extern "C" {
#include <libavcodec/codec_id.h>
#include <libavcodec/codec_par.h>
#include <libavformat/avformat.h>
#include <libavutil/display.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <utility>

namespace platform {

struct AVURLAsset::Contents {
    CMTime duration = kCMTimeInvalid;
    std::vector<AVAssetTrack> tracks;
    FileBytesPtr file;
    /// Why there is nothing; without a domain where the file could be opened.
    NSError error;
};

namespace {

/// What of a video track plays, in its own scale.
CMTimeRange videoRangeOf(const AVStream& stream, const std::optional<MovieBoxes>& boxes)
{
    if (boxes) {
        for (const MovieTrackBoxes& track : boxes->tracks) {
            if (track.trackID != stream.id)
                continue;
            int64_t length = 0;
            for (const MovieEdit& edit : track.edits) {
                const int64_t rest = edit.mediaTime < 0 ? INT64_MAX : track.mediaDuration - edit.mediaTime;
                length += std::min(av_rescale(edit.duration, track.timescale, boxes->timescale), rest);
            }
            if (length <= 0)
                length = track.mediaDuration;
            return {CMTimeMake(0, track.timescale), CMTimeMake(length, track.timescale)};
        }
    }
    const int64_t length = stream.duration > 0 ? stream.duration : 0;
    const AVRational scale = stream.time_base;
    return {CMTimeMake(0, scale.den), CMTimeMake(length * scale.num, scale.den)};
}

/// Pixels as they are shown: turned as the track says, and as wide as its pixels are.
CGSize shownSizeOf(const AVStream& stream)
{
    CGSize size = {static_cast<double>(stream.codecpar->width), static_cast<double>(stream.codecpar->height)};
    if (const AVRational shape = stream.sample_aspect_ratio; shape.num > 0 && shape.den > 0)
        size.width = std::round(size.width * shape.num / shape.den);
    size_t length = 0;
    const uint8_t* const matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &length);
    if (!matrix || length < 9 * sizeof(int32_t))
        return size;
    std::array<int32_t, 9> values{};
    std::memcpy(values.data(), matrix, sizeof values);
    // A quarter turn moves nothing along its own axis; no number for a matrix that shows nothing.
    const double turn = std::abs(av_display_rotation_get(values.data()));
    return std::abs(turn - 90) < 45 ? CGSize{size.height, size.width} : size;
}

} // namespace

AVURLAsset::AVURLAsset(NSURL url) : AVURLAsset(std::move(url), Options{}) {}

AVURLAsset::AVURLAsset(NSURL url, Options options) : url_(std::move(url)), options_(options) {}

FileBytesPtr AVURLAsset::openedFile() const
{
    const FileBytesPtr file = status_ == AVKeyValueStatus::Loaded ? contents().file : nullptr;
    return file && FileState::ofFile(url_.path()) == file->state() ? file : nullptr;
}

CMTime AVURLAsset::duration() const
{
    return contents().duration;
}

std::vector<AVAssetTrack> AVURLAsset::tracks() const
{
    std::vector<AVAssetTrack> tracks = contents().tracks;
    for (AVAssetTrack& track : tracks)
        track.asset = weak_from_this();
    return tracks;
}

AVKeyValueStatus AVURLAsset::statusOfValueForKey(std::string_view key, NSError* error) const
{
    // The base knows the keys.
    if (AVAsset::statusOfValueForKey(key) != AVKeyValueStatus::Loaded)
        return AVKeyValueStatus::Unknown;
    const AVKeyValueStatus status = status_;
    if (status == AVKeyValueStatus::Failed && error)
        *error = contents().error;
    return status;
}

void AVURLAsset::loadValues() const
{
    contents();
}

AVMetadataItemList AVURLAsset::commonMetadata() const
{
    std::call_once(metadataOnce_, [this] { commonMetadata_ = readFileTags(url_, openedFile()); });
    return commonMetadata_;
}

const AVURLAsset::Contents& AVURLAsset::contents() const
{
    std::call_once(once_, [this] {
        auto contents = std::make_shared<Contents>();
        contents_ = contents;
        status_ = AVKeyValueStatus::Loading;
        const InputPtr input = openMediaFile(url_, true, &contents->error);
        if (!input) {
            status_ = AVKeyValueStatus::Failed;
            return;
        }
        const FileBytesPtr& file = bytesOf(*input);
        if (file->leavesRoom())
            contents->file = file;
        const auto boxes = readMovieBoxes(*file);
        const TimelinePrecision precision =
            options_.preferPreciseDurationAndTiming ? TimelinePrecision::ByScanning : TimelinePrecision::FromIndex;
        bool hasVideo = false;
        CMTime end = kCMTimeInvalid;
        for (unsigned i = 0; i < input->nb_streams; ++i) {
            const AVStream& stream = *input->streams[i];
            AVAssetTrack track;
            track.trackID = boxes ? stream.id : stream.index + 1;
            track.streamIndex = stream.index;
            track.assetURL = url_;
            track.codec = avcodec_get_name(stream.codecpar->codec_id);
            if (soundStreamOf(*input, stream.index)) {
                const int32_t rate = stream.codecpar->sample_rate;
                SoundFacts facts = soundFactsOf(*input, stream, url_, boxes, precision);
                const int64_t length = facts.timeline.length();
                track.mediaType = kAVMediaTypeAudio;
                track.timeRange = {CMTimeMake(0, rate), CMTimeMake(length, rate)};
                // A movie's index is exact anyhow.
                if (length > 0 && (boxes || precision == TimelinePrecision::ByScanning))
                    track.sound = std::make_shared<const SoundFacts>(std::move(facts));
                const int channels = stream.codecpar->ch_layout.nb_channels;
                track.formatDescriptions.push_back(
                    {AudioStreamBasicDescription{static_cast<double>(rate), static_cast<uint32_t>(channels)}});
            } else if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO &&
                       !(stream.disposition & AV_DISPOSITION_ATTACHED_PIC)) {
                track.mediaType = kAVMediaTypeVideo;
                track.naturalSize = shownSizeOf(stream);
                track.timeRange = videoRangeOf(stream, boxes);
                track.formatDescriptions.emplace_back();
                hasVideo = true;
            } else {
                continue;
            }
            if (!end.isValid() || CMTimeCompare(track.timeRange.duration, end) > 0)
                end = track.timeRange.duration;
            contents->tracks.push_back(std::move(track));
        }
        const bool headerKnows = boxes && boxes->duration > 0;
        contents->duration = hasVideo && headerKnows ? CMTimeMake(boxes->duration, boxes->timescale) : end;
        status_ = AVKeyValueStatus::Loaded;
    });
    return *contents_;
}

} // namespace platform
