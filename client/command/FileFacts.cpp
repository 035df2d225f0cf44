#include "client/command/FileFacts.h"

#include "audio/MORAudioWaveImageMetadata.h"
#include "client/FileReason.h"
#include "platform/decoders/CGImageSource.h"
#include "util/MORImageCategory.h"

#include <cerrno>
#include <cmath>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

namespace {

using platform::AVAssetTrack;
using platform::AVURLAsset;
using platform::CGImageSource;
using platform::NSError;
using platform::NSURL;

platform::CGSize uprightSizeOf(const CGImageSource::Properties& properties)
{
    const auto width = static_cast<double>(properties.pixelWidth);
    const auto height = static_cast<double>(properties.pixelHeight);
    return properties.orientation.value_or(1) >= 5 ? platform::CGSize{height, width} : platform::CGSize{width, height};
}

std::optional<FileFacts> photoFacts(CGImageSource& source, const NSURL& url, FileFacts facts, std::string& reason)
{
    NSError error;
    const auto properties = source.copyPropertiesAtIndex(&error);
    if (!properties || !source.canDecode(&error)) {
        reason = reasonWithoutPath(error.localizedDescription, url);
        return std::nullopt;
    }
    facts.kind = FileFacts::Kind::Photo;
    facts.pictureFormat = properties->format;
    facts.size = uprightSizeOf(*properties);
    facts.orientation = properties->orientation;
    const platform::NSColor color = MORImageCategory::averageColorOfImageAtURL(url);
    if (std::isfinite(color.red) && std::isfinite(color.green) && std::isfinite(color.blue))
        facts.averageColor = color;
    return facts;
}

std::optional<CoverFacts> coverFacts(const AVURLAsset& asset)
{
    auto data = MORAudioWaveImage::audioTrackCoverData(asset);
    if (!data)
        return std::nullopt;
    CoverFacts facts;
    facts.bytes = static_cast<int64_t>(data->size());
    const auto source = CGImageSource::createWithData(*std::move(data), asset.URL().lastPathComponent());
    if (const auto properties = source ? source->copyPropertiesAtIndex() : std::nullopt) {
        facts.format = properties->format;
        facts.size = uprightSizeOf(*properties);
    }
    return facts;
}

std::optional<FileFacts> mediaFacts(const NSURL& url, FileFacts facts, std::string& reason)
{
    AVURLAsset::Options options;
    options.preferPreciseDurationAndTiming = true;
    facts.asset = std::make_shared<AVURLAsset>(url, options);
    const auto pictures = facts.asset->tracksWithMediaType(platform::kAVMediaTypeVideo);
    const auto sounds = facts.asset->tracksWithMediaType(platform::kAVMediaTypeAudio);
    if (pictures.empty() && sounds.empty()) {
        reason = "is no photo, sound or movie that can be read";
        return std::nullopt;
    }
    facts.kind = pictures.empty() ? FileFacts::Kind::Sound : FileFacts::Kind::Movie;
    if (!pictures.empty()) {
        facts.pictureFormat = pictures.front().codec;
        facts.size = pictures.front().naturalSize;
    }
    if (!sounds.empty()) {
        const AVAssetTrack& sound = sounds.front();
        facts.soundFormat = sound.codec;
        if (!sound.formatDescriptions.empty()) {
            const auto& format = sound.formatDescriptions.front().audioStreamBasicDescription;
            facts.sampleRateHz = format ? static_cast<int>(format->mSampleRate) : 0;
            facts.channels = format ? static_cast<int>(format->mChannelsPerFrame) : 0;
        }
    }
    const double seconds = platform::CMTimeGetSeconds(facts.asset->duration());
    facts.seconds = std::isfinite(seconds) ? seconds : 0;
    facts.cover = coverFacts(*facts.asset);
    return facts;
}

} // namespace

std::optional<FileFacts> factsOfFile(const std::string& path, std::string& reason)
{
    const auto bad = [&](std::string sentence) {
        reason = std::move(sentence);
        return std::nullopt;
    };
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return bad(reasonOfErrno(errno));
    if (S_ISDIR(status.st_mode))
        return bad("is a folder");
    // Anything else might keep whoever opens it waiting.
    if (!S_ISREG(status.st_mode))
        return bad("is not a regular file");
    if (access(path.c_str(), R_OK) != 0)
        return bad(reasonOfErrno(errno));
    if (status.st_size == 0)
        return bad("is empty");
    FileFacts facts;
    facts.path = path;
    facts.bytes = status.st_size;
    const NSURL url = NSURL::fileURLWithPath(path, false);
    if (const auto source = CGImageSource::createWithURL(url))
        return photoFacts(*source, url, std::move(facts), reason);
    return mediaFacts(url, std::move(facts), reason);
}

} // namespace stillora
