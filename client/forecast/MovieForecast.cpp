#include "client/forecast/MovieForecast.h"

#include "client/forecast/FrameSampling.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "platform/files/NSFileManager.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <system_error>
#include <thread>
#include <utility>

namespace stillora {

namespace {

using Clock = std::chrono::steady_clock;

/// How long frames are made for, and after what time no further sound is begun.
constexpr Seconds kFrameBudget{2};
constexpr Seconds kSoundBudget{0.5};
/// So much of a sound is converted to learn what it takes.
constexpr Seconds kSoundPart{20};

/// @name What a file holds besides pictures and sound, in bytes
/// @{
constexpr double kFileBytes = 1500;
/// Where it lies, how long it is and how long it is shown.
constexpr double kBytesPerPicture = 8;
constexpr double kBytesPerRepeatedPicture = 8;
/// Of the packets of sound, their sizes.
constexpr double kBytesPerPacket = 4;
/// @}

/// Silence as the client writes it: the packets that it is coded to, and how many of them there are.
constexpr double kSilentPacketBytes = 6;
constexpr double kSilencePacketsPerSecond = 16000.0 / 1024;

/// Until the service runs and has answered; and to read a movie back and to put it into its place.
constexpr Seconds kStart{0.1};
constexpr Seconds kEnd{0.1};
/// For each byte of the movie, which is written twice where it has sound.
constexpr double kBytesWrittenPerSecond = 400e6;

/// For the web a picture is told of so often.
constexpr Seconds kLongestWebPicture{0.5};

struct SoundCost {
    double bytesPerSecond = 0;
    /// To convert a second of it.
    double seconds = 0;
};

/// A folder that goes with the object.
class ScratchFolder final {
public:
    ScratchFolder()
    {
        std::string name = platform::NSTemporaryDirectory() + "/stillora-forecast-XXXXXX";
        if (mkdtemp(name.data()))
            path_ = name;
    }
    ~ScratchFolder()
    {
        std::error_code ignored;
        if (!path_.empty())
            std::filesystem::remove_all(path_, ignored);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    /// Empty if it could not be made.
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

/// Has a part from the middle of what is heard of a sound converted.
std::optional<SoundCost> sampleSound(const SoundFacts& sound, const PlannedSound& piece, const ScratchFolder& folder,
                                     const std::function<bool()>& goesOn)
{
    const Seconds length = std::min(piece.length, kSoundPart);
    if (length.count() <= 0)
        return std::nullopt;
    const Seconds start = (piece.selection ? piece.selection->start : Seconds(0)) + (piece.length - length) / 2;
    const std::filesystem::path converted = folder.path() / "part.m4a";
    const auto time = FileReader::shared().ask(SoundCopyQuestion{.file = sound.path,
                                                                 .output = converted,
                                                                 .selection = {{start, start + length}},
                                                                 .sampleRateHz = sound.sampleRateHz,
                                                                 .way = SoundCopyQuestion::Way::Encoded},
                                               goesOn);
    std::error_code error;
    const auto bytes = time && *time ? std::filesystem::file_size(converted, error) : 0;
    if (!time || !*time || error)
        return std::nullopt;
    return SoundCost{static_cast<double>(bytes) / length.count(), **time / length};
}

/// What the soundtrack takes: its bytes, and the time to make it.
struct Soundtrack {
    double bytes = 0;
    Seconds time{0};
};

class SoundForecast final {
public:
    explicit SoundForecast(const MovieRequest& request) : request_(request) {}

    Soundtrack make(const std::function<bool()>& goesOn)
    {
        sample(goesOn);
        Soundtrack whole;
        const Seconds end = request_.plan.totalVideoDuration;
        Seconds cursor{0};
        std::map<std::pair<std::string, double>, bool> isConverted;
        for (const PlannedSound& piece : request_.plan.sounds) {
            const Seconds heard = std::clamp(end - cursor, Seconds(0), piece.length);
            cursor += piece.length;
            const SoundCost cost = piece.source ? costOf(*piece.source) : silence();
            whole.bytes += cost.bytesPerSecond * heard.count();
            const double start = piece.selection ? piece.selection->start.count() : 0;
            const std::string file = piece.source ? request_.sounds[*piece.source].path.native() : std::string();
            // A file that is repeated is converted once.
            if (!std::exchange(isConverted[{file, start}], true))
                whole.time += cost.seconds * piece.length;
        }
        return whole;
    }

private:
    void sample(const std::function<bool()>& goesOn)
    {
        const auto start = Clock::now();
        const ScratchFolder folder;
        for (const PlannedSound& piece : request_.plan.sounds) {
            if (folder.path().empty() || Clock::now() - start >= kSoundBudget || (goesOn && !goesOn()))
                return;
            if (piece.source && !costs_.contains(*piece.source))
                if (const auto cost = sampleSound(request_.sounds[*piece.source], piece, folder, goesOn))
                    costs_.emplace(*piece.source, *cost);
        }
    }

    /// Of a sound that was not looked at, as of the others on average.
    SoundCost costOf(size_t source) const
    {
        if (const auto cost = costs_.find(source); cost != costs_.end())
            return cost->second;
        SoundCost mean;
        for (const auto& [each, cost] : costs_) {
            mean.bytesPerSecond += cost.bytesPerSecond / static_cast<double>(costs_.size());
            mean.seconds += cost.seconds / static_cast<double>(costs_.size());
        }
        return mean;
    }

    static SoundCost silence() { return {(kSilentPacketBytes + kBytesPerPacket) * kSilencePacketsPerSecond, 0}; }

    const MovieRequest& request_;
    std::map<size_t, SoundCost> costs_;
};

/// For the web each picture is told of several times.
double bytesOfRepetition(const MovieRequest& request)
{
    if (request.use != MovieUse::Web)
        return 0;
    const double times = std::ceil(request.plan.timePerFrame / kLongestWebPicture);
    return (times - 1) * static_cast<double>(request.plan.frameCount(request.photos.size())) * kBytesPerRepeatedPicture;
}

} // namespace

std::optional<MovieForecast> forecastMovie(const MovieRequest& request, const std::function<bool()>& goesOn)
{
    const FrameSample frames = sampleFrames(request, kFrameBudget, goesOn);
    if (frames.costs.empty())
        return std::nullopt;
    const Soundtrack sound = SoundForecast(request).make(goesOn);
    if (goesOn && !goesOn())
        return std::nullopt;

    MovieForecast forecast;
    forecast.sampledPhotos = frames.madeCount;
    const auto frameCount = static_cast<double>(request.plan.frameCount(request.photos.size()));
    forecast.bytes = kFileBytes + frameCount * kBytesPerPicture + bytesOfRepetition(request) + sound.bytes;
    double seconds = 0;
    for (const FrameCost& cost : frames.costs) {
        forecast.bytes += cost.bytes;
        seconds += cost.seconds;
    }
    const double processors = std::max(1U, std::thread::hardware_concurrency());
    const double writings = request.plan.sounds.empty() ? 1 : 2;
    // Where all others are done one processor is still at the last frame.
    forecast.time = kStart + sound.time + Seconds((seconds + seconds / frameCount) / processors) +
                    Seconds(forecast.bytes * writings / kBytesWrittenPerSecond) + kEnd;
    return forecast;
}

} // namespace stillora
