#include "client/command/document/DocumentEditCommand.h"

#include <stillora/Document.h>

#include "client/command/document/DocumentListing.h"
#include "client/command/document/DocumentOpening.h"
#include "client/command/document/DocumentSettings.h"
#include "client/command/document/ItemFinder.h"
#include "client/command/making/MovieCommand.h"
#include "client/text/LocalizedText.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using Kind = BadItem::Kind;
using Indexes = std::vector<size_t>;

MovieCommand::Wish outputOf(const DocumentEditOptions& options)
{
    return {.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "document"};
}

/// Saves the document and ends the command.
/// @param details  follow in JSON
/// @param notes    what was done
int save(Document& document, MovieCommand& command, const JSONWriter& details, const std::vector<std::string>& notes)
{
    if (const auto saved = document.save(); !saved)
        return endBy(saved.error(), kExitFailed, command);
    for (const std::string& note : notes)
        command.note(note);
    const std::string path = document.location().native();
    return command.succeed(path, command.resultOf(path).addAll(details));
}

Indexes indexesOf(const std::vector<ItemPlace>& places, Kind kind)
{
    Indexes indexes;
    for (const ItemPlace place : places)
        if (place.kind == kind)
            indexes.push_back(place.index);
    return indexes;
}

JSONWriter countsAsJSON(size_t photos, size_t sounds)
{
    return JSONWriter().add("photos", static_cast<int64_t>(photos)).add("soundtracks", static_cast<int64_t>(sounds));
}

/// How many items a list of this kind has.
size_t countOf(const Document& document, Kind kind)
{
    return kind == Kind::Photo ? document.photos().size() : document.soundtracks().size();
}

/// All indexes in their order, with some of them moved.
/// @param target  the one before which they come to be; `count` for the end
Indexes orderWith(const Indexes& moved, size_t target, size_t count)
{
    const std::set<size_t> isMoved(moved.begin(), moved.end());
    Indexes order;
    for (size_t i = 0; i <= count; ++i) {
        if (i == target)
            order.insert(order.end(), moved.begin(), moved.end());
        if (i < count && !isMoved.contains(i))
            order.push_back(i);
    }
    return order;
}

/// The index before which items come to be, or why there is none.
Result<size_t> targetOf(const DocumentMoveOptions& options, const ItemFinder& finder, const Indexes& moved, Kind kind,
                        size_t count)
{
    using Place = DocumentMoveOptions::Place;
    if (options.place == Place::First || options.place == Place::Last)
        return options.place == Place::First ? 0 : count;
    const auto found = finder.find(options.neighbour);
    if (!found)
        return found.error();
    const auto refused = [&](std::string reason) {
        return Error{ErrorCode::OutOfRange, options.document, std::move(reason)};
    };
    if (found->size() != 1)
        return refused(localized("{} is more than one, and items are put beside one", options.neighbour));
    if (found->front().kind != kind)
        return refused(
            localized("photos and sounds are lists of their own: {} is in the other one", options.neighbour));
    const size_t neighbour = found->front().index;
    if (std::ranges::count(moved, neighbour) > 0)
        return refused(localized("{} is to be moved itself, and cannot say where to", options.neighbour));
    return neighbour + (options.place == Place::After ? 1 : 0);
}

/// Photos as far as sorting looks at them, and where they stand now; those of which no more is known last.
struct SortablePhotos {
    std::vector<PhotoFacts> photos;
    /// By path, in the document's order: a file that was added twice is two photos.
    std::map<std::filesystem::path, Indexes> indexes;
    Indexes unknown;
};

SortablePhotos sortablePhotos(const Document& document, std::vector<PhotoFacts> facts)
{
    SortablePhotos sortable;
    std::map<std::filesystem::path, PhotoFacts> byPath;
    for (PhotoFacts& photo : facts)
        byPath.try_emplace(photo.path, std::move(photo));
    const auto photos = document.photos();
    for (size_t i = 0; i < photos.size(); ++i) {
        const auto known = byPath.find(photos[i].path);
        if (known == byPath.end()) {
            sortable.unknown.push_back(i);
            continue;
        }
        sortable.photos.push_back(known->second);
        sortable.indexes[photos[i].path].push_back(i);
    }
    return sortable;
}

Indexes orderOf(const std::vector<PhotoFacts>& sorted, SortablePhotos& sortable, bool isReversed)
{
    Indexes order;
    for (const PhotoFacts& photo : sorted) {
        Indexes& indexes = sortable.indexes[photo.path];
        const auto next = isReversed ? indexes.end() - 1 : indexes.begin();
        order.push_back(*next);
        indexes.erase(next);
    }
    order.insert(order.end(), sortable.unknown.begin(), sortable.unknown.end());
    return order;
}

/// The part of a sound that is played from now on.
int setSelection(Document& document, const DocumentSetOptions& options, MovieCommand& command)
{
    const auto found = ItemFinder(document).find(options.key);
    if (!found)
        return command.fail(kExitBadInput, found.error().message);
    if (!indexesOf(*found, Kind::Photo).empty())
        return command.fail(kExitBadInput, localized("{} is a photo, of which no part is played", options.key));
    const auto sounds = document.soundtracks();
    for (const ItemPlace place : *found) {
        const DocumentSoundtrack& sound = sounds[place.index];
        const std::string name = sound.path.empty() ? numberOf(place) : sound.path.native();
        if (sound.state == DocumentItem::State::Damaged)
            return command.fail(kExitBadInput, fmt::format("{}: {}", name, sound.fault));
        if (!options.value) {
            document.setSelection(place.index, std::nullopt);
            continue;
        }
        SoundArgument argument{sound.path, std::nullopt, std::nullopt};
        static_cast<void>(readRange(*options.value, argument, options.key));
        const CheckedSounds checked = checkSounds({argument}, [&] { return !command.isCancelled(); });
        if (checked.isCancelled)
            return command.stopped();
        if (!checked.bad.empty())
            return command.fail(kExitBadInput, fmt::format("{}: {}", name, checked.bad.front().reason));
        document.setSelection(place.index, checked.good.front().selection);
    }
    return save(document, command, countsAsJSON(0, found->size()), {});
}

} // namespace

int runDocumentRemove(const DocumentRemoveOptions& options)
{
    MovieCommand command(outputOf(options));
    int status = kExitDone;
    auto document = openForChange(options.document, command, status);
    if (!document)
        return status;
    const auto found = ItemFinder(*document).findAll(options.items);
    if (!found)
        return command.fail(kExitBadInput, found.error().message);
    Indexes photos = indexesOf(*found, Kind::Photo);
    Indexes sounds = indexesOf(*found, Kind::Soundtrack);
    // The last ones first, so that the indexes of the others stay.
    std::ranges::sort(photos, std::ranges::greater());
    std::ranges::sort(sounds, std::ranges::greater());
    for (const size_t index : photos)
        document->removePhoto(index);
    for (const size_t index : sounds)
        document->removeSoundtrack(index);
    std::vector<std::string> notes;
    if (!photos.empty())
        notes.push_back(localizedCount(photos.size(), "{} photo removed", "{} photos removed"));
    if (!sounds.empty())
        notes.push_back(localizedCount(sounds.size(), "{} sound removed", "{} sounds removed"));
    return save(*document, command, countsAsJSON(photos.size(), sounds.size()), notes);
}

int runDocumentMove(const DocumentMoveOptions& options)
{
    MovieCommand command(outputOf(options));
    int status = kExitDone;
    auto document = openForChange(options.document, command, status);
    if (!document)
        return status;
    const ItemFinder finder(*document);
    const auto found = finder.findAll(options.items);
    if (!found)
        return command.fail(kExitBadInput, found.error().message);
    const Kind kind = found->front().kind;
    const Indexes moved = indexesOf(*found, kind);
    if (moved.size() != found->size())
        return command.fail(kExitBadInput, localized("photos and sounds are lists of their own, and are not moved at "
                                                     "once"));
    const size_t count = countOf(*document, kind);
    const auto target = targetOf(options, finder, moved, kind, count);
    if (!target)
        return command.fail(kExitBadInput, target.error().message);
    const Indexes order = orderWith(moved, *target, count);
    const bool isPhoto = kind == Kind::Photo;
    if (isPhoto)
        document->setPhotoOrder(order);
    else
        document->setSoundtrackOrder(order);
    return save(*document, command, countsAsJSON(isPhoto ? moved.size() : 0, isPhoto ? 0 : moved.size()),
                {isPhoto ? localizedCount(moved.size(), "{} photo moved", "{} photos moved")
                         : localizedCount(moved.size(), "{} sound moved", "{} sounds moved")});
}

int runDocumentSet(const DocumentSetOptions& options)
{
    MovieCommand command(outputOf(options));
    int status = kExitDone;
    auto document = openForChange(options.document, command, status);
    if (!document)
        return status;
    if (std::ranges::count(DocumentSettings::names(), options.key) == 0)
        return setSelection(*document, options, command);
    MovieSettings settings = document->settings();
    const bool didFitMusic = settings.fitsMusic;
    if (!options.value)
        DocumentSettings::reset(options.key, settings);
    else if (const std::string fault = DocumentSettings::read(options.key, *options.value, settings); !fault.empty())
        return give(usageError(fault, "document"));
    if (settings.fitsMusic && settings.loopsSounds)
        return command.fail(kExitBadInput,
                            localized("fit-music leaves nothing to loop in {}: one of them has to be off",
                                      document->location().native()));
    document->setSettings(settings);
    document->rewriteSetting(DocumentSettings::key(options.key));
    std::vector<std::string> notes;
    if (didFitMusic && !settings.fitsMusic && options.key == "seconds")
        notes.push_back(localized("photos do not share the length of the music any more"));
    return save(*document, command, JSONWriter().add("settings", settingsAsJSON(settings)), notes);
}

int runDocumentSort(const DocumentSortOptions& options)
{
    MovieCommand command(outputOf(options));
    int status = kExitDone;
    auto document = openForChange(options.document, command, status);
    if (!document)
        return status;
    std::vector<PhotoFacts> facts;
    if (options.order.sort == PhotoSort::ByDate) {
        const size_t count = document->photos().size();
        CheckedDocument checked =
            checkDocument(*document, [&](size_t done) { return command.photosChecked(done, count); });
        command.clearProgress();
        if (checked.isCancelled)
            return command.stopped();
        facts = std::move(checked.photos);
    } else {
        for (const DocumentPhoto& photo : document->photos())
            if (!photo.path.empty())
                facts.push_back({.path = photo.path, .size = {}});
    }
    SortablePhotos sortable = sortablePhotos(*document, std::move(facts));
    const std::vector<PhotoFacts> sorted = command.sorted(sortable.photos, options.order);
    std::vector<std::string> notes;
    if (!sortable.unknown.empty())
        notes.push_back(localizedCount(sortable.unknown.size(), "{} photo that cannot be read comes last",
                                       "{} photos that cannot be read come last"));
    const Indexes order = orderOf(sorted, sortable, options.order.isReversed);
    document->setPhotoOrder(order);
    return save(*document, command, countsAsJSON(order.size(), 0), notes);
}

} // namespace stillora
