#include "client/command/document/DocumentCommand.h"

#include <stillora/Document.h>
#include <stillora/Movie.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>

#include "client/command/document/DocumentEditCommand.h"
#include "client/command/document/DocumentListing.h"
#include "client/command/document/DocumentOpening.h"
#include "client/command/document/DocumentOptions.h"
#include "client/command/making/MovieCommand.h"
#include "client/command/making/MoviePreparation.h"
#include "client/command/making/RememberedSettings.h"
#include "client/command/options/HelpText.h"
#include "client/command/options/Operands.h"
#include "client/command/options/Suggestion.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/LocaleEncoding.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

/// What is to go into a document, and what of it cannot.
struct Filling {
    std::vector<PhotoFacts> photos;
    std::vector<SoundFacts> sounds;
    std::vector<BadFile> badPhotos;
    std::vector<BadFile> badSounds;
    bool isCancelled = false;
};

Filling fillingOf(const DocumentFillOptions& options, MovieCommand& command)
{
    Filling filling;
    std::vector<PhotoCandidate> candidates;
    std::vector<SoundArgument> sounds;
    for (const std::string& file : options.files) {
        if (auto sound = soundOperand(file)) {
            sounds.push_back(*std::move(sound));
            continue;
        }
        PhotoListing listing = listPhotos({file}, FolderSounds::Listed, options.movie.innerFolders);
        std::move(listing.candidates.begin(), listing.candidates.end(), std::back_inserter(candidates));
        std::move(listing.bad.begin(), listing.bad.end(), std::back_inserter(filling.badPhotos));
        for (const std::string& text : listing.notes)
            command.passOver(text);
        for (std::filesystem::path& sound : listing.sounds)
            sounds.push_back({std::move(sound), std::nullopt, std::nullopt});
    }
    sounds.insert(sounds.end(), options.movie.sounds.begin(), options.movie.sounds.end());

    CheckedPhotos photos =
        checkPhotos(candidates, [&](size_t done) { return command.photosChecked(done, candidates.size()); });
    command.clearProgress();
    filling.isCancelled = photos.isCancelled;
    if (filling.isCancelled)
        return filling;
    if (photos.passedOver > 0)
        command.passOver(localizedCount(photos.passedOver, "{} more file passed over, since no photos or sounds",
                                        "{} more files passed over, since no photos or sounds"));
    std::move(photos.bad.begin(), photos.bad.end(), std::back_inserter(filling.badPhotos));
    filling.photos = std::move(photos.good);
    if (options.movie.skipsBad)
        std::ranges::move(MovieCommand::takeOutDamaged(filling.photos), std::back_inserter(filling.badPhotos));
    command.noteDamaged(filling.photos);
    filling.photos = command.sorted(std::move(filling.photos), options.movie.order);
    CheckedSounds checkedSounds = checkSounds(sounds, [&] { return !command.isCancelled(); });
    filling.isCancelled = checkedSounds.isCancelled;
    filling.badSounds = std::move(checkedSounds.bad);
    filling.sounds = std::move(checkedSounds.good);
    return filling;
}

/// Copies files into a document and saves it.
int fill(Document& document, const DocumentFillOptions& options, MovieCommand& command)
{
    const Filling filling = fillingOf(options, command);
    if (filling.isCancelled)
        return command.stopped();
    const bool isBad = !filling.badPhotos.empty() || !filling.badSounds.empty();
    bool isLeftOut = options.movie.skipsBad;
    if (isBad && !isLeftOut && !(filling.photos.empty() && filling.sounds.empty())) {
        const auto decision = command.decideOnBadInput(filling.badPhotos, filling.badSounds);
        if (decision == MovieCommand::BadInput::Stopped)
            return command.stopped();
        isLeftOut = decision == MovieCommand::BadInput::LeftOut;
    }
    if (isBad && !isLeftOut)
        return command.refuseBadInput(filling.badPhotos, filling.badSounds,
                                      filling.photos.empty() && filling.sounds.empty() ? MovieCommand::Hint::None
                                                                                       : MovieCommand::Hint::SkipBad);
    for (const std::vector<BadFile>& files : {filling.badPhotos, filling.badSounds})
        for (const BadFile& file : files)
            command.leaveOut(file);
    if (filling.photos.empty() && filling.sounds.empty() && isBad)
        return command.fail(kExitBadInput, localized("none of the files can be used"));

    uint64_t bytes = 0;
    const auto tellCopying = [&](const CopyProgress& progress) {
        bytes = progress.byteCount;
        const double fraction = progress.byteCount > 0
                                    ? static_cast<double>(progress.bytesDone) / static_cast<double>(progress.byteCount)
                                    : 1.0;
        if (progress.fileCount > 0)
            command.teller().stepDone(localized("Copying the files"), fraction, progress.filesDone, progress.fileCount);
        return !command.isCancelled();
    };
    Result<void> done = document.add(filling.photos, filling.sounds, tellCopying);
    if (done)
        done = document.save();
    command.clearProgress();
    if (!done)
        return endBy(done.error(), kExitFailed, command);
    command.note(localized("{}, {}, {} copied", localizedCount(filling.photos.size(), "{} photo", "{} photos"),
                           localizedCount(filling.sounds.size(), "{} sound", "{} sounds"),
                           bytesText(static_cast<double>(bytes))));
    JSONWriter result = command.resultOf(document.location().native());
    result.add("photos", static_cast<int64_t>(filling.photos.size()));
    result.add("soundtracks", static_cast<int64_t>(filling.sounds.size())).add("bytes", static_cast<int64_t>(bytes));
    return command.succeed(document.location().native(), result.addAll(command.omissionsAsJSON()));
}

MovieCommand::Wish outputOf(bool isJSON, bool isQuiet, std::string_view product)
{
    return {.isJSON = isJSON, .isQuiet = isQuiet, .product = product};
}

MovieCommand::Wish outputOf(const CreateOptions& wish, std::string_view product)
{
    return {.isJSON = wish.isJSON,
            .isQuiet = wish.isQuiet,
            .product = product,
            .progress = wish.progress,
            .isInputTaken = wish.list && wish.list->isStandardInput()};
}

/// Makes or opens a document, and adds what is listed to it.
/// @param documentFor  gives nothing, and the exit status, where it told why there is none
int runFilling(DocumentFillOptions options,
               std::optional<Document> (*documentFor)(const DocumentFillOptions&, MovieCommand&, int& status))
{
    const auto read = addListedNames(options.movie.list, options.files);
    MovieCommand command(outputOf(options.movie, "document"));
    if (!read)
        return command.fail(kExitBadInput, read.error().message);
    if (const auto missing = command.failWithoutReader([&] { return !command.isCancelled(); }))
        return *missing;
    int status = kExitDone;
    auto document = documentFor(options, command, status);
    return document ? fill(*document, options, command) : status;
}

std::optional<Document> newDocument(const DocumentFillOptions& options, MovieCommand& command, int& status)
{
    auto document = Document::create(options.document);
    if (!document) {
        status = command.fail(kExitFailed, document.error().message);
        return std::nullopt;
    }
    CreateOptions movie = options.movie;
    for (const std::string& fault : RememberedSettings::complete(movie))
        command.note(fault);
    document->setSettings(settingsOf(movie));
    return *std::move(document);
}

std::optional<Document> documentToFill(const DocumentFillOptions& options, MovieCommand& command, int& status)
{
    auto document = openForChange(options.document, command, status);
    if (document)
        for (const BadItem& item : badItemsOf(*document))
            command.note(fmt::format("{}: {}", item.path, item.reason));
    return document;
}

int runNew(const DocumentFillOptions& options)
{
    return runFilling(options, newDocument);
}

int runAdd(const DocumentFillOptions& options)
{
    return runFilling(options, documentToFill);
}

/// In JSON as a document that could not be changed: there is nothing else to tell of it.
int failToOpen(const DocumentLookOptions& options, const Error& error)
{
    MovieCommand command(outputOf(options.isJSON, options.isQuiet, "document"));
    return command.fail(kExitBadInput, error.message);
}

int runList(const DocumentLookOptions& options)
{
    const auto document = Document::load(locationOfDocument(options.document));
    if (!document)
        return failToOpen(options, document.error());
    MovieCommand command(outputOf(false, options.isQuiet, "listing"));
    const std::string text =
        options.isJSON ? listingAsJSON(*document).text() + "\n" : platform::encodedForLocale(listingOf(*document));
    if (const int status = command.give(text, localized("the listing could not be written to standard output"));
        status != kExitDone)
        return status;
    const std::vector<BadItem> bad = badItemsOf(*document);
    for (const BadItem& item : bad)
        command.complain(fmt::format("{}: {}", item.path, item.reason));
    return bad.empty() && document->settingFaults().empty() ? kExitDone : kExitBadInput;
}

JSONWriter checkAsJSON(const Document& document, const CheckedDocument& checked, bool isGood)
{
    std::vector<JSONWriter> bad;
    for (const BadItem& item : checked.bad)
        bad.push_back(JSONWriter()
                          .add("kind", item.kind == BadItem::Kind::Photo ? "photo" : "soundtrack")
                          .add("number", static_cast<int64_t>(item.index + 1))
                          .add("path", item.path)
                          .add("reason", item.reason));
    JSONWriter result;
    result.add("document", document.location().native()).add("ok", isGood);
    result.add("photos", static_cast<int64_t>(document.photos().size()));
    result.add("soundtracks", static_cast<int64_t>(document.soundtracks().size()));
    return result.add("bad", bad).add("changed", checked.changed).add("settingFaults", document.settingFaults());
}

int runCheck(const DocumentLookOptions& options)
{
    const auto document = Document::load(locationOfDocument(options.document));
    if (!document)
        return failToOpen(options, document.error());
    MovieCommand command(outputOf(false, options.isQuiet || options.isJSON, "check"));
    if (const auto missing = command.failWithoutReader([&] { return !command.isCancelled(); }))
        return *missing;
    const CheckedDocument checked =
        checkDocument(*document, [&](size_t done) { return command.photosChecked(done, document->photos().size()); });
    command.clearProgress();
    if (checked.isCancelled)
        return command.stopped();

    const auto files = document->unusedFiles();
    const std::vector<std::string> unused(files.begin(), files.end());
    const std::vector<BadFile> damaged = MovieCommand::damagedOf(checked.photos);
    const bool isGood =
        checked.bad.empty() && damaged.empty() && checked.changed.empty() && document->settingFaults().empty();
    const ExitStatus status = isGood ? kExitDone : kExitBadInput;
    if (options.isJSON) {
        const std::string text = checkAsJSON(*document, checked, isGood)
                                     .add("damagedPhotos", MovieCommand::asJSON(damaged))
                                     .add("unused", unused)
                                     .text();
        return command.give(text + "\n", localized("the result could not be written to standard output"), status);
    }
    for (const BadItem& item : checked.bad)
        command.complain(fmt::format("{}: {}", item.path, item.reason));
    for (const BadFile& photo : damaged)
        command.complain(fmt::format("{}: {}", photo.path.native(), photo.reason));
    for (const std::vector<std::string>& faults : {checked.changed, document->settingFaults()})
        for (const std::string& fault : faults)
            command.complain(fault);
    for (const std::string& path : unused)
        command.note(localized("{} belongs to no photo and no sound", path));
    if (isGood)
        command.note(localized("{} and {} can be used", localizedCount(checked.photos.size(), "{} photo", "{} photos"),
                               localizedCount(checked.sounds.size(), "{} soundtrack", "{} soundtracks")));
    return status;
}

} // namespace

int runDocumentRender(const DocumentRenderOptions& options)
{
    const CreateOptions& wish = options.movie;
    MovieCommand command(outputOf(wish, "movie"));
    const auto document = Document::load(locationOfDocument(options.document));
    if (!document)
        return command.fail(kExitBadInput, document.error().message);
    const MovieSettings settings = settingsFor(*document, wish);
    const std::string title = settings.title.value_or(document->name());
    if (const auto fault = faultOfTitle(title))
        return command.fail(kExitUsage, localized("the movie cannot have the document's name, which {}; give it a "
                                                  "name with --title",
                                                  *fault));
    if (const auto missing = command.failWithoutReader([&] { return !command.isCancelled(); }))
        return *missing;
    CheckedDocument checked =
        checkDocument(*document, [&](size_t done) { return command.photosChecked(done, document->photos().size()); });
    command.clearProgress();
    if (checked.isCancelled)
        return command.stopped();
    std::vector<BadFile> badPhotos;
    std::vector<BadFile> badSounds;
    for (const BadItem& item : checked.bad)
        (item.kind == BadItem::Kind::Photo ? badPhotos : badSounds).push_back({item.path, item.reason});
    bool isLeftOut = wish.skipsBad;
    if (!checked.bad.empty() && !isLeftOut && !checked.photos.empty()) {
        const auto decision = command.decideOnBadInput(badPhotos, badSounds);
        if (decision == MovieCommand::BadInput::Stopped)
            return command.stopped();
        isLeftOut = decision == MovieCommand::BadInput::LeftOut;
    }
    if (!checked.bad.empty() && !isLeftOut)
        return command.refuseBadInput(badPhotos, badSounds,
                                      checked.photos.empty() ? MovieCommand::Hint::None : MovieCommand::Hint::SkipBad);
    for (const BadItem& item : checked.bad)
        command.leaveOut({item.path, item.reason, item.index});
    if (wish.skipsBad)
        for (const BadFile& photo : MovieCommand::takeOutDamaged(checked.photos))
            command.leaveOut(photo);
    for (const std::string& change : checked.changed)
        command.note(change);
    const bool areFaultsRefused = !document->settingFaults().empty() && !wish.skipsBad;
    for (const std::string& fault : document->settingFaults())
        areFaultsRefused ? command.complain(fault) : command.note(fault);
    if (areFaultsRefused)
        return command.fail(kExitBadInput,
                            localized("the settings of {} cannot be used; --skip-bad renders with others",
                                      document->location().native()));
    if (checked.photos.empty())
        return command.fail(kExitBadInput, document->photos().empty()
                                               ? localized("there are no photos in {}", document->location().native())
                                               : localized("no photo can be used"));
    if (settings.fitsMusic && checked.sounds.empty())
        return command.fail(kExitBadInput,
                            localized("the photos of {} are to share the length of the music, and there is none",
                                      document->location().native()));
    return command.makeMovie(
        std::move(checked.photos), std::move(checked.sounds), settings, title,
        settings.title ? std::nullopt : std::optional(document->location()), wish.saveFolder, wish.use,
        {.isPlanAlone = wish.plansOnly, .contactSheet = wish.contactSheet, .isFresh = wish.isFresh});
}

namespace {

struct Verb {
    std::string_view name;
    int (*run)(const std::vector<std::string>& arguments);
};

constexpr std::array<Verb, 9> kVerbs{{
    {"new", runParsed<DocumentFillOptions, parseDocumentNew, runNew>},
    {"add", runParsed<DocumentFillOptions, parseDocumentAdd, runAdd>},
    {"remove", runParsed<DocumentRemoveOptions, parseDocumentRemove, runDocumentRemove>},
    {"move", runParsed<DocumentMoveOptions, parseDocumentMove, runDocumentMove>},
    {"sort", runParsed<DocumentSortOptions, parseDocumentSort, runDocumentSort>},
    {"set", runParsed<DocumentSetOptions, parseDocumentSet, runDocumentSet>},
    {"list", runParsed<DocumentLookOptions, parseDocumentList, runList>},
    {"check", runParsed<DocumentLookOptions, parseDocumentCheck, runCheck>},
    {"render", runParsed<DocumentRenderOptions, parseDocumentRender, runDocumentRender>},
}};

} // namespace

int runDocumentCommand(const std::vector<std::string>& arguments)
{
    if (arguments.empty())
        return give(
            usageError(localized("document new, add, remove, move, sort, set, list, check or render?"), "document"));
    const std::string& name = arguments.front();
    if (name == "--help" || name == "-h" || name == "help")
        return give({helpOf("document", helpColumns()), kExitDone});
    const auto verb = std::find_if(kVerbs.begin(), kVerbs.end(), [&](const Verb& each) { return each.name == name; });
    if (verb == kVerbs.end()) {
        std::vector<std::string> names;
        for (const Verb& each : kVerbs)
            names.emplace_back(each.name);
        const std::string fault = name.starts_with('-') ? localized("there is no option {}", name)
                                                        : localized("there is no command document {}", name);
        return give(usageError(withSuggestion(fault, name, names), "document"));
    }
    return verb->run({arguments.begin() + 1, arguments.end()});
}

} // namespace stillora
