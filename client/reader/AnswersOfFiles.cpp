#include "client/reader/Answers.h"

#include "audio/MORAudioWaveImageMetadata.h"
#include "client/reader/PhotoWork.h"
#include "client/reader/PictureSize.h"
#include "client/reader/SoundWork.h"
#include "client/reader/WorkLimit.h"
#include "client/text/DataBytes.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "platform/decoders/CGImageSource.h"
#include "platform/foundation/NSString.h"
#include "platform/media/AVURLAsset.h"

#include <cctype>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using platform::AVAssetTrack;
using platform::AVURLAsset;
using platform::CGImageSource;
using platform::NSError;
using platform::NSURL;

/// Makers often put their name in front of the model's, and more words behind it where it stands alone.
std::string cameraOf(const platform::PhotoOrigin& origin)
{
    if (origin.make.empty() || origin.model.empty())
        return origin.make + origin.model;
    const std::string maker = platform::lowercaseASCII(origin.make.substr(0, origin.make.find(' ')));
    const std::string model = platform::lowercaseASCII(origin.model);
    // "Lumora" is no part of "Lumorama 3".
    const bool isNamed = model.starts_with(maker) && (model.size() == maker.size() ||
                                                      !std::isalpha(static_cast<unsigned char>(model[maker.size()])));
    return isNamed ? origin.model : fmt::format("{} {}", origin.make, origin.model);
}

Error unusable(const std::filesystem::path& file, const std::string& reason)
{
    return {ErrorCode::Unsupported, file, fmt::format("{}: {}", file.native(), reason)};
}

Result<FileFacts> photoFacts(CGImageSource& source, const NSURL& url, FileFacts facts)
{
    NSError error;
    const auto unreadable = [&] { return unusable(facts.path, reasonWithoutPath(error.localizedDescription, url)); };
    PhotoWork work(facts.path);
    const auto properties = source.copyPropertiesAtIndex(&error);
    if (!properties)
        return unreadable();
    work.beginPixels(static_cast<double>(properties->pixelWidth) * static_cast<double>(properties->pixelHeight));
    if (!source.canDecode(&error))
        return unreadable();
    facts.kind = FileFacts::Kind::Photo;
    facts.pictureFormat = properties->format;
    facts.size = uprightSizeOf(*properties);
    facts.orientation = properties->orientation;
    facts.averageColor = answerTo(ColorQuestion{facts.path});
    const platform::PhotoOrigin& origin = properties->origin;
    if (origin.taken)
        facts.taken = DateTaken{origin.taken->clock, origin.taken->offset};
    facts.camera = cameraOf(origin);
    if (origin.place)
        facts.place = GeographicPlace{origin.place->latitude, origin.place->longitude};
    facts.isCutOff = source.isCutOff();
    return facts;
}

Tags tagsOf(const AVURLAsset& asset)
{
    return {.title = MORAudioWaveImage::taggedTitle(asset),
            .artist = MORAudioWaveImage::taggedArtist(asset),
            .album = MORAudioWaveImage::taggedAlbum(asset),
            .shownTitle = MORAudioWaveImage::audioTrackTitle(asset),
            .shownArtist = MORAudioWaveImage::audioTrackArtist(asset),
            .shownAlbum = MORAudioWaveImage::audioTrackAlbum(asset)};
}

std::optional<Cover> coverOf(const AVURLAsset& asset)
{
    auto data = MORAudioWaveImage::audioTrackCoverData(asset);
    if (!data)
        return std::nullopt;
    Cover facts;
    facts.picture = bytesOf(*data);
    const auto source = CGImageSource::createWithData(*std::move(data), asset.URL().lastPathComponent());
    if (const auto properties = source ? source->copyPropertiesAtIndex() : std::nullopt) {
        facts.format = properties->format;
        facts.size = uprightSizeOf(*properties);
    }
    return facts;
}

Result<FileFacts> mediaFacts(const NSURL& url, FileFacts facts)
{
    const WorkLimit limit(workForSound(facts.path));
    AVURLAsset::Options options;
    options.preferPreciseDurationAndTiming = true;
    const AVURLAsset asset(url, options);
    const auto pictures = asset.tracksWithMediaType(platform::kAVMediaTypeVideo);
    const auto sounds = asset.tracksWithMediaType(platform::kAVMediaTypeAudio);
    if (pictures.empty() && sounds.empty())
        return unusable(facts.path, localized("is no photo, sound or movie that can be read"));
    facts.kind = pictures.empty() ? FileFacts::Kind::Sound : FileFacts::Kind::Movie;
    if (!pictures.empty()) {
        facts.pictureFormat = pictures.front().codec;
        facts.size = {pictures.front().naturalSize.width, pictures.front().naturalSize.height};
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
    const double seconds = platform::CMTimeGetSeconds(asset.duration());
    facts.length = Seconds(std::isfinite(seconds) ? seconds : 0);
    facts.tags = tagsOf(asset);
    facts.cover = coverOf(asset);
    return facts;
}

} // namespace

Result<FileFacts> answerTo(const FactsQuestion& question)
{
    FileFacts facts;
    facts.path = question.file;
    const NSURL url = NSURL::fileURLWithPath(question.file.native(), false);
    if (const auto source = CGImageSource::createWithURL(url))
        return photoFacts(*source, url, std::move(facts));
    return mediaFacts(url, std::move(facts));
}

} // namespace stillora
