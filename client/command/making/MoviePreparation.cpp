#include "client/command/making/MoviePreparation.h"

#include "client/command/options/Operands.h"
#include "client/questions/FileReader.h"
#include "client/text/LocalizedText.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

Error stopped()
{
    return {ErrorCode::Cancelled, {}, localized("stopped")};
}

Error faultOf(ErrorCode code, const std::filesystem::path& file, std::string message)
{
    return {code, file, std::move(message)};
}

Error faultOfBadFiles(const std::vector<BadFile>& files)
{
    std::string message;
    for (const BadFile& file : files)
        message += fmt::format("{}{}: {}", message.empty() ? "" : "; ", file.path.native(), file.reason);
    return faultOf(ErrorCode::Unsupported, files.front().path, std::move(message));
}

void leaveOutDamaged(const CreateOptions& options, std::vector<PhotoFacts>& photos)
{
    if (options.skipsBad)
        std::erase_if(photos, [](const PhotoFacts& photo) { return photo.isCutOff; });
}

Result<MovieRequest> prepareDocument(const std::filesystem::path& location, const CreateOptions& options,
                                     const std::function<bool()>& goesOn)
{
    if (const std::string fault = faultOfDocumentMovie(location, options); !fault.empty())
        return faultOf(ErrorCode::OutOfRange, location, fault);
    const auto document = Document::load(location);
    if (!document)
        return document.error();
    CheckedDocument checked = checkDocument(*document, [&](size_t) { return goesOn(); });
    if (checked.isCancelled)
        return stopped();
    if (!options.skipsBad && !checked.bad.empty()) {
        std::vector<BadFile> bad;
        for (const BadItem& item : checked.bad)
            bad.push_back({item.path, item.reason});
        return faultOfBadFiles(bad);
    }
    if (!options.skipsBad && !document->settingFaults().empty())
        return faultOf(ErrorCode::Unsupported, location,
                       fmt::format("{}: {}", location.native(), document->settingFaults().front()));
    leaveOutDamaged(options, checked.photos);
    if (checked.photos.empty())
        return faultOf(ErrorCode::NothingToShow, location, localized("there are no photos in {}", location.native()));
    const MovieSettings settings = settingsFor(*document, options);
    if (settings.fitsMusic && checked.sounds.empty())
        return faultOf(
            ErrorCode::OutOfRange, location,
            localized("the photos of {} are to share the length of the music, and there is none", location.native()));
    const std::string title = settings.title.value_or(document->name());
    if (const auto fault = faultOfTitle(title))
        return faultOf(
            ErrorCode::OutOfRange, location,
            localized("the movie cannot have the document's name, which {}; give it a name with --title", *fault));
    return plannedMovie({.photos = std::move(checked.photos),
                         .sounds = std::move(checked.sounds),
                         .settings = settings,
                         .title = title,
                         .document = settings.title ? std::nullopt : std::optional(document->location()),
                         .use = options.use});
}

} // namespace

void takeOutSounds(CreateOptions& options)
{
    std::vector<std::filesystem::path> photos;
    std::vector<SoundArgument> sounds;
    for (std::filesystem::path& argument : options.photos) {
        if (auto sound = soundOperand(argument.native()))
            sounds.push_back(*std::move(sound));
        else
            photos.push_back(std::move(argument));
    }
    std::ranges::move(options.sounds, std::back_inserter(sounds));
    options.photos = std::move(photos);
    options.sounds = std::move(sounds);
}

std::string faultOfDocumentMovie(const std::filesystem::path& document, const CreateOptions& options)
{
    const std::string& name = document.native();
    if (options.photos.size() > 1 || !options.sounds.empty())
        return localized("{} is a document, and its movie has no other photos and sounds; \"stillora document "
                         "add\" adds them to it",
                         name);
    if (options.loopsSounds || options.fitsMusic || !options.fillsSilence || options.reducesBorders)
        return localized("{} is a document, which itself says whether sounds are repeated or fitted, silence is "
                         "added and borders are reduced",
                         name);
    if (options.order.sort != PhotoSort::AsGiven || options.order.isReversed ||
        options.innerFolders != InnerFolders::PassedOver)
        return localized("{} is a document, which itself has the order of its photos", name);
    return {};
}

MovieSettings settingsFor(const Document& document, const CreateOptions& options)
{
    MovieSettings settings = document.settings();
    if (options.seconds) {
        settings.timePerPhoto = *options.seconds;
        settings.fitsMusic = false;
    }
    if (options.isQualityGiven)
        settings.quality = options.quality;
    if (options.isCodecGiven)
        settings.codec = options.codec;
    if (options.title)
        settings.title = options.title;
    if (options.watermark != Watermark::Usual)
        settings.watermark = options.watermark;
    return settings;
}

Result<MovieRequest> plannedMovie(MovieParts parts)
{
    MovieWish wish;
    wish.photos = std::move(parts.photos);
    wish.timePerPhoto = parts.settings.timePerPhoto;
    wish.sounds = std::move(parts.sounds);
    wish.loopsSounds = parts.settings.loopsSounds;
    wish.fitsMusic = parts.settings.fitsMusic;
    wish.fillsSilence = parts.settings.fillsSilence;
    auto plan = planMovie(wish);
    if (!plan)
        return plan.error();
    return MovieRequest{.photos = std::move(wish.photos),
                        .sounds = std::move(wish.sounds),
                        .plan = *std::move(plan),
                        .codec = parts.settings.codec,
                        .quality = parts.settings.quality,
                        .reducesBorders = parts.settings.reducesBorders,
                        .title = std::move(parts.title),
                        .saveFolder = {},
                        .document = std::move(parts.document),
                        .use = parts.use,
                        .watermark = parts.settings.watermark};
}

Result<MovieRequest> prepareMovie(const CreateOptions& given, const std::function<bool()>& goesOn)
{
    CreateOptions options = given;
    for (const std::filesystem::path& photo : options.photos)
        if (const auto document = documentOperand(photo.native()))
            return prepareDocument(*document, options, goesOn);
    takeOutSounds(options);
    PhotoListing listing = listPhotos(options.photos, FolderSounds::PassedOver, options.innerFolders);
    if (auto fault = FileReader::shared().fault(goesOn))
        return *std::move(fault);
    CheckedPhotos checked = checkPhotos(listing.candidates, [&](size_t) { return goesOn(); });
    if (checked.isCancelled)
        return stopped();
    std::ranges::move(checked.bad, std::back_inserter(listing.bad));
    if (!listing.bad.empty() && !options.skipsBad)
        return faultOfBadFiles(listing.bad);
    CheckedSounds sounds = checkSounds(options.sounds, goesOn);
    if (sounds.isCancelled)
        return stopped();
    if (!sounds.bad.empty())
        return faultOfBadFiles(sounds.bad);
    leaveOutDamaged(options, checked.good);
    if (checked.good.empty())
        return faultOf(ErrorCode::NothingToShow, {}, localized("no photo can be used"));
    std::vector<PhotoFacts> photos = sortPhotos(std::move(checked.good), options.order).photos;
    const std::string title = options.title.value_or(titleForPhotos(photos));
    return plannedMovie({.photos = std::move(photos),
                         .sounds = std::move(sounds.good),
                         .settings = settingsOf(options),
                         .title = title,
                         .document = std::nullopt,
                         .use = options.use});
}

} // namespace stillora
