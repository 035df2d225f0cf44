#include <stillora/Waveform.h>

#include "client/ClientError.h"
#include "client/DataBytes.h"
#include "client/FileReader.h"
#include "client/JobFolder.h"
#include "client/LocalizedText.h"
#include "client/SoundRange.h"
#include "client/reader/Questions.h"
#include "platform/encoders/ImageEncoder.h"
#include "platform/files/NSFileManager.h"
#include "platform/media/AVAssetExportSession.h"
#include "platform/media/AVURLAsset.h"
#include "util/MORURLCategory.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace stillora {

using platform::AVAssetExportSession;
using platform::NSError;
using platform::NSURL;

namespace {

/// Between two calls of a `WorkProgress`.
constexpr double kProgressSeconds = 0.1;

Error stopped(const SoundFacts& sound)
{
    return {ErrorCode::Cancelled, sound.path, localized("stopped")};
}

std::shared_ptr<platform::AVURLAsset> preciseAsset(const SoundFacts& sound)
{
    return std::make_shared<platform::AVURLAsset>(
        NSURL::fileURLWithPath(sound.path.native()),
        platform::AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
}

/// Runs an export to its end.
/// @return why there is no file
std::optional<Error> finish(AVAssetExportSession& session, const SoundFacts& sound, const JobFolder& job,
                            const WorkProgress& progress)
{
    session.exportAsynchronouslyWithCompletionHandler({});
    while (!session.waitForEnd(kProgressSeconds)) {
        if (progress && !progress(job.sizeOfContents())) {
            session.cancelExport();
            return stopped(sound);
        }
    }
    const auto error = session.error();
    if (error && error->code == platform::kAVErrorOperationNotSupportedForAsset)
        return Error{ErrorCode::NeedsEncoding, sound.path,
                     localized("{}: its sound cannot be cut without encoding it anew", sound.path.native())};
    return error ? std::optional(errorOf(*error, sound.path)) : std::nullopt;
}

uint64_t sizeOf(const NSURL& file)
{
    std::error_code unknown;
    const auto bytes = std::filesystem::file_size(file.path(), unknown);
    return unknown ? 0 : bytes;
}

/// Encodes a sound into a file that grows in the job's folder.
/// @return why there is no file
std::optional<Error> encode(const SoundFacts& sound, const NSURL& growing, const JobFolder& job,
                            const WorkProgress& progress)
{
    // Measured at the first look, as the export needs it.
    AVAssetExportSession session(preciseAsset(sound), std::string(platform::kAVAssetExportPresetAppleM4A));
    session.setOutputFileType(platform::kAVFileTypeAppleM4A);
    session.setOutputURL(growing);
    if (sound.selection)
        session.setTimeRange(timeRangeOf(sound));
    session.setDirectoryForTemporaryFiles(job.temporaryURL());
    return finish(session, sound, job, progress);
}

/// The hidden folder beside a file's place in which it grows, and of which nothing is left if the caller stops this.
std::unique_ptr<JobFolder> jobBeside(const NSURL& place, NSError* error)
{
    return JobFolder::create(place.URLByDeletingLastPathComponent(), error);
}

/// Gives a file that is whole its name.
Result<SoundFile> moved(const NSURL& growing, const std::filesystem::path& file)
{
    const SoundFile made{file, sizeOf(growing)};
    NSError error;
    if (platform::NSFileManager::defaultManager().moveItemAtURL(growing, NSURL::fileURLWithPath(file.native()), &error))
        return made;
    if (error.code == platform::kNSFileWriteFileExistsError)
        error.localizedDescription = localized("{} exists already, and is not replaced", file.native());
    return errorOf(error, file);
}

} // namespace

platform::CMTimeRange timeRangeOf(const SoundFacts& sound)
{
    if (!sound.selection)
        return platform::kCMTimeRangeZero;
    const double start = sound.selection->start.count() * sound.sampleRateHz;
    const double length = sound.selection->end.count() * sound.sampleRateHz - start;
    // What decimals come to in binary is not to cost a sample.
    constexpr double kNothing = 1e-6;
    return {platform::CMTimeMake(std::llround(start), sound.sampleRateHz),
            platform::CMTimeMake(std::max<int64_t>(1, static_cast<int64_t>(length + kNothing)), sound.sampleRateHz)};
}

Result<Bytes> drawWaveform(const SoundFacts& sound, const WaveformStyle& style, const WorkProgress& progress)
{
    const auto isEdge = [](int pixels) { return pixels >= 1 && pixels <= WaveformStyle::kMostPixels; };
    if (!isEdge(style.width) || !isEdge(style.height))
        return Error{ErrorCode::OutOfRange,
                     {},
                     localized("a picture of {} x {} pixels cannot be drawn: each edge has from 1 to {}", style.width,
                               style.height, WaveformStyle::kMostPixels)};
    const auto failed = [&](const std::string& reason) {
        return Error{ErrorCode::Unsupported, sound.path, fmt::format("{}: {}", sound.path.native(), reason)};
    };
    const auto drawn = FileReader::shared().ask(
        WaveformQuestion{
            .file = sound.path, .selection = sound.selection, .sampleRateHz = sound.sampleRateHz, .style = style},
        [&] { return !progress || progress(0); });
    if (!drawn)
        return drawn.error().code == ErrorCode::Cancelled ? stopped(sound) : failed(drawn.error().message);
    if (!*drawn)
        return failed(drawn->error().message);
    const auto file =
        platform::encodePNG((*drawn)->image, {static_cast<double>(style.width), static_cast<double>(style.height)});
    if (!file)
        return Error{ErrorCode::Failed, {}, localized("there is not enough memory for the picture")};
    return bytesOf(*file);
}

Result<SoundFile> convertSound(const SoundFacts& sound, const std::filesystem::path& folder,
                               const WorkProgress& progress)
{
    const NSURL target = NSURL::fileURLWithPath(folder.native(), true);
    NSError error;
    const auto job = JobFolder::create(target, &error);
    if (!job)
        return errorOf(error, folder);
    const NSURL source = NSURL::fileURLWithPath(sound.path.native());
    const NSURL growing = job->temporaryURL().URLByAppendingPathComponent(
        platform::stringByDeletingPathExtension(source.lastPathComponent()) + ".m4a", false);
    if (auto failure = encode(sound, growing, *job, progress))
        return *std::move(failure);

    const auto free = [&] {
        return MORURLCategory::URLForNotOverridingURL(
            target.URLByAppendingPathComponent(growing.lastPathComponent(), false));
    };
    SoundFile file{{}, sizeOf(growing)};
    NSURL place = free();
    if (!platform::NSFileManager::defaultManager().moveItemToFreeURL(
            growing, &place, [&](const NSURL&) { return free(); }, &error))
        return errorOf(error, folder);
    file.path = place.path();
    return file;
}

Result<SoundFile> convertSoundToFile(const SoundFacts& sound, const std::filesystem::path& file,
                                     const WorkProgress& progress)
{
    const NSURL place = NSURL::fileURLWithPath(file.native());
    NSError error;
    const auto job = jobBeside(place, &error);
    if (!job)
        return errorOf(error, file);
    const NSURL growing = job->temporaryURL().URLByAppendingPathComponent(place.lastPathComponent(), false);
    if (auto failure = encode(sound, growing, *job, progress))
        return *std::move(failure);
    return moved(growing, file);
}

Result<SoundFile> trimSound(const SoundFacts& sound, const std::filesystem::path& file, const WorkProgress& progress)
{
    const NSURL place = NSURL::fileURLWithPath(file.native());
    NSError error;
    const auto job = jobBeside(place, &error);
    if (!job)
        return errorOf(error, file);
    const NSURL growing = job->temporaryURL().URLByAppendingPathComponent(place.lastPathComponent(), false);
    const auto asset = preciseAsset(sound);
    const auto inTimescale = [&asset](platform::CMTime time) {
        return CMTimeConvertScale(time, asset->duration().timescale,
                                  platform::CMTimeRoundingMethod::RoundHalfAwayFromZero);
    };
    AVAssetExportSession session(asset, std::string(platform::kAVAssetExportPresetPassthrough));
    session.setOutputFileType(platform::kAVFileTypeAppleM4A);
    session.setOutputURL(growing);
    if (sound.selection) {
        const platform::CMTimeRange range = timeRangeOf(sound);
        session.setTimeRange({inTimescale(range.start), inTimescale(range.duration)});
    }
    if (auto failure = finish(session, sound, *job, progress))
        return *std::move(failure);
    return moved(growing, file);
}

} // namespace stillora
