#include "window/state/document/DocumentSession.h"

#include <stillora/Document.h>
#include <stillora/Photos.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <iterator>
#include <random>
#include <system_error>
#include <unordered_set>
#include <utility>

#include <fmt/format.h>

namespace stillora::window {

namespace fs = std::filesystem;

namespace {

/// After a change others are waited for, so that a handle that is dragged is not saved at each of its places.
constexpr std::chrono::milliseconds kSavingDelay{400};

template <typename Value>
std::shared_ptr<const Value> shared(Value value)
{
    return std::make_shared<const Value>(std::move(value));
}

bool isSound(const fs::path& path)
{
    const std::string extension = path.extension().native();
    return extension.size() > 1 && isSoundExtension(extension.substr(1));
}

fs::path withExtension(fs::path location)
{
    if (location.filename().empty())
        location = location.parent_path();
    if (location.extension().native() != fmt::format(".{}", kDocumentExtension))
        location += fmt::format(".{}", kDocumentExtension);
    return location;
}

/// "Rome-2.stillora", "Rome-3.stillora": the first that is free.
fs::path freeLocationBeside(const fs::path& location)
{
    for (int number = 2;; ++number) {
        fs::path free = location.parent_path() /
                        fmt::format("{}-{}{}", location.stem().native(), number, location.extension().native());
        std::error_code failure;
        if (fs::symlink_status(free, failure).type() == fs::file_type::not_found)
            return free;
    }
}

} // namespace

/// The files that arguments stand for.
struct DocumentSession::Listing {
    std::vector<PhotoItem> photos;
    std::vector<SoundItem> sounds;
    std::vector<Error> errors;

    static Listing of(const std::vector<fs::path>& arguments)
    {
        Listing listing;
        std::vector<fs::path> others;
        for (const fs::path& path : arguments) {
            std::error_code failure;
            if (isSound(path) && fs::is_regular_file(path, failure))
                listing.addSound(path);
            else
                others.push_back(path);
        }
        PhotoListing found = listPhotos(others, FolderSounds::Listed, InnerFolders::PassedOver);
        for (const BadFile& bad : found.bad)
            listing.errors.push_back(
                {ErrorCode::Failed, bad.path, fmt::format("{}: {}", bad.path.native(), bad.reason)});
        std::ranges::for_each(found.sounds, [&](const fs::path& path) { listing.addSound(path); });
        listing.addPhotos(found.candidates);
        return listing;
    }

private:
    void addSound(const fs::path& path) { sounds.push_back({.path = path, .title = path.stem().native()}); }

    void addPhotos(const std::vector<PhotoCandidate>& candidates)
    {
        // Files of folders whose names do not tell whether they are photos are looked at before they are shown.
        std::vector<PhotoCandidate> unsure;
        std::ranges::copy_if(candidates, std::back_inserter(unsure), [](const PhotoCandidate& candidate) {
            return candidate.origin == PhotoCandidate::Origin::FoundAsFile;
        });
        const CheckedPhotos checked = checkPhotos(unsure);
        std::unordered_set<std::string> shown;
        for (const PhotoFacts& photo : checked.good)
            shown.insert(photo.path.native());
        for (const PhotoCandidate& candidate : candidates)
            if (candidate.origin != PhotoCandidate::Origin::FoundAsFile || shown.contains(candidate.path.native()))
                photos.push_back({.path = candidate.path, .title = candidate.path.stem().native()});
    }
};

DocumentSession::DocumentSession(MainLoop& loop, std::filesystem::path stateFolder)
    : loop_(loop), stateFolder_(std::move(stateFolder)), disk_(std::make_shared<DocumentDisk>(stateFolder_)),
      background_(loop)
{}

DocumentSession::~DocumentSession()
{
    *isAlive_ = false;
    disk_->stop();
}

std::optional<std::size_t> DocumentSession::indexOf(PhotoID id) const
{
    if (indices_.empty())
        for (std::size_t i = 0; i < photos().size(); ++i)
            indices_.emplace(photos()[i], i);
    const auto found = indices_.find(id);
    return found == indices_.end() ? std::nullopt : std::optional(found->second);
}

std::vector<SoundItem> DocumentSession::sounds() const
{
    std::vector<SoundItem> sounds;
    for (const SoundRow& row : *history_.present().sounds) {
        sounds.push_back(soundItems_.at(row.id));
        sounds.back().selection = row.selection;
    }
    return sounds;
}

std::optional<SoundItem> DocumentSession::sound(SoundID id) const
{
    const auto& rows = *history_.present().sounds;
    const auto row = std::ranges::find(rows, id, &SoundRow::id);
    if (row == rows.end())
        return std::nullopt;
    SoundItem item = soundItems_.at(id);
    item.selection = row->selection;
    return item;
}

void DocumentSession::perform(Arrangement arrangement, std::string label, std::string handle)
{
    changeBy([&] { history_.add(std::move(arrangement), std::move(label), std::move(handle)); });
}

void DocumentSession::changeBy(const std::function<void()>& step)
{
    const Arrangement before = history_.present();
    step();
    if (before.isSameAs(history_.present()))
        return;
    ++version_;
    indices_.clear();
    scheduleSaving();
    tell(before);
}

void DocumentSession::tell(const Arrangement& before)
{
    // Those that are told may give orders, which tell of themselves.
    const Arrangement now = history_.present();
    if (const auto change = changeBetween(*before.photos, *now.photos))
        photosChanged.emit(*change);
    if (*before.sounds != *now.sounds)
        soundsChanged.emit();
    if (*before.settings != *now.settings)
        settingsChanged.emit();
    changed.emit();
    statusChanged.emit();
}

std::vector<PhotoID> DocumentSession::enter(std::vector<PhotoItem> photos)
{
    std::vector<PhotoID> ids;
    ids.reserve(photos.size());
    for (PhotoItem& photo : photos) {
        photo.id = PhotoID{++lastID_};
        ids.push_back(photo.id);
        photoItems_.emplace(photo.id, std::move(photo));
    }
    return ids;
}

std::vector<SoundRow> DocumentSession::enter(std::vector<SoundItem> sounds)
{
    std::vector<SoundRow> rows;
    for (SoundItem& sound : sounds) {
        sound.id = SoundID{++lastID_};
        rows.push_back({sound.id, sound.selection});
        soundItems_.emplace(sound.id, std::move(sound));
    }
    return rows;
}

void DocumentSession::add(std::vector<std::filesystem::path> filesAndFolders, std::size_t place)
{
    background_.run([paths = std::move(filesAndFolders)] { return Listing::of(paths); },
                    [this, place](Listing listing) { take(std::move(listing), place); });
}

void DocumentSession::take(Listing listing, std::size_t place)
{
    Arrangement arrangement = history_.present();
    const std::size_t photoCount = listing.photos.size();
    const std::size_t soundCount = listing.sounds.size();
    const std::vector<PhotoID> ids = enter(std::move(listing.photos));
    auto photos = *arrangement.photos;
    photos.insert(photos.begin() + static_cast<std::ptrdiff_t>(std::min(place, photos.size())), ids.begin(), ids.end());
    arrangement.photos = shared(std::move(photos));
    auto sounds = *arrangement.sounds;
    std::ranges::copy(enter(std::move(listing.sounds)), std::back_inserter(sounds));
    arrangement.sounds = shared(std::move(sounds));
    perform(std::move(arrangement), photoCount == 0   ? localizedCount(soundCount, "Add {} Sound", "Add {} Sounds")
                                    : soundCount == 0 ? localizedCount(photoCount, "Add {} Photo", "Add {} Photos")
                                                      : localized("Add Photos and Sounds"));
    if (!ids.empty())
        photosAdded.emit(ids);
    if (!listing.errors.empty())
        failed.emit(listing.errors);
}

namespace {

std::shared_ptr<const std::vector<PhotoID>> without(const std::vector<PhotoID>& photos, const std::vector<PhotoID>& ids)
{
    const std::unordered_set<PhotoID> gone(ids.begin(), ids.end());
    std::vector<PhotoID> left;
    std::ranges::copy_if(photos, std::back_inserter(left), [&](PhotoID id) { return !gone.contains(id); });
    return shared(std::move(left));
}

} // namespace

void DocumentSession::removePhotos(const std::vector<PhotoID>& ids)
{
    Arrangement arrangement = history_.present();
    arrangement.photos = without(photos(), ids);
    perform(std::move(arrangement), localizedCount(ids.size(), "Remove {} Photo", "Remove {} Photos"));
}

void DocumentSession::removeUnusablePhotos(const std::vector<PhotoID>& ids)
{
    Arrangement arrangement = history_.present();
    arrangement.photos = without(photos(), ids);
    perform(std::move(arrangement),
            localizedCount(ids.size(), "Remove {} Photo That Cannot Be Used", "Remove {} Photos That Cannot Be Used"));
}

void DocumentSession::movePhotos(const std::vector<PhotoID>& ids, std::size_t place)
{
    const std::unordered_set<PhotoID> moved(ids.begin(), ids.end());
    std::vector<PhotoID> order;
    std::vector<PhotoID> block;
    std::size_t blockPlace = 0;
    for (std::size_t i = 0; i < photos().size(); ++i) {
        if (i == place)
            blockPlace = order.size();
        (moved.contains(photos()[i]) ? block : order).push_back(photos()[i]);
    }
    if (place >= photos().size())
        blockPlace = order.size();
    const std::size_t count = block.size();
    order.insert(order.begin() + static_cast<std::ptrdiff_t>(blockPlace), block.begin(), block.end());
    setPhotoOrder(std::move(order), localizedCount(count, "Move {} Photo", "Move {} Photos"));
}

void DocumentSession::setPhotoOrder(std::vector<PhotoID> order, std::string label)
{
    Arrangement arrangement = history_.present();
    arrangement.photos = shared(std::move(order));
    perform(std::move(arrangement), std::move(label));
}

void DocumentSession::reversePhotos()
{
    setPhotoOrder({photos().rbegin(), photos().rend()}, localized("Reverse Order"));
}

void DocumentSession::shufflePhotos()
{
    std::vector<PhotoID> order = photos();
    std::mt19937 chance{std::random_device()()};
    // Whoever asks for it wants another order than there is.
    do
        std::ranges::shuffle(order, chance);
    while (order.size() > 1 && order == photos());
    setPhotoOrder(std::move(order), localized("Shuffle"));
}

void DocumentSession::removeSound(SoundID id)
{
    Arrangement arrangement = history_.present();
    auto sounds = *arrangement.sounds;
    std::erase_if(sounds, [id](const SoundRow& row) { return row.id == id; });
    arrangement.sounds = shared(std::move(sounds));
    perform(std::move(arrangement), localized("Remove Sound"));
}

void DocumentSession::moveSound(SoundID id, std::size_t place)
{
    Arrangement arrangement = history_.present();
    auto sounds = *arrangement.sounds;
    const auto row = std::ranges::find(sounds, id, &SoundRow::id);
    if (row == sounds.end())
        return;
    const auto target = sounds.begin() + static_cast<std::ptrdiff_t>(std::min(place, sounds.size()));
    if (row < target)
        std::rotate(row, row + 1, target);
    else
        std::rotate(target, row, row + 1);
    arrangement.sounds = shared(std::move(sounds));
    perform(std::move(arrangement), localized("Move Sound"));
}

void DocumentSession::setSoundSelection(SoundID id, std::optional<SoundFacts::Selection> selection)
{
    Arrangement arrangement = history_.present();
    auto sounds = *arrangement.sounds;
    const auto row = std::ranges::find(sounds, id, &SoundRow::id);
    if (row == sounds.end() || (selection && !(selection->start >= Seconds(0) && selection->end > selection->start)))
        return;
    row->selection = selection;
    arrangement.sounds = shared(std::move(sounds));
    perform(std::move(arrangement), localized("Change Part of Sound"),
            fmt::format("part {}", static_cast<std::uint64_t>(id)));
}

void DocumentSession::setSettings(MovieSettings settings)
{
    Arrangement arrangement = history_.present();
    // Of a spin button that is pressed for long every number is one step.
    MovieSettings sameTime = settings;
    sameTime.timePerPhoto = this->settings().timePerPhoto;
    const bool isTimeAlone = sameTime == this->settings();
    arrangement.settings = shared(std::move(settings));
    perform(std::move(arrangement), isTimeAlone ? localized("Change Seconds a Photo") : localized("Change Settings"),
            isTimeAlone ? "time" : "");
}

void DocumentSession::fitToMusic()
{
    Arrangement arrangement = history_.present();
    MovieSettings settings = this->settings();
    settings.fitsMusic = true;
    settings.loopsSounds = false;
    arrangement.settings = shared(std::move(settings));
    perform(std::move(arrangement), localized("Fit to Music"));
}

void DocumentSession::loopMusic()
{
    Arrangement arrangement = history_.present();
    MovieSettings settings = this->settings();
    settings.loopsSounds = true;
    settings.fitsMusic = false;
    arrangement.settings = shared(std::move(settings));
    perform(std::move(arrangement), localized("Loop Music"));
}

void DocumentSession::undo()
{
    if (canUndo())
        changeBy([this] { history_.undo(); });
}

void DocumentSession::redo()
{
    if (canRedo())
        changeBy([this] { history_.redo(); });
}

bool DocumentSession::isDocument(const std::filesystem::path& path)
{
    std::error_code failure;
    const fs::path folder = path.filename().empty() ? path.parent_path() : path;
    return folder.extension().native() == fmt::format(".{}", kDocumentExtension) &&
           fs::exists(folder / "Document.plist", failure);
}

std::string DocumentSession::name() const
{
    return location_ ? location_->stem().native() : localized("Untitled");
}

Arrangement DocumentSession::arrangementOf(LoadedDocument loaded)
{
    return {shared(enter(std::move(loaded.photos))), shared(enter(std::move(loaded.sounds))),
            shared(std::move(loaded.settings))};
}

void DocumentSession::replace(LoadedDocument loaded)
{
    const Arrangement before = history_.present();
    std::optional<SavedSession> unsaved = std::move(loaded.unsaved);
    location_ = loaded.location;
    // The old items may still be asked for by those that are told.
    history_ = EditHistory(arrangementOf(std::move(loaded)));
    indices_.clear();
    setInConflict(false);
    ++version_;
    savedVersion_ = version_;
    tell(before);
    if (unsaved)
        takeUnsaved(*unsaved);
    opened.emit();
}

void DocumentSession::takeUnsaved(const SavedSession& session)
{
    // Files that are in the document keep their identities.
    std::unordered_multimap<std::string, PhotoID> photosByPath;
    for (const PhotoID id : photos())
        photosByPath.emplace(photo(id).path.native(), id);
    std::vector<PhotoID> order;
    for (const fs::path& path : session.photos) {
        if (const auto found = photosByPath.find(path.native()); found != photosByPath.end())
            order.push_back(photosByPath.extract(found).mapped());
        else
            order.push_back(enter({PhotoItem{.path = path, .title = path.stem().native()}}).front());
    }
    std::unordered_multimap<std::string, SoundID> soundsByPath;
    for (const SoundRow& row : *history_.present().sounds)
        soundsByPath.emplace(soundItems_.at(row.id).path.native(), row.id);
    std::vector<SoundRow> rows;
    for (const SoundArgument& sound : session.sounds) {
        SoundRow row;
        if (sound.start && sound.end)
            row.selection = SoundFacts::Selection{*sound.start, *sound.end};
        if (const auto found = soundsByPath.find(sound.path.native()); found != soundsByPath.end())
            row.id = soundsByPath.extract(found).mapped();
        else
            row.id = enter({SoundItem{.path = sound.path, .title = sound.path.stem().native()}}).front().id;
        rows.push_back(row);
    }
    perform({shared(std::move(order)), shared(std::move(rows)), shared(session.settings)},
            localized("Bring Back Unsaved Changes"));
}

void DocumentSession::resume()
{
    onDisk([this, disk = disk_]() -> std::function<void()> {
        auto loaded = disk->takeLastSession();
        return [this, loaded] { replace(loaded.value_or(LoadedDocument())); };
    });
}

namespace {

/// Writes for the last time what was on the screen, and leaves it.
void putAway(DocumentDisk& disk, const SavedSession& session, const DocumentToSave& what, bool isSaved)
{
    bool isWhole = session.photos.empty() && session.sounds.empty();
    if (disk.isOpen())
        isWhole = isSaved || !disk.save(what).error;
    if (isWhole)
        disk.removeSession();
    else
        static_cast<void>(disk.writeSession(session));
    disk.close();
    disk.leaveSession();
}

} // namespace

void DocumentSession::startNew()
{
    onDisk([this, disk = disk_, session = savedSession(), what = documentToSave(),
            isSaved = isSaved()]() -> std::function<void()> {
        putAway(*disk, session, what, isSaved);
        return [this] { replace({}); };
    });
}

void DocumentSession::open(const std::filesystem::path& location)
{
    onDisk([this, disk = disk_, location, session = savedSession(), what = documentToSave(),
            isSaved = isSaved()]() -> std::function<void()> {
        // What is on the screen stays where the other cannot be opened.
        auto fault = DocumentDisk::faultOf(location);
        if (fault)
            return [this, error = *fault] { failed.emit({error}); };
        putAway(*disk, session, what, isSaved);
        auto loaded = disk->open(location);
        if (!loaded)
            return [this, error = loaded.error()] {
                replace({});
                failed.emit({error});
            };
        if (loaded->location)
            disk->remember(*loaded->location);
        return [this, found = *std::move(loaded)] { replace(found); };
    });
}

void DocumentSession::saveAs(const std::filesystem::path& location)
{
    onDisk([this, disk = disk_, place = withExtension(location), what = documentToSave(),
            version = version_]() -> std::function<void()> {
        SavedDocument saved = disk->saveAs(place, what);
        if (saved.error)
            return [this, error = *saved.error] { failed.emit({error}); };
        disk->remember(place);
        return [this, place, saved, version] {
            location_ = place;
            setInConflict(false);
            takeSaved(saved, version);
            // The list in the state folder is to say where the document is, too.
            ++version_;
            scheduleSaving();
        };
    });
}

void DocumentSession::saveMineBeside()
{
    if (location_)
        saveAs(freeLocationBeside(*location_));
}

void DocumentSession::keepMine()
{
    if (!location_)
        return;
    onDisk([this, disk = disk_, what = documentToSave(), version = version_]() -> std::function<void()> {
        SavedDocument saved = disk->saveOver(what);
        return [this, saved, version] {
            if (!saved.error)
                setInConflict(false);
            takeSaved(saved, version);
        };
    });
}

void DocumentSession::takeTheirs()
{
    if (!location_)
        return;
    onDisk([this, disk = disk_]() -> std::function<void()> {
        auto loaded = disk->reload();
        if (!loaded)
            return [this, error = loaded.error()] { failed.emit({error}); };
        return [this, found = *std::move(loaded)] { takeReloaded(found); };
    });
}

void DocumentSession::takeReloaded(const LoadedDocument& loaded)
{
    SavedSession theirs;
    theirs.settings = loaded.settings;
    for (const PhotoItem& photo : loaded.photos)
        theirs.photos.push_back(photo.path);
    for (const SoundItem& sound : loaded.sounds) {
        auto& argument = theirs.sounds.emplace_back(SoundArgument{sound.path, std::nullopt, std::nullopt});
        if (sound.selection) {
            argument.start = sound.selection->start;
            argument.end = sound.selection->end;
        }
    }
    setInConflict(false);
    takeUnsaved(theirs);
    savedVersion_ = version_;
    statusChanged.emit();
}

void DocumentSession::lookAgain()
{
    if (!location_ || isInConflict_)
        return;
    onDisk([this, disk = disk_]() -> std::function<void()> {
        const bool isChanged = disk->isChangedByOthers();
        return [this, isChanged] { setInConflict(isChanged); };
    });
}

void DocumentSession::findRecent(std::function<void(std::vector<Recent>)> found)
{
    onDisk([this, disk = disk_, found = std::move(found)]() -> std::function<void()> {
        std::vector<Recent> recent;
        for (const fs::path& location : disk->remembered())
            recent.push_back({location, location.stem().native(), true});
        for (const auto& [location, count] : disk->unnamed())
            recent.push_back({location, localizedCount(count, "Untitled, {} photo", "Untitled, {} photos"), false});
        return [this, found, recent = std::move(recent)]() mutable {
            std::erase_if(recent, [this](const Recent& each) { return each.location == location_; });
            found(std::move(recent));
        };
    });
}

void DocumentSession::setInConflict(bool isInConflict)
{
    if (std::exchange(isInConflict_, isInConflict) != isInConflict)
        conflictChanged.emit();
}

void DocumentSession::onDisk(DiskWork work)
{
    diskWork_.push_back(std::move(work));
    workOn();
}

void DocumentSession::workOn()
{
    if (isDiskAtWork_ || diskWork_.empty())
        return;
    isDiskAtWork_ = true;
    DiskWork work = std::move(diskWork_.front());
    diskWork_.pop_front();
    background_.run(std::move(work), [this](const std::function<void()>& done) {
        isDiskAtWork_ = false;
        done();
        workOn();
        statusChanged.emit();
    });
}

void DocumentSession::scheduleSaving()
{
    if (std::exchange(isSavingScheduled_, true))
        return;
    loop_.postAfter(kSavingDelay, [this, isAlive = isAlive_] {
        if (!*isAlive || isFinished_)
            return;
        isSavingScheduled_ = false;
        save();
    });
}

void DocumentSession::save()
{
    onDisk([this, disk = disk_, session = savedSession(), what = documentToSave(), version = version_,
            isInConflict = isInConflict_]() -> std::function<void()> {
        auto unwritten = disk->writeSession(session);
        SavedDocument saved;
        if (disk->isOpen() && session.document && !isInConflict)
            saved = disk->save(what);
        if (unwritten && !session.document)
            saved.error = std::move(unwritten);
        return [this, saved, version, isInConflict] {
            if (!isInConflict)
                takeSaved(saved, version);
        };
    });
}

void DocumentSession::takeSaved(SavedDocument saved, std::uint64_t version)
{
    if (saved.error && saved.error->code == ErrorCode::DocumentChanged) {
        setInConflict(true);
        return;
    }
    if (saved.error) {
        if (saved.error->code != ErrorCode::Cancelled)
            failed.emit({*saved.error});
        return;
    }
    for (auto& [id, path] : saved.photos)
        photoItems_.at(id).path = std::move(path);
    for (auto& [id, path] : saved.sounds)
        soundItems_.at(id).path = std::move(path);
    savedVersion_ = std::max(savedVersion_, version);
    statusChanged.emit();
}

DocumentToSave DocumentSession::documentToSave() const
{
    DocumentToSave what;
    if (location_ || !isEmpty())
        for (const PhotoID id : photos())
            what.photos.push_back({id, photo(id).path, knownFacts_ ? knownFacts_(id) : std::nullopt});
    what.sounds = sounds();
    what.settings = settings();
    return what;
}

SavedSession DocumentSession::savedSession() const
{
    SavedSession session;
    session.document = location_;
    for (const PhotoID id : photos())
        session.photos.push_back(photo(id).path);
    for (const SoundItem& sound : sounds()) {
        auto& argument = session.sounds.emplace_back(SoundArgument{sound.path, std::nullopt, std::nullopt});
        if (sound.selection) {
            argument.start = sound.selection->start;
            argument.end = sound.selection->end;
        }
    }
    session.settings = settings();
    return session;
}

void DocumentSession::finish()
{
    disk_->stop();
    while (isDiskAtWork_ || background_.running() > 0)
        background_.finish();
    const bool isSavedNow = isSaved() || (location_ && !isInConflict_ && !disk_->save(documentToSave()).error);
    const bool isForNobody = !location_ && isEmpty();
    if (isForNobody || (location_ && isSavedNow && !isInConflict_))
        disk_->removeSession();
    else
        static_cast<void>(disk_->writeSession(savedSession()));
    disk_->close();
    isFinished_ = true;
}

} // namespace stillora::window
