#include "client/command/CreateCommand.h"

#include <stillora/Movie.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>

#include "client/command/document/DocumentCommand.h"
#include "client/command/making/MovieCommand.h"
#include "client/command/making/MoviePreparation.h"
#include "client/command/making/RememberedSettings.h"
#include "client/command/options/Operands.h"
#include "client/text/LocalizedText.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace stillora {

namespace {

std::string noPhotosIn(const std::vector<std::filesystem::path>& places)
{
    const std::vector<std::string> names(places.begin(), places.end());
    return localized("there are no photos in {}", fmt::join(names, ", "));
}

/// The movie of a document, to which nothing is added.
int renderDocument(const std::filesystem::path& document, const CreateOptions& options)
{
    if (const std::string fault = faultOfDocumentMovie(document, options); !fault.empty())
        return give(usageError(fault, "create"));
    return runDocumentRender({.document = document.native(), .movie = options});
}

CommandOutput::Wish outputOf(const CreateOptions& options)
{
    return {.isJSON = options.isJSON,
            .isQuiet = options.isQuiet,
            .product = "movie",
            .progress = options.progress,
            .isInputTaken = options.list && options.list->isStandardInput()};
}

} // namespace

int runCreateCommand(const CreateOptions& given)
{
    CreateOptions options = given;
    if (const auto read = addListedNames(options.list, options.photos); !read)
        return MovieCommand(outputOf(options)).fail(kExitBadInput, read.error().message);
    for (const std::filesystem::path& photo : options.photos)
        if (const auto document = documentOperand(photo.native()))
            return renderDocument(*document, options);
    takeOutSounds(options);
    if (options.photos.empty())
        return give(usageError(localized("no photos were given"), "create"));
    if (options.sounds.empty() && (options.loopsSounds || options.fitsMusic))
        return give(usageError(faultOfMissingSound(options), "create"));
    MovieCommand command(outputOf(options));
    for (const std::string& fault : RememberedSettings::complete(options))
        command.note(fault);
    if (const auto status = command.failWithoutReader([&] { return !command.isCancelled(); }))
        return *status;
    PhotoListing listing = listPhotos(options.photos, FolderSounds::PassedOver, options.innerFolders);
    for (const std::string& text : listing.notes)
        command.passOver(text);
    CheckedPhotos checked = checkPhotos(
        listing.candidates, [&](size_t done) { return command.photosChecked(done, listing.candidates.size()); });
    command.clearProgress();
    if (checked.isCancelled)
        return command.stopped();
    if (checked.passedOver > 0)
        command.passOver(localizedCount(checked.passedOver, "{} more file that is no photo was passed over",
                                        "{} more files that are no photos were passed over"));
    // What is missing was mistyped, as a rule, and nothing is gained where nothing would be left.
    const auto hint =
        checked.bad.empty() || checked.good.empty() ? MovieCommand::Hint::None : MovieCommand::Hint::SkipBadPhotos;
    std::vector<BadFile> bad = std::move(listing.bad);
    std::move(checked.bad.begin(), checked.bad.end(), std::back_inserter(bad));
    CheckedSounds sounds = checkSounds(options.sounds, [&] { return !command.isCancelled(); });
    if (sounds.isCancelled)
        return command.stopped();
    bool isLeftOut = options.skipsBad;
    if (!bad.empty() && !isLeftOut && sounds.bad.empty() && !checked.good.empty()) {
        const auto decision = command.decideOnBadInput(bad, {});
        if (decision == MovieCommand::BadInput::Stopped)
            return command.stopped();
        isLeftOut = decision == MovieCommand::BadInput::LeftOut;
    }
    if (!bad.empty() && !isLeftOut)
        return command.refuseBadInput(bad, sounds.bad, hint);
    if (!sounds.bad.empty())
        return command.refuseBadInput({}, sounds.bad);
    if (options.skipsBad)
        std::ranges::move(MovieCommand::takeOutDamaged(checked.good), std::back_inserter(bad));
    for (const BadFile& photo : bad)
        command.leaveOut(photo);
    if (checked.good.empty())
        return command.fail(kExitBadInput,
                            bad.empty() ? noPhotosIn(options.photos) : localized("no photo can be used"));
    checked.good = command.sorted(std::move(checked.good), options.order);
    const std::string title = options.title.value_or(titleForPhotos(checked.good));
    return command.makeMovie(
        std::move(checked.good), std::move(sounds.good), settingsOf(options), title, std::nullopt, options.saveFolder,
        options.use,
        {.isPlanAlone = options.plansOnly, .contactSheet = options.contactSheet, .isFresh = options.isFresh});
}

} // namespace stillora
