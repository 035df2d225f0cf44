#include <stillora/Waveform.h>

#include "client/files/FreeName.h"
#include "client/files/JobFolder.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/text/ClientError.h"
#include "client/text/DataBytes.h"
#include "client/text/LocalizedText.h"
#include "platform/encoders/ImageEncoder.h"
#include "platform/files/NSFileManager.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace stillora {

using platform::NSError;
using platform::NSURL;

namespace {

using Clock = std::chrono::steady_clock;

/// Between two calls of a `WorkProgress`.
constexpr std::chrono::milliseconds kProgressInterval{100};

Error stopped(const SoundFacts& sound)
{
    return {ErrorCode::Cancelled, sound.path, localized("stopped")};
}

/// For a reason that does not name the sound.
Error unusable(const SoundFacts& sound, const Error& reason)
{
    return reason.code == ErrorCode::Cancelled
               ? stopped(sound)
               : Error{ErrorCode::Unsupported, sound.path, fmt::format("{}: {}", sound.path.native(), reason.message)};
}

uint64_t sizeOf(const NSURL& file)
{
    std::error_code unknown;
    const auto bytes = std::filesystem::file_size(file.path(), unknown);
    return unknown ? 0 : bytes;
}

/// Has a sound written into a file that grows in the job's folder.
/// @return why there is no file
std::optional<Error> copySound(const SoundFacts& sound, SoundCopyQuestion::Way way, const NSURL& growing,
                               const JobFolder& job, const WorkProgress& progress)
{
    const auto goesOn = [&, last = Clock::now()]() mutable {
        if (!progress || Clock::now() - last < kProgressInterval)
            return true;
        last = Clock::now();
        return progress(job.sizeOfContents());
    };
    const auto copied = FileReader::shared().ask(SoundCopyQuestion{.file = sound.path,
                                                                   .output = growing.path(),
                                                                   .selection = sound.selection,
                                                                   .sampleRateHz = sound.sampleRateHz,
                                                                   .way = way},
                                                 goesOn);
    if (!copied)
        return unusable(sound, copied.error());
    return *copied ? std::nullopt : std::optional(copied->error());
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

/// It grows in a hidden folder beside its place, of which nothing is left if the caller stops this.
Result<SoundFile> copyTo(const std::filesystem::path& file, const SoundFacts& sound, SoundCopyQuestion::Way way,
                         const WorkProgress& progress)
{
    const NSURL place = NSURL::fileURLWithPath(file.native());
    NSError error;
    const auto job = JobFolder::create(place.URLByDeletingLastPathComponent(), &error);
    if (!job)
        return errorOf(error, file);
    const NSURL growing = job->temporaryURL().URLByAppendingPathComponent(place.lastPathComponent(), false);
    if (auto failure = copySound(sound, way, growing, *job, progress))
        return *std::move(failure);
    return moved(growing, file);
}

Result<PictureAnswer> drawnWaveform(const SoundFacts& sound, const WaveformStyle& style, const WorkProgress& progress)
{
    const auto isEdge = [](int pixels) { return pixels >= 1 && pixels <= WaveformStyle::kMostPixels; };
    if (!isEdge(style.width) || !isEdge(style.height))
        return Error{ErrorCode::OutOfRange,
                     {},
                     localized("a picture of {} x {} pixels cannot be drawn: each edge has from 1 to {}", style.width,
                               style.height, WaveformStyle::kMostPixels)};
    auto drawn = FileReader::shared().ask(
        WaveformQuestion{
            .file = sound.path, .selection = sound.selection, .sampleRateHz = sound.sampleRateHz, .style = style},
        [&] { return !progress || progress(0); });
    if (!drawn)
        return unusable(sound, drawn.error());
    if (!*drawn)
        return unusable(sound, drawn->error());
    return *std::move(drawn);
}

/// By how much of its height a column of a picture is black.
float blackPartOf(const platform::CGImage& image, size_t column)
{
    // Lines are drawn with soft ends.
    uint64_t white = 0;
    for (size_t y = 0; y < image.height; ++y)
        white += image.row(y)[column * 4 + 1];
    return 1 - static_cast<float>(white) / (255 * static_cast<float>(image.height));
}

} // namespace

Result<Bytes> drawWaveform(const SoundFacts& sound, const WaveformStyle& style, const WorkProgress& progress)
{
    const auto drawn = drawnWaveform(sound, style, progress);
    if (!drawn)
        return drawn.error();
    const auto file =
        platform::encodePNG(drawn->image, {static_cast<double>(style.width), static_cast<double>(style.height)});
    if (!file)
        return Error{ErrorCode::Failed, {}, localized("there is not enough memory for the picture")};
    return bytesOf(*file);
}

Result<std::vector<float>> waveformLevels(const SoundFacts& sound, int count, const WorkProgress& progress)
{
    constexpr int kSteps = 256;
    const auto drawn =
        drawnWaveform(sound, {.width = count, .height = kSteps, .ground = WaveformStyle::Ground::White}, progress);
    if (!drawn)
        return drawn.error();
    std::vector<float> levels;
    levels.reserve(drawn->image.width);
    for (size_t column = 0; column < drawn->image.width; ++column)
        levels.push_back(blackPartOf(drawn->image, column));
    return levels;
}

Result<SoundFile> convertSound(const SoundFacts& sound, const std::filesystem::path& folder,
                               const WorkProgress& progress)
{
    const NSURL target = NSURL::fileURLWithPath(folder.native(), true);
    NSError error;
    const auto job = JobFolder::create(target, &error);
    if (!job)
        return errorOf(error, folder);
    const std::string name =
        platform::stringByDeletingPathExtension(NSURL::fileURLWithPath(sound.path.native()).lastPathComponent());
    const NSURL growing = job->temporaryURL().URLByAppendingPathComponent(fmt::format("{}.m4a", name), false);
    if (auto failure = copySound(sound, SoundCopyQuestion::Way::Encoded, growing, *job, progress))
        return *std::move(failure);

    const uint64_t bytes = sizeOf(growing);
    const auto place = moveToFreeName(growing, target, name, "m4a", &error);
    if (!place)
        return errorOf(error, folder);
    return SoundFile{place->path(), bytes};
}

Result<SoundFile> convertSoundToFile(const SoundFacts& sound, const std::filesystem::path& file,
                                     const WorkProgress& progress)
{
    return copyTo(file, sound, SoundCopyQuestion::Way::Encoded, progress);
}

Result<SoundFile> trimSound(const SoundFacts& sound, const std::filesystem::path& file, const WorkProgress& progress)
{
    return copyTo(file, sound, SoundCopyQuestion::Way::PacketByPacket, progress);
}

} // namespace stillora
