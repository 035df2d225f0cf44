#include "platform/media/PassthroughExport.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/MediaInput.h"
#include "platform/media/AVMutableComposition.h"
#include "platform/media/AVURLAsset.h"
#include "platform/media/MovieMetadata.h"
#include "platform/sound/SoundTimeline.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
#include <libavutil/mathematics.h>
}

#include <algorithm>
#include <cerrno>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

namespace platform {
namespace {

struct CloseMovie {
    void operator()(AVFormatContext* context) const
    {
        avio_closep(&context->pb);
        avformat_free_context(context);
    }
};
using MoviePtr = std::unique_ptr<AVFormatContext, CloseMovie>;

bool failUnsupported(NSError* error, const std::string& why)
{
    return fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset, why);
}

/// One track to copy: a range of a file's track and where it starts.
struct Stretch {
    AVAssetTrack source;
    CMTimeRange range;
    CMTime target;
};

std::optional<std::vector<Stretch>> stretchesOf(const AVAsset& asset, NSError* error)
{
    std::vector<Stretch> stretches;
    if (const auto* composition = dynamic_cast<const AVMutableComposition*>(&asset)) {
        for (const auto& track : composition->compositionTracks()) {
            std::vector<AVCompositionTrackSegment> segments;
            for (const AVCompositionTrackSegment& segment : track->segments()) {
                if (segment.source)
                    segments.push_back(segment);
            }
            if (segments.empty())
                continue;
            if (segments.size() > 1 || !segments[0].source->assetURL) {
                failUnsupported(error,
                                localized("A track of several pieces cannot be copied without encoding it anew"));
                return std::nullopt;
            }
            stretches.push_back({*segments[0].source, segments[0].sourceRange, segments[0].targetRange.start});
        }
    } else {
        for (const AVAssetTrack& track : asset.tracks()) {
            if (track.assetURL)
                stretches.push_back({track, track.timeRange, kCMTimeZero});
        }
    }
    if (stretches.empty()) {
        failUnsupported(error, localized("There is no track to copy"));
        return std::nullopt;
    }
    return stretches;
}

/// A packet on its way from one file to the other.
class TrackCopy final {
public:
    bool open(const Stretch& stretch, NSError* error)
    {
        path_ = stretch.source.assetURL->path();
        const bool isSound = stretch.source.mediaType == kAVMediaTypeAudio;
        // Sound is placed by its time line here; pictures keep what their edits make of them.
        const auto asset = std::dynamic_pointer_cast<const AVURLAsset>(stretch.source.asset.lock());
        FileBytesPtr file = asset ? asset->openedFile() : nullptr;
        const NSURL& url = *stretch.source.assetURL;
        input_ = file ? openMediaFile(std::move(file), url, isSound, error) : openMediaFile(url, isSound, error);
        packet_.reset(av_packet_alloc());
        if (!input_ || !packet_)
            return false;
        if (stretch.source.streamIndex < 0 || stretch.source.streamIndex >= static_cast<int>(input_->nb_streams))
            return failUnsupported(error, localized("{} has changed while it was read", {path_}));
        stream_ = input_->streams[stretch.source.streamIndex];
        for (unsigned i = 0; i < input_->nb_streams; ++i) {
            if (input_->streams[i] != stream_)
                input_->streams[i]->discard = AVDISCARD_ALL;
        }
        return isSound ? placeSound(stretch, error) : placePicture(stretch, error);
    }

    AVStream& stream() { return *stream_; }
    AVPacket& packet() { return *packet_; }
    bool isAtEnd() const { return isAtEnd_; }
    AVCodecID codec() const { return stream_->codecpar->codec_id; }
    bool isSound() const { return stream_->codecpar->codec_type == AVMEDIA_TYPE_AUDIO; }

    /// When the packet is decoded, for the order of all.
    int64_t decodeTime() const { return packet_->dts; }

    /// Packets of the track, at most; to know how much room the index takes.
    int64_t packetLimit() const { return packetLimit_; }
    /// Runs of packets of one duration, at most.
    int64_t durationRuns() const { return durationRuns_; }
    /// When the track ends, in its scale.
    int64_t end() const { return end_; }

    /// Takes the next packet, its times as they are to be written.
    bool advance(NSError* error)
    {
        for (;;) {
            av_packet_unref(packet_.get());
            const int result = readPacket(*input_, *packet_);
            if (result == AVERROR_EOF) {
                isAtEnd_ = true;
                return true;
            }
            if (result < 0)
                return failWithAVError(error, result, localized("{} could not be read", {path_}));
            if (packet_->stream_index != stream_->index)
                continue;
            if (packet_->pts == AV_NOPTS_VALUE || packet_->dts == AV_NOPTS_VALUE)
                return failUnsupported(error, localized("{} has packets without a time", {path_}));
            // Sound ends with the packet in which the range does; the packet is only as long as it plays.
            if (isSound()) {
                if (packet_->pts + packet_->duration <= firstTime_)
                    continue;
                if (packet_->pts >= stopTime_) {
                    isAtEnd_ = true;
                    return true;
                }
                packet_->duration = std::min(packet_->duration, stopTime_ - packet_->pts);
            }
            packet_->pts += shift_;
            packet_->dts += shift_;
            packet_->pos = -1;
            return true;
        }
    }

private:
    bool placeSound(const Stretch& stretch, NSError* error)
    {
        const AVCodecParameters& parameters = *stream_->codecpar;
        const int rate = parameters.sample_rate;
        const auto boxes = readMovieBoxes(*bytesOf(*input_));
        if (!boxes || rate <= 0 || stream_->time_base.num != 1)
            return failUnsupported(error, localized("{} holds sound that cannot be copied into a movie", {path_}));
        const SoundTimeline timeline = soundTimelineOf(*input_, *stream_, boxes, TimelinePrecision::FromIndex);
        if (timeline.segments.size() != 1 || !timeline.segments[0].mediaStart)
            return failUnsupported(error,
                                   localized("{} holds sound in several pieces, which cannot be copied", {path_}));
        const int32_t scale = stream_->time_base.den;
        const auto inScale = [scale](CMTime time) {
            return CMTimeConvertScale(time, scale, CMTimeRoundingMethod::RoundHalfAwayFromZero).value;
        };
        const int64_t mediaStart = av_rescale(*timeline.segments[0].mediaStart, scale, rate);
        const int64_t start = mediaStart + inScale(stretch.range.start);
        stopTime_ = std::min(start + inScale(stretch.range.duration),
                             mediaStart + av_rescale(timeline.segments[0].length, scale, rate));
        if (stopTime_ <= start)
            return failUnsupported(error, localized("{} has nothing in the range to copy", {path_}));
        // A cut sound needs the packet before it, whose window reaches over the cut.
        const int64_t leadIn =
            parameters.codec_id == AV_CODEC_ID_AAC ? av_rescale(parameters.frame_size, scale, rate) : 0;
        firstTime_ = start - leadIn;
        shift_ = inScale(stretch.target) - start;
        end_ = stopTime_ + shift_;
        countPackets();
        return true;
    }

    bool placePicture(const Stretch& stretch, NSError* error)
    {
        if (stretch.source.mediaType != kAVMediaTypeVideo)
            return failUnsupported(error, localized("{} holds media that cannot be copied into a movie", {path_}));
        const CMTimeRange whole = stretch.source.timeRange;
        // A movie's header may round what its track knows.
        const double missing = CMTimeGetSeconds(whole.duration) - CMTimeGetSeconds(stretch.range.duration);
        if (CMTimeCompare(stretch.range.start, whole.start) != 0 || missing > 0.01)
            return failUnsupported(error, localized("{} holds pictures, which can only be copied whole", {path_}));
        const int32_t scale = stream_->time_base.den;
        shift_ = CMTimeConvertScale(stretch.target, scale, CMTimeRoundingMethod::RoundHalfAwayFromZero).value;
        end_ = CMTimeConvertScale(whole.duration, scale, CMTimeRoundingMethod::RoundHalfAwayFromZero).value + shift_;
        countPackets();
        return true;
    }

    void countPackets()
    {
        packetLimit_ = avformat_index_get_entries_count(stream_);
        int64_t lastDistance = -1;
        for (int i = 1; i < packetLimit_; ++i) {
            const int64_t distance =
                avformat_index_get_entry(stream_, i)->timestamp - avformat_index_get_entry(stream_, i - 1)->timestamp;
            durationRuns_ += distance != lastDistance;
            lastDistance = distance;
        }
        // The first and the last may be of another duration.
        durationRuns_ += 4;
    }

    std::string path_;
    InputPtr input_;
    AVStream* stream_ = nullptr;
    PacketPtr packet_;
    bool isAtEnd_ = false;
    /// In the track's scale: packets that end before the first or start at the last are left out.
    int64_t firstTime_ = INT64_MIN;
    int64_t stopTime_ = INT64_MAX;
    int64_t shift_ = 0;
    int64_t end_ = 0;
    int64_t packetLimit_ = 0;
    int64_t durationRuns_ = 0;
};

/// Bytes that the index takes at most, so that it can stand before the media.
int64_t roomForIndex(const std::vector<std::unique_ptr<TrackCopy>>& tracks)
{
    int64_t pictures = 0;
    for (const auto& track : tracks)
        pictures += track->isSound() ? 0 : track->packetLimit();
    int64_t room = 4096;
    for (const auto& track : tracks) {
        const int64_t packets = track->packetLimit();
        const bool isSound = track->isSound();
        // Sound lies between pictures, in chunks of at most a megabyte, which 100 packets or more share.
        const int64_t chunks = isSound ? std::min(packets, pictures + packets / 16 + 2) : packets;
        constexpr int64_t kPerChunk = 8 + 12;
        constexpr int64_t kPerPicture = 8 + 4;
        room += 2 * track->stream().codecpar->extradata_size + 4 * packets + 8 * track->durationRuns() +
                kPerChunk * chunks + (isSound ? 0 : kPerPicture * packets);
    }
    return room;
}

/// The least scale in which both tracks' times are whole, if there is one.
int32_t movieScale(const std::vector<std::unique_ptr<TrackCopy>>& tracks)
{
    int64_t scale = 1;
    for (const auto& track : tracks) {
        const int64_t common = std::lcm(scale, int64_t{track->stream().time_base.den});
        scale = common <= INT32_MAX ? common : std::max(scale, int64_t{track->stream().time_base.den});
    }
    return static_cast<int32_t>(scale);
}

/// Whether the MPEG-4 container has a place of its own for the codec, or the older one's entry is kept.
bool hasMPEG4Entry(AVCodecID codec)
{
    return codec == AV_CODEC_ID_H264 || codec == AV_CODEC_ID_HEVC || codec == AV_CODEC_ID_AAC ||
           codec == AV_CODEC_ID_ALAC;
}

MoviePtr createMovie(std::vector<std::unique_ptr<TrackCopy>>& tracks, const NSURL& url, bool indexFirst,
                     const AVMetadataItemList& metadata, NSError* error)
{
    const bool isPlain =
        std::all_of(tracks.begin(), tracks.end(), [](const auto& track) { return hasMPEG4Entry(track->codec()); });
    AVFormatContext* context = nullptr;
    const std::string location = "file:" + url.path();
    int result = avformat_alloc_output_context2(&context, nullptr, isPlain ? "mp4" : "mov", location.c_str());
    MoviePtr movie(context);
    const std::string what = localized("{} could not be made", {url.path()});
    if (result < 0) {
        failWithAVError(error, result, what);
        return nullptr;
    }
    // Without the version of the library.
    movie->flags |= AVFMT_FLAG_BITEXACT;
    const auto roomForTitle = static_cast<int64_t>(setMovieMetadata(*movie, metadata));
    for (const auto& track : tracks) {
        AVStream* stream = avformat_new_stream(movie.get(), nullptr);
        result = stream ? avcodec_parameters_copy(stream->codecpar, track->stream().codecpar) : AVERROR(ENOMEM);
        if (result < 0) {
            failWithAVError(error, result, what);
            return nullptr;
        }
        // The picture's own mark tells players which kind of H.265 it is.
        if (track->isSound())
            stream->codecpar->codec_tag = 0;
        stream->time_base = track->stream().time_base;
        stream->sample_aspect_ratio = track->stream().sample_aspect_ratio;
        stream->avg_frame_rate = track->stream().avg_frame_rate;
    }
    AVDictionary* options = nullptr;
    av_dict_set(&options, "brand", "mp42", 0);
    av_dict_set_int(&options, "movie_timescale", movieScale(tracks), 0);
    if (indexFirst)
        av_dict_set_int(&options, "moov_size", roomForIndex(tracks) + roomForTitle, 0);
    AVDictionary* ioOptions = nullptr;
    av_dict_set(&ioOptions, "protocol_whitelist", "file", 0);
    result = avio_open2(&movie->pb, location.c_str(), AVIO_FLAG_WRITE, nullptr, &ioOptions);
    if (result >= 0)
        result = avformat_write_header(movie.get(), &options);
    av_dict_free(&options);
    av_dict_free(&ioOptions);
    if (result < 0) {
        failWithAVError(error, result, what);
        return nullptr;
    }
    return movie;
}

/// The track whose packet comes next in time; null at the end of all.
TrackCopy* nextInTime(const std::vector<std::unique_ptr<TrackCopy>>& tracks, size_t& index)
{
    TrackCopy* next = nullptr;
    for (size_t i = 0; i < tracks.size(); ++i) {
        TrackCopy& track = *tracks[i];
        if (track.isAtEnd())
            continue;
        if (!next || av_compare_ts(track.decodeTime(), track.stream().time_base, next->decodeTime(),
                                   next->stream().time_base) < 0) {
            next = &track;
            index = i;
        }
    }
    return next;
}

bool copyPackets(std::vector<std::unique_ptr<TrackCopy>>& tracks, AVFormatContext& movie, const NSURL& url,
                 const ExportControl& control, NSError* error)
{
    double total = 0;
    for (const auto& track : tracks) {
        total = std::max(total, static_cast<double>(track->end()) * av_q2d(track->stream().time_base));
        if (!track->advance(error))
            return false;
    }
    size_t index = 0;
    while (TrackCopy* track = nextInTime(tracks, index)) {
        if (control.isCancelled())
            return false;
        AVPacket& packet = track->packet();
        const double seconds = static_cast<double>(packet.dts) * av_q2d(track->stream().time_base);
        packet.stream_index = static_cast<int>(index);
        av_packet_rescale_ts(&packet, track->stream().time_base, movie.streams[index]->time_base);
        if (const int result = av_write_frame(&movie, &packet); result < 0)
            return failWithAVError(error, result, localized("{} could not be written", {url.path()}));
        control.setProgress(total > 0 ? seconds / total : 0);
        if (!track->advance(error))
            return false;
    }
    return true;
}

} // namespace

bool copyMovie(const AVAsset& asset, const std::optional<CMTimeRange>& timeRange, const NSURL& url, bool indexFirst,
               const AVMetadataItemList& metadata, const ExportControl& control, NSError* error)
{
    const auto stretches = stretchesOf(asset, error);
    if (!stretches)
        return false;
    std::vector<std::unique_ptr<TrackCopy>> tracks;
    for (Stretch stretch : *stretches) {
        if (timeRange) {
            // On the asset's time line; from it what the track has there.
            const CMTime start = CMTimeSubtract(timeRange->start, stretch.target);
            if (CMTimeCompare(start, kCMTimeZero) < 0)
                return failUnsupported(error, localized("A range that starts before a track cannot be copied"));
            const CMTime left = CMTimeSubtract(stretch.range.duration, start);
            stretch.range.start = CMTimeAdd(stretch.range.start, start);
            stretch.range.duration = CMTimeCompare(left, timeRange->duration) < 0 ? left : timeRange->duration;
            stretch.target = kCMTimeZero;
        }
        tracks.push_back(std::make_unique<TrackCopy>());
        if (!tracks.back()->open(stretch, error))
            return false;
    }
    const MoviePtr movie = createMovie(tracks, url, indexFirst, metadata, error);
    if (!movie || !copyPackets(tracks, *movie, url, control, error))
        return false;
    int result = av_write_trailer(movie.get());
    if (result >= 0)
        result = avio_closep(&movie->pb);
    if (result < 0)
        return failWithAVError(error, result, localized("{} could not be finished", {url.path()}));
    return true;
}

} // namespace platform
