#include "client/forecast/MovieTimetable.h"

#include "platform/aac/AACEncoder.h"
#include "platform/aac/AACParts.h"
#include "platform/foundation/NSString.h"
#include "video/FramePlacement.h"
#include "video/SilentVideo.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <limits>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace stillora {

namespace {

/// All figures are of one processor (of a virtual machine), as `bench/frame-cost` prints them. Another machine is
/// quicker or slower; what counts is how they stand to each other.
constexpr double kNanosecond = 1e-9;

/// What decoding takes, in nanoseconds.
struct DecodingWork {
    double perPixel = 0;
    double perByte = 0;
    /// More for each pixel of a picture that is unpacked whole, where it no longer fits into the processor's caches.
    double perUncachedPixel = 0;
};

constexpr double kCachedPixels = 4e6;

/// JPEG is decoded at a fraction of its size, so that the pixels of the file count little.
constexpr DecodingWork kJPEG{0.9, 5};
constexpr double kJPEGDecodedPixel = 1.8;
/// All passes over the picture are decoded, however small it is wanted.
constexpr DecodingWork kProgressiveJPEG{3.8, 22};

constexpr DecodingWork kPlainTIFF{4.3, 0};
constexpr DecodingWork kPackedTIFF{12.5, 0, 6};
constexpr DecodingWork kOtherFormat{12.5, 0};

constexpr std::array<std::pair<std::string_view, DecodingWork>, 8> kFormats{{
    {"png", {3, 2.75, 6}},
    {"webp", {4.5, 43}},
    {"heic", {6.8, 81}},
    {"heif", {6.8, 81}},
    {"avif", {2.8, 115}},
    {"gif", {9.5, 0}},
    {"jp2", {2, 215}},
    {"j2k", {2, 215}},
}};

/// To put a photo into its frame, for each pixel that it fills, and for each of the frame.
constexpr double kDrawnPixel = 1.15;
constexpr double kFramePixel = 0.17;

/// Frames are made on all processors at once, which share memory and caches: so much longer takes each than alone.
constexpr double kAmongOthers = 1.12;

/// What coding takes, in nanoseconds: for each pixel of the photo, for each of the frame, which black ones take too,
/// and for each byte of detail.
struct CodingWork {
    double perDrawnPixel = 0;
    double perFramePixel = 0;
    double perByteOfDetail = 0;
};

constexpr std::array<std::pair<std::string_view, CodingWork>, 9> kCodecs{{
    {"jpeg", {0.4, 1.75, 2}},
    {"avc1", {4, 3.7, 5}},
    {"hvc1", {40, 38, 270}},
    {"apcn", {1, 13, 40}},
    {"ap4h", {30, 15.5, 1}},
    {"apch", {20, 9.7, 12}},
    {"apcs", {1, 10.3, 30}},
    {"apco", {0, 9.8, 16}},
    {"ap4x", {27, 15.5, 4}},
}};

/// Bytes of detail in a pixel of a frame, as a good encoder would spend them: those of most photos that were made
/// smaller; and of one in its own size, for each byte that its file spends on a pixel.
constexpr double kUsualDetail = 0.25;
constexpr std::array<std::pair<std::string_view, double>, 6> kDetailOfFiles{{
    {"jpg", 1.7},
    {"jpeg", 1.7},
    {"webp", 2.7},
    {"heic", 1.35},
    {"heif", 1.35},
    {"avif", 2},
}};

/// To code a sample of music of each channel; a packet of silence, and one that is joined; and to take over a second
/// that is coded.
constexpr double kCodedSample = 45e-9;
constexpr double kSilentPacket = 18e-6;
constexpr double kJoinedSilentPacket = 26e-6;
constexpr double kCopiedSecond = 0.1e-3;
/// To begin with a file.
constexpr double kSoundFile = 5e-3;
/// When a part of a sound is written, so many others are coded already, for each processor: as their threads get out of
/// step, and each part has to wait for those before it.
constexpr double kPartsCodedMeanwhile = 0.65;
/// Of stereo, as it is coded.
constexpr double kBytesOfSecond = 17.8e3;
constexpr int kChannels = 2;
constexpr double kUsualRate = 44100;
constexpr double kRateOfSilence = 16000;

/// Sound of more bytes in a second is no AAC, whatever its file is called.
constexpr double kMostBytesOfAAC = 45e3;

/// What decoding takes beside coding.
constexpr std::array<std::pair<std::string_view, double>, 8> kDecodingShares{{
    {"mp3", 0.15},
    {"flac", 0.18},
    {"ogg", 0.15},
    {"oga", 0.15},
    {"opus", 0.4},
    {"m4a", 0.7},
    {"mp4", 0.7},
    {"m4b", 0.7},
}};

/// Until the service runs and has answered; to find out the frame's size, for each photo; to put the movie into its
/// place and to read it back.
constexpr double kStart = 0.1;
constexpr double kSizeOfPhoto = 0.1e-3;
constexpr double kEnd = 0.06;

/// Before the first frame, for each of its pixels: memory that is touched for the first time, and encoders set up.
constexpr double kFirstPixel = 25e-9;

/// Bytes of a coded movie for each pixel that its photos fill, and how many of them are written in a second.
constexpr double kBytesPerPixel = 0.25;
constexpr double kBytesWrittenPerSecond = 400e6;

/// Of the processors' time, for threads of the frame queue, where the writer's own take 1.
constexpr double kShareOfFrameThread = 1.0 / 3;

/// The writer has so many encoders at the most.
constexpr unsigned kMostEncoders = 8;

/// Of HEVC, and how much less it takes for frames up to a size for which its quickest settings are allowed.
constexpr double kSmallFramePixels = 2'228'224;
constexpr double kSmallFrameShare = 0.63;

template <typename Work, size_t count>
Work workNamed(const std::array<std::pair<std::string_view, Work>, count>& table, std::string_view name, Work other)
{
    for (const auto& [each, work] : table)
        if (each == name)
            return work;
    return other;
}

struct Area {
    double photo = 0;
    /// As large as it is in the frame.
    double drawn = 0;
    double frame = 0;
    /// How much smaller it gets.
    double scale = 1;
};

Area areaOf(const PhotoFacts& photo, Size frame, bool reducesBorders)
{
    const double longer = std::max({photo.size.width, photo.size.height, 1.0});
    const double bound =
        thumbnailBound({photo.size.width, photo.size.height}, {frame.width, frame.height}, reducesBorders);
    Area area;
    area.scale = std::min(1.0, bound / longer);
    area.photo = photo.size.width * photo.size.height;
    area.frame = frame.width * frame.height;
    area.drawn =
        std::min(photo.size.width * area.scale, frame.width) * std::min(photo.size.height * area.scale, frame.height);
    return area;
}

/// Pixels of the smallest picture of those that a decoder of JPEG makes at once.
double decodedPixelsOfJPEG(const Area& area)
{
    double divisor = 1;
    while (divisor < 8 && area.scale * divisor * 2 <= 1)
        divisor *= 2;
    return area.photo / (divisor * divisor);
}

std::string formatOf(const std::filesystem::path& file)
{
    return platform::lowercaseASCII(platform::pathExtension(file.native()));
}

/// Bytes in all that is drawn of a photo.
double detailOf(const PhotoFacts& photo, const Area& area)
{
    const double spent = static_cast<double>(photo.fileSize) / std::max(area.photo, 1.0);
    const double ofFile = spent * workNamed(kDetailOfFiles, formatOf(photo.path), 0.0);
    // Grain goes with the size, and what is left is as fine as in others.
    const double perPixel = ofFile > 0 ? area.scale * ofFile + (1 - area.scale) * kUsualDetail : kUsualDetail;
    return perPixel * area.drawn;
}

double decodingOf(const PhotoFacts& photo, const Area& area)
{
    const std::string format = formatOf(photo.path);
    const auto bytes = static_cast<double>(photo.fileSize);
    const auto work = [&](DecodingWork each) {
        return each.perPixel * area.photo + each.perByte * bytes +
               each.perUncachedPixel * std::max(0.0, area.photo - kCachedPixels);
    };
    if (format == "jpg" || format == "jpeg")
        return work(photo.isProgressive ? kProgressiveJPEG : kJPEG) + kJPEGDecodedPixel * decodedPixelsOfJPEG(area);
    const double bytesPerPixel = bytes / std::max(area.photo, 1.0);
    const bool isWhole = std::abs(bytesPerPixel - std::round(bytesPerPixel)) < 0.01;
    if (format == "tif" || format == "tiff")
        return work(isWhole ? kPlainTIFF : kPackedTIFF);
    return work(workNamed(kFormats, format, kOtherFormat));
}

/// Frames on their way through the service. Threads of the frame queue draw each frame and code what waits, but for as
/// many frames as the writer has threads of its own, which are left to these. All share the processors by weight, and
/// none takes more than one.
class FramePipeline final {
public:
    FramePipeline(const std::vector<FrameWork>& frames, unsigned processors)
        : frames_(frames), processors_(processors), frameThreads_(processors - processors / 4),
          writerThreads_(std::max(1U, processors / 4)),
          encoders_(std::max<size_t>(writerThreads_, std::min(processors, kMostEncoders))), isMade_(frames.size())
    {}

    /// @param appended  out: when each frame was handed to the writer
    /// @return when the last one was coded
    double run(std::vector<double>& appended)
    {
        appended.resize(frames_.size());
        while (true) {
            while (handOut(appended)) {
            }
            if (drawing_.empty() && coding_.empty())
                return now_;
            goOn();
        }
    }

private:
    enum class Thread { OfFrames, OfWriter };

    struct Task {
        Thread thread = Thread::OfFrames;
        size_t frame = 0;
        double left = 0;
        /// Which frame the thread has drawn, where it codes another meanwhile.
        size_t drawn = 0;
    };

    /// @return whether something began or was handed over
    bool handOut(std::vector<double>& appended)
    {
        const size_t first = std::min(kFramesBeforeWriting, frames_.size());
        if (madeCount_ >= first && nextToAppend_ < frames_.size() && isMade_[nextToAppend_] &&
            waitingInTurn() <= writerThreads_) {
            appended[nextToAppend_++] = now_;
            return true;
        }
        if (coding_.size() < encoders_ && !waiting_.empty() && codingOfWriter() < writerThreads_) {
            code(Thread::OfWriter, 0);
            return true;
        }
        if (!done_.empty()) {
            if (waiting_.size() < writerThreads_) {
                isMade_[done_.front()] = true;
                ++madeCount_;
                done_.pop_front();
                return true;
            }
            if (coding_.size() < encoders_) {
                code(Thread::OfFrames, done_.front());
                done_.pop_front();
                return true;
            }
        }
        const size_t busy = drawing_.size() + done_.size() + coding_.size() - codingOfWriter();
        if (busy < frameThreads_ && nextToDraw_ < frames_.size()) {
            drawing_.push_back({Thread::OfFrames, nextToDraw_, frames_[nextToDraw_].draw, nextToDraw_});
            ++nextToDraw_;
            return true;
        }
        return false;
    }

    void code(Thread thread, size_t drawn)
    {
        coding_.push_back({thread, waiting_.front(), frames_[waiting_.front()].code, drawn});
        waiting_.pop_front();
    }

    size_t codingOfWriter() const
    {
        return static_cast<size_t>(
            std::ranges::count_if(coding_, [](const Task& task) { return task.thread == Thread::OfWriter; }));
    }

    size_t waitingInTurn() const
    {
        return static_cast<size_t>(
            std::ranges::count_if(waiting_, [this](size_t frame) { return frame < nextToAppend_; }));
    }

    /// To the moment at which the next of those at work is done.
    void goOn()
    {
        const auto writers = static_cast<double>(codingOfWriter());
        const double others = static_cast<double>(drawing_.size() + coding_.size()) - writers;
        const double writerRate = std::min(1.0, processors_ / (writers + others * kShareOfFrameThread));
        const double otherRate = others > 0 ? std::min(1.0, (processors_ - writers * writerRate) / others) : 0;
        const auto rateOf = [&](const Task& task) { return task.thread == Thread::OfWriter ? writerRate : otherRate; };
        double step = std::numeric_limits<double>::max();
        for (const auto* tasks : {&drawing_, &coding_})
            for (const Task& task : *tasks)
                step = std::min(step, task.left / rateOf(task));
        now_ += step;
        for (auto* tasks : {&drawing_, &coding_})
            for (Task& task : *tasks)
                task.left -= step * rateOf(task);
        constexpr double kNothing = 1e-12;
        std::erase_if(coding_, [&](const Task& task) {
            if (task.left > kNothing)
                return false;
            if (task.thread == Thread::OfFrames)
                done_.push_back(task.drawn);
            return true;
        });
        std::erase_if(drawing_, [&](const Task& task) {
            if (task.left > kNothing)
                return false;
            waiting_.push_back(task.frame);
            done_.push_back(task.frame);
            return true;
        });
    }

    const std::vector<FrameWork>& frames_;
    const double processors_;
    const size_t frameThreads_;
    const size_t writerThreads_;
    const size_t encoders_;
    double now_ = 0;
    size_t nextToDraw_ = 0;
    size_t nextToAppend_ = 0;
    size_t madeCount_ = 0;
    /// Their thread has taken up the next one.
    std::vector<bool> isMade_;
    /// Drawn; whose thread looks for something to code.
    std::deque<size_t> done_;
    /// To be coded.
    std::deque<size_t> waiting_;
    std::vector<Task> drawing_;
    std::vector<Task> coding_;
};

/// Whether the service takes its packets over.
bool isCopied(const SoundFacts& sound)
{
    const std::string format = formatOf(sound.path);
    if (format != "m4a" && format != "mp4" && format != "m4b")
        return false;
    std::error_code error;
    const auto bytes = static_cast<double>(std::filesystem::file_size(sound.path, error));
    return error || sound.selection || bytes < kMostBytesOfAAC * sound.length.count();
}

double rateOf(const SoundFacts& sound)
{
    return sound.sampleRateHz > 0 ? sound.sampleRateHz : kUsualRate;
}

/// As the client writes silence: at a low rate where there is no music that it has to go with.
double rateOf(const MovieRequest& request, const PlannedSound& piece)
{
    if (piece.source)
        return rateOf(request.sounds[*piece.source]);
    return request.sounds.empty() ? kRateOfSilence : rateOf(request.sounds.back());
}

/// To code a second of a piece anew.
double codingOf(const MovieRequest& request, const PlannedSound& piece, double silentPacket)
{
    const double rate = rateOf(request, piece);
    return piece.source ? kCodedSample * kChannels * rate : silentPacket * rate / platform::kAACPacketLength;
}

double packetsOf(const MovieRequest& request, const PlannedSound& piece)
{
    return std::max(1.0, std::ceil(piece.length.count() * rateOf(request, piece) / platform::kAACPacketLength));
}

/// As many parts as there are processors are coded at once, and one that is left over by one processor alone.
class Conversion final {
public:
    Conversion(const MovieRequest& request, unsigned processors, MovieTimetable& table)
        : request_(request), processors_(processors), table_(table), now_(table.serviceReady)
    {}

    void run()
    {
        // A file that is repeated is converted once.
        std::set<std::pair<std::string, double>> converted;
        for (const PlannedSound& piece : request_.plan.sounds) {
            const double start = piece.selection ? piece.selection->start.count() : 0;
            const std::string file = piece.source ? request_.sounds[*piece.source].path.native() : std::string();
            if (converted.emplace(file, start).second)
                convert(piece);
        }
        table_.soundsConverted = now_;
    }

private:
    void convert(const PlannedSound& piece)
    {
        now_ += kSoundFile;
        table_.work += kSoundFile;
        const double length = piece.length.count();
        const double bytes = piece.source ? length * kBytesOfSecond : 0;
        if (piece.source && isCopied(request_.sounds[*piece.source])) {
            table_.work += length * kCopiedSecond;
            now_ += length * kCopiedSecond;
            return write(bytes);
        }
        const double share =
            piece.source ? workNamed(kDecodingShares, formatOf(request_.sounds[*piece.source].path), 0.0) : 0;
        const double packets = packetsOf(request_, piece);
        const double parts =
            std::ceil(packets / static_cast<double>(platform::packetsInPart(static_cast<int64_t>(packets))));
        const double work = (1 + share) * codingOf(request_, piece, kSilentPacket) * length;
        table_.work += work;
        const double seconds = work / parts * std::ceil(parts / processors_);
        // They are written in their order, while those after them are coded.
        const double codedMeanwhile = kPartsCodedMeanwhile * processors_;
        const double start = now_;
        for (double part = 1; part <= parts; ++part) {
            now_ = start + seconds * std::min(1.0, (part + codedMeanwhile) / parts);
            write(bytes / parts);
        }
    }

    void write(double bytes)
    {
        // Silence takes so few that nobody sees them grow.
        if (bytes <= 0)
            return;
        const double written = table_.sounds.empty() ? 0 : table_.sounds.back().bytes;
        table_.sounds.push_back({written + bytes, now_});
    }

    const MovieRequest& request_;
    const double processors_;
    MovieTimetable& table_;
    double now_;
};

/// From the first joint on all is coded anew, and so is the fade.
double joiningOf(const MovieRequest& request)
{
    const MoviePlan& plan = request.plan;
    if (plan.sounds.empty())
        return 0;
    const double end = plan.soundEnd().value_or(Seconds(0)).count();
    const double fade = plan.fadeStart.value_or(Seconds(end)).count();
    double seconds = end * kCopiedSecond;
    double start = 0;
    for (const PlannedSound& piece : plan.sounds) {
        const double next = std::min(start + piece.length.count(), end);
        const double coded = next - (start > 0 ? start : std::min(fade, next));
        seconds += std::max(0.0, coded) * codingOf(request, piece, kJoinedSilentPacket);
        start = next;
    }
    return seconds;
}

} // namespace

FrameWork workOfPhoto(const PhotoFacts& photo, const MovieRequest& request, Size frame)
{
    const Area area = areaOf(photo, frame, request.reducesBorders);
    const CodingWork coding = workNamed(kCodecs, request.codec, kCodecs.front().second);
    const double share = request.codec == "hvc1" && area.frame <= kSmallFramePixels ? kSmallFrameShare : 1;
    const double perDetail = coding.perByteOfDetail * detailOf(photo, area);
    return {kAmongOthers * kNanosecond *
                (decodingOf(photo, area) + kDrawnPixel * area.drawn + kFramePixel * area.frame),
            kAmongOthers * kNanosecond * share *
                (coding.perDrawnPixel * area.drawn + coding.perFramePixel * area.frame + perDetail)};
}

MovieTimetable timetableOf(const MovieRequest& request, unsigned processors, const FrameSource* reused)
{
    processors = std::max(1U, processors);
    const Size frame = frameSizeForQuality(request.quality, request.photos);
    std::vector<FrameWork> frames;
    double pixels = 0;
    for (const PhotoFacts& photo : request.photos) {
        frames.insert(frames.end(), request.plan.framesPerPhoto, workOfPhoto(photo, request, frame));
        pixels += areaOf(photo, frame, request.reducesBorders).drawn;
    }
    if (reused)
        for (const auto& [place, source] : reused->frames)
            frames[place] = {};

    MovieTimetable table;
    table.serviceReady = kStart;
    Conversion(request, processors, table).run();
    const double joining = joiningOf(request);
    table.soundDone = table.soundsConverted + joining / processors;
    const double preparing =
        kSizeOfPhoto * static_cast<double>(request.photos.size()) + kFirstPixel * frame.width * frame.height;
    const double pictures = table.soundDone + preparing;
    table.picturesDone = pictures + FramePipeline(frames, processors).run(table.frames);
    for (double& moment : table.frames)
        moment += pictures;
    const double writings = request.plan.sounds.empty() ? 0 : 1;
    const double writing = writings * pixels * kBytesPerPixel / kBytesWrittenPerSecond;
    table.end = table.picturesDone + writing + kEnd;
    table.work += joining + preparing + writing;
    for (const FrameWork& each : frames)
        table.work += each.draw + each.code;
    return table;
}

} // namespace stillora
