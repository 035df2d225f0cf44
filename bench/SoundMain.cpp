// Converts a sound file as a job does and puts the piece together as a finished soundtrack that fades out at its end.
// Prints the seconds and the processor seconds of both, the peak of the process's memory in MB and where the files are.

#include "audio/MORAudioWaveImage.h"
#include "platform/media/AVAssetExportSession.h"
#include "platform/media/AVMutableAudioMix.h"
#include "platform/media/AVMutableComposition.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <sys/resource.h>

using namespace platform;

namespace {

double processorSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

class Stopwatch final {
public:
    double wall() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count(); }
    double processor() const { return processorSeconds() - processor_; }

private:
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    const double processor_ = processorSeconds();
};

/// One piece, faded out over its last five seconds.
bool finishSoundtrack(const NSURL& piece, const NSURL& output)
{
    constexpr double kFade = 5;
    const auto asset = AVURLAsset::URLAssetWithURL(piece);
    const CMTime duration = asset->duration();
    const auto composition = AVMutableComposition::composition();
    auto& track = composition->addMutableTrackWithMediaType(kAVMediaTypeAudio, AVMutableComposition::kTrackIDInvalid);
    if (!track.insertTimeRange({kCMTimeZero, duration}, asset->compatibleTrackForCompositionTrack(track.asAssetTrack()),
                               kCMTimeZero))
        return false;
    AVMutableAudioMixInputParameters parameters(track.trackID());
    parameters.setVolumeRamp(1, 0,
                             {CMTimeMakeWithSeconds(CMTimeGetSeconds(duration) - kFade, duration.timescale),
                              CMTimeMakeWithSeconds(kFade, duration.timescale)});
    AVMutableAudioMix mix;
    mix.setInputParameters({parameters});
    AVAssetExportSession session(composition, std::string(kAVAssetExportPresetAppleM4A));
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(output);
    session.setAudioMix(mix);
    session.exportAsynchronouslyWithCompletionHandler({});
    while (!session.waitForEnd(1)) {
    }
    return session.status() == AVAssetExportSessionStatus::Completed;
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 3) {
        std::fprintf(stderr, "usage: sound SOUND-FILE OUTPUT-FOLDER\n");
        return 2;
    }
    const NSURL folder = NSURL::fileURLWithPath(arguments[2], true);
    const auto asset = AVURLAsset::URLAssetWithURL(NSURL::fileURLWithPath(arguments[1]));
    NSError error;
    const Stopwatch conversion;
    const auto piece =
        MORAudioWaveImage::synchronouslyConvertedAssetToM4AAtTempURL(asset, folder, kCMTimeRangeInvalid, &error);
    if (!piece) {
        std::fprintf(stderr, "sound: %s\n", error.localizedDescription.c_str());
        return 1;
    }
    std::printf("%.3f %.3f ", conversion.wall(), conversion.processor());

    const NSURL finished = folder.URLByAppendingPathComponent("finished.m4a", false);
    const Stopwatch finishing;
    if (!finishSoundtrack(*piece, finished)) {
        std::fprintf(stderr, "sound: %s could not be made\n", finished.path().c_str());
        return 1;
    }
    std::printf("%.3f %.3f ", finishing.wall(), finishing.processor());
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    std::printf("%ld %s %s\n", usage.ru_maxrss / 1000, piece->path().c_str(), finished.path().c_str());
    return 0;
}
