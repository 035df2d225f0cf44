#include "audio/MORAudioWaveImage.h"

#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/NSDate.h"
#include "platform/media/AVAssetExportSession.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <thread>
#include <utility>

using namespace platform;

namespace MORAudioWaveImage {
namespace {

/// The folder in which applications of this user keep what is theirs; nothing where there is none.
std::optional<NSURL> applicationSupportFolder()
{
    const char* data = std::getenv("XDG_DATA_HOME");
    const std::string path = stringByExpandingTildeInPath(data && *data == '/' ? data : "~/.local/share");
    if (!path.starts_with('/'))
        return std::nullopt;
    return NSURL::fileURLWithPath(path, true);
}

/// The process's temporary directory, if there is one; else a folder of this code's own.
///
/// @param error  out: why that one could not be made
std::optional<NSURL> folderForTrimming(std::optional<NSError>& error)
{
    const NSURL temporary = NSURL::fileURLWithPath(NSTemporaryDirectory(), true);
    bool isFolder = false;
    if (NSFileManager::defaultManager().fileExistsAtPath(temporary.path(), &isFolder) && isFolder)
        return temporary;
    const auto support = applicationSupportFolder();
    if (!support)
        return std::nullopt;
    const NSURL folder = support->URLByAppendingPathComponent("AVAsset+MORAudioWaveImage", true);
    NSError failure;
    if (!NSFileManager::defaultManager().createDirectoryAtURL(folder, true, &failure)) {
        error = failure;
        return std::nullopt;
    }
    return folder;
}

/// Calls the handler on the main queue.
void answer(TrimHandler handler, AVURLAssetPtr trimmed, std::optional<NSError> error)
{
    DispatchQueue::main()->async(
        [handler = std::move(handler), trimmed = std::move(trimmed), error = std::move(error)]() mutable {
            handler(std::move(trimmed), std::move(error));
        });
}

CMTime inTimescaleOf(const AVAsset& asset, CMTime time)
{
    return CMTimeConvertScale(time, asset.duration().timescale, CMTimeRoundingMethod::RoundHalfAwayFromZero);
}

} // namespace

const std::vector<std::string>& supportedAudioTypes()
{
    static const std::vector<std::string> types = {
        "public.mp3",        "public.mpeg-4-audio",        "public.aiff-audio",
        "public.aifc-audio", "com.apple.coreaudio-format", "com.microsoft.waveform-audio"};
    return types;
}

std::optional<NSURL> synchronouslyConvertedAssetToM4AAtTempURL(const AVAssetPtr& asset,
                                                               const std::optional<NSURL>& tempURL,
                                                               CMTimeRange withRange, NSError* error)
{
    const auto file = std::dynamic_pointer_cast<AVURLAsset>(asset);
    if (!file)
        return std::nullopt;
    NSFileManager& files = NSFileManager::defaultManager();
    const NSURL parent = tempURL ? *tempURL : NSURL::fileURLWithPath(NSTemporaryDirectory(), true);
    const NSURL folder = parent.URLByAppendingPathComponent(NSUUIDString(), true);
    if (!files.createDirectoryAtURL(folder, true, error))
        return std::nullopt;
    const std::string name = stringByDeletingPathExtension(lastPathComponent(file->URL().path()));
    const NSURL output = folder.URLByAppendingPathComponent(name + ".m4a", false);

    AVAssetExportSession session(file, std::string(kAVAssetExportPresetAppleM4A));
    session.setOutputFileType(kAVFileTypeAppleM4A);
    session.setOutputURL(output);
    if (!CMTimeRangeEqual(withRange, kCMTimeRangeInvalid) && !CMTimeRangeEqual(withRange, kCMTimeRangeZero))
        session.setTimeRange(withRange);
    session.setDirectoryForTemporaryFiles(folder);
    session.exportAsynchronouslyWithCompletionHandler({});

    // Only completion and failure end this: a session that is cancelled keeps the thread here.
    for (auto status = session.status(); status != AVAssetExportSessionStatus::Failed; status = session.status()) {
        if (status == AVAssetExportSessionStatus::Completed)
            break;
        session.progress();
        // The processor goes to those who encode; the end of the export gives it back at once.
        if (session.waitForEnd(0.01))
            std::this_thread::yield();
    }

    const std::optional<NSError> failure = session.error();
    if (error)
        *error = failure.value_or(NSError{});
    if (failure || !files.fileExistsAtPath(output.path()))
        return std::nullopt;
    return output;
}

void audioAssetConvertedToM4AAtTempURL(const AVAssetPtr& asset, std::optional<NSURL> tempURL, CMTimeRange withRange,
                                       ConversionHandler completionHandler)
{
    if (!completionHandler)
        return;
    if (!std::dynamic_pointer_cast<AVURLAsset>(asset))
        return completionHandler(std::nullopt, std::nullopt);
    DispatchQueue::global()->async(
        [asset, tempURL = std::move(tempURL), withRange, handler = std::move(completionHandler)]() mutable {
            NSError error;
            auto converted = synchronouslyConvertedAssetToM4AAtTempURL(asset, tempURL, withRange, &error);
            handler(std::move(converted), error.domain.empty() ? std::nullopt : std::optional(error));
        });
}

void audioAssetAtURL(const std::optional<NSURL>& url, std::optional<NSURL> convertedToM4AAtTempURL,
                     CMTimeRange withRange, ConversionHandler completionHandler)
{
    if (!completionHandler)
        return;
    if (!url)
        return completionHandler(std::nullopt, std::nullopt);
    audioAssetConvertedToM4AAtTempURL(AVURLAsset::URLAssetWithURL(*url), std::move(convertedToM4AAtTempURL), withRange,
                                      std::move(completionHandler));
}

void trimAssetAsynchronouslyWithTimeRange(const AVAssetPtr& asset, CMTimeRange timeRange,
                                          const std::optional<NSURL>& outputURL, TrimHandler completionHandler)
{
    if (!completionHandler)
        return;
    const bool mayTrim =
        CMTimeRangeIsValid(timeRange) && !CMTimeRangeIsIndefinite(timeRange) && !CMTimeRangeIsEmpty(timeRange);
    if (!mayTrim || !asset)
        return answer(std::move(completionHandler), nullptr, std::nullopt);

    std::optional<NSURL> output = outputURL;
    if (!output) {
        std::optional<NSError> error;
        const auto folder = folderForTrimming(error);
        if (!folder)
            return answer(std::move(completionHandler), nullptr, error);
        const auto seconds = static_cast<int64_t>(NSDate::date().timeIntervalSinceReferenceDate);
        output = folder->URLByAppendingPathComponent("trimmed_" + std::to_string(seconds) + ".m4a", false);
    }

    const auto session = std::make_shared<AVAssetExportSession>(asset, std::string(kAVAssetExportPresetPassthrough));
    session->setOutputURL(*output);
    session->setOutputFileType(kAVFileTypeAppleM4A);
    session->setTimeRange({inTimescaleOf(*asset, timeRange.start), inTimescaleOf(*asset, timeRange.duration)});
    session->exportAsynchronouslyWithCompletionHandler(
        [session, output = *output, handler = std::move(completionHandler)]() mutable {
            const std::optional<NSError> error = session->error();
            if (error)
                return answer(std::move(handler), nullptr, error);
            const bool exists = NSFileManager::defaultManager().fileExistsAtPath(output.path());
            answer(std::move(handler), exists ? AVURLAsset::URLAssetWithURL(output) : nullptr, std::nullopt);
        });
}

} // namespace MORAudioWaveImage
