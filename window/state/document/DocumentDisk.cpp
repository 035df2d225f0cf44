#include "window/state/document/DocumentDisk.h"

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora::window {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kSessionExtension = ".session";
constexpr std::string_view kLockExtension = ".lock";
constexpr std::string_view kRecentName = "recent";
constexpr std::size_t kMostRecent = 20;

std::string contentsOf(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

Error unwritten(const fs::path& file, int failure)
{
    const ErrorCode code = failure == ENOSPC || failure == EDQUOT  ? ErrorCode::DiskFull
                           : failure == EACCES || failure == EPERM ? ErrorCode::NoPermission
                                                                   : ErrorCode::Failed;
    return {code, file, localized("{} cannot be written: {}", file.native(), std::system_category().message(failure))};
}

bool writeAll(int descriptor, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// Beside its place and then renamed, so that a reader sees the old text or the new one, also after a power failure.
std::optional<Error> writeFile(const fs::path& file, std::string_view text)
{
    std::error_code failure;
    fs::create_directories(file.parent_path(), failure);
    const fs::path growing = file.parent_path() / fmt::format(".{}.{}", file.filename().native(), getpid());
    const platform::FileDescriptor descriptor(
        ::open(growing.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!descriptor)
        return unwritten(file, errno);
    if (!writeAll(descriptor.get(), text) || fsync(descriptor.get()) != 0 ||
        rename(growing.c_str(), file.c_str()) != 0) {
        const int reason = errno;
        unlink(growing.c_str());
        return unwritten(file, reason);
    }
    return std::nullopt;
}

std::string newName()
{
    std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

/// Which file it is and when it was written; empty where there is none.
std::string stateOf(const fs::path& file)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0)
        return {};
    return fmt::format("{} {} {}.{:09}", status.st_ino, status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
}

platform::FileDescriptor lockOf(const fs::path& file)
{
    platform::FileDescriptor lock(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (lock && flock(lock.get(), LOCK_EX | LOCK_NB) != 0)
        lock.reset();
    return lock;
}

/// The newest first.
std::vector<fs::path> sessionsIn(const fs::path& folder)
{
    std::vector<std::pair<fs::file_time_type, fs::path>> found;
    std::error_code failure;
    for (auto entry = fs::directory_iterator(folder, failure); !failure && entry != fs::directory_iterator();
         entry.increment(failure)) {
        std::error_code unknown;
        if (entry->path().extension() == kSessionExtension)
            found.emplace_back(entry->last_write_time(unknown), entry->path());
    }
    std::ranges::sort(found, std::greater());
    std::vector<fs::path> files;
    for (auto& [time, file] : found)
        files.push_back(std::move(file));
    return files;
}

PhotoItem photoItemOf(const fs::path& path)
{
    return {.path = path, .title = path.stem().native()};
}

SoundItem soundItemOf(const SoundArgument& sound)
{
    SoundItem item{.path = sound.path, .title = sound.path.stem().native()};
    if (sound.start && sound.end)
        item.selection = SoundFacts::Selection{*sound.start, *sound.end};
    return item;
}

LoadedDocument loadedOf(const SavedSession& session)
{
    LoadedDocument loaded;
    loaded.settings = session.settings;
    std::ranges::transform(session.photos, std::back_inserter(loaded.photos), photoItemOf);
    std::ranges::transform(session.sounds, std::back_inserter(loaded.sounds), soundItemOf);
    return loaded;
}

/// For each of what is wanted the entry of the document that has its file, each entry once.
template <typename Entry, typename Wanted>
std::vector<std::optional<std::size_t>> matched(const std::vector<Entry>& entries, const std::vector<Wanted>& wanted)
{
    std::multimap<fs::path, std::size_t> byPath;
    for (std::size_t i = 0; i < entries.size(); ++i)
        byPath.emplace(entries[i].path, i);
    std::vector<std::optional<std::size_t>> matches;
    for (const Wanted& each : wanted) {
        const auto found = byPath.find(each.path);
        matches.push_back(found == byPath.end() ? std::nullopt : std::optional(found->second));
        if (found != byPath.end())
            byPath.erase(found);
    }
    return matches;
}

SoundArgument argumentOf(const SoundItem& sound)
{
    SoundArgument argument{sound.path, std::nullopt, std::nullopt};
    if (sound.selection) {
        argument.start = sound.selection->start;
        argument.end = sound.selection->end;
    }
    return argument;
}

/// The facts of those that are good, by their places.
std::map<std::size_t, PhotoFacts> factsOf(const std::vector<PhotoToSave>& photos,
                                          const std::vector<std::size_t>& wanted, const std::atomic<bool>& isStopped)
{
    std::map<std::size_t, PhotoFacts> facts;
    std::vector<PhotoCandidate> unknown;
    std::vector<std::size_t> places;
    for (const std::size_t i : wanted) {
        if (photos[i].facts) {
            facts.emplace(i, *photos[i].facts).first->second.path = photos[i].path;
            continue;
        }
        unknown.push_back({photos[i].path, PhotoCandidate::Origin::Named});
        places.push_back(i);
    }
    if (isStopped)
        return facts;
    CheckedPhotos checked = checkPhotos(unknown, [&](std::size_t) { return !isStopped; });
    auto good = checked.good.begin();
    auto bad = checked.bad.begin();
    for (std::size_t i = 0; i < unknown.size() && !checked.isCancelled; ++i) {
        if (bad != checked.bad.end() && bad->index == i)
            ++bad;
        else
            facts.emplace(places[i], std::move(*good++));
    }
    return facts;
}

/// The entries of the document in the order in which they are wanted.
std::vector<std::size_t> orderOf(const std::vector<std::optional<std::size_t>>& places)
{
    std::vector<std::size_t> order;
    for (const auto& place : places)
        if (place)
            order.push_back(*place);
    return order;
}

/// Takes out entries that nobody wants, from the last on.
/// @param matches  in and out: the entries' places, which change with it
template <typename Remove>
void removeUnwanted(std::size_t count, std::vector<std::optional<std::size_t>>& matches, Remove remove)
{
    std::vector<bool> isWanted(count);
    for (const auto& match : matches)
        if (match)
            isWanted[*match] = true;
    std::vector<std::size_t> places(count);
    std::size_t next = 0;
    for (std::size_t i = 0; i < count; ++i)
        places[i] = isWanted[i] ? next++ : 0;
    for (auto& match : matches)
        if (match)
            match = places[*match];
    for (std::size_t i = count; i-- > 0;)
        if (!isWanted[i])
            remove(i);
}

} // namespace

DocumentDisk::DocumentDisk(std::filesystem::path stateFolder) : stateFolder_(std::move(stateFolder)) {}

bool DocumentDisk::lockSession(const std::string& name)
{
    auto lock = lockOf(sessionFolder() / (name + std::string(kLockExtension)));
    if (!lock)
        return false;
    sessionName_ = name;
    sessionLock_ = std::move(lock);
    return true;
}

std::optional<Error> DocumentDisk::writeSession(const SavedSession& session)
{
    if (sessionName_.empty()) {
        std::error_code failure;
        fs::create_directories(sessionFolder(), failure);
        if (failure || !lockSession(newName()))
            return unwritten(sessionFolder(), failure ? failure.value() : errno);
    }
    return writeFile(sessionFolder() / (sessionName_ + std::string(kSessionExtension)), textOfSession(session));
}

void DocumentDisk::removeSession()
{
    if (sessionName_.empty())
        return;
    std::error_code ignored;
    fs::remove(sessionFolder() / (sessionName_ + std::string(kSessionExtension)), ignored);
    fs::remove(sessionFolder() / (sessionName_ + std::string(kLockExtension)), ignored);
    leaveSession();
}

void DocumentDisk::leaveSession()
{
    sessionName_.clear();
    sessionLock_.reset();
}

std::optional<LoadedDocument> DocumentDisk::takeLastSession()
{
    for (const fs::path& file : sessionsIn(sessionFolder())) {
        if (!lockSession(file.stem().native()))
            continue;
        const auto session = sessionOfText(contentsOf(file));
        if (!session) {
            leaveSession();
            continue;
        }
        if (!session->document)
            return loadedOf(*session);
        const std::string name = sessionName_;
        platform::FileDescriptor lock = std::move(sessionLock_);
        auto loaded = open(*session->document);
        sessionName_ = name;
        sessionLock_ = std::move(lock);
        // Without its document what was on the screen is still worth more than nothing.
        if (!loaded)
            return loadedOf(*session);
        loaded->unsaved = *session;
        return *std::move(loaded);
    }
    return std::nullopt;
}

std::optional<SavedSession> DocumentDisk::takeSessionOf(const std::filesystem::path& document)
{
    for (const fs::path& file : sessionsIn(sessionFolder())) {
        auto session = sessionOfText(contentsOf(file));
        if (session && session->document == document && lockSession(file.stem().native()))
            return session;
    }
    return std::nullopt;
}

std::optional<Error> DocumentDisk::faultOf(const std::filesystem::path& location)
{
    if (location.extension() == kSessionExtension) {
        if (sessionOfText(contentsOf(location)))
            return std::nullopt;
        return Error{ErrorCode::DocumentDamaged, location,
                     localized("{} is damaged, and cannot be opened", location.native())};
    }
    const auto document = Document::load(location);
    return document ? std::nullopt : std::optional(document.error());
}

Result<LoadedDocument> DocumentDisk::open(const std::filesystem::path& location)
{
    if (location.extension() == kSessionExtension) {
        const auto session = sessionOfText(contentsOf(location));
        if (!session)
            return Error{ErrorCode::DocumentDamaged, location,
                         localized("{} is damaged, and cannot be opened", location.native())};
        if (!lockSession(location.stem().native()))
            return Error{ErrorCode::Failed, location, localized("{} is open in another window", location.native())};
        close();
        return loadedOf(*session);
    }
    auto document = Document::load(location);
    if (!document)
        return document.error();
    close();
    auto loaded = adopt(*std::move(document));
    if (loaded)
        loaded->unsaved = takeSessionOf(*loaded->location);
    return loaded;
}

Result<LoadedDocument> DocumentDisk::adopt(Document document)
{
    document_ = std::move(document);
    document_->keepRemovedFiles();
    noteState();
    LoadedDocument loaded;
    loaded.location = document_->location();
    loaded.settings = document_->settings();
    for (const DocumentPhoto& photo : document_->photos())
        loaded.photos.push_back({.path = photo.path,
                                 .title = photo.title.empty() ? photo.path.stem().native() : photo.title,
                                 .fault = photo.fault});
    for (const DocumentSoundtrack& sound : document_->soundtracks())
        loaded.sounds.push_back({.path = sound.path,
                                 .title = sound.path.stem().native(),
                                 .fault = sound.fault,
                                 .selection = sound.selection});
    return loaded;
}

void DocumentDisk::noteState()
{
    state_ = stateOf(document_->location() / "Document.plist");
}

bool DocumentDisk::isChangedByOthers()
{
    if (!document_)
        return false;
    const std::string state = stateOf(document_->location() / "Document.plist");
    return !state.empty() && state != state_;
}

Result<LoadedDocument> DocumentDisk::reload()
{
    auto document = Document::load(document_->location());
    if (!document)
        return document.error();
    return adopt(*std::move(document));
}

void DocumentDisk::close()
{
    if (document_)
        document_->removeKeptFiles();
    document_.reset();
}

SavedDocument DocumentDisk::saveAs(const std::filesystem::path& location, const DocumentToSave& what)
{
    auto created = Document::create(location);
    if (!created)
        return {.error = created.error()};
    std::optional<Document> before = std::exchange(document_, *std::move(created));
    document_->keepRemovedFiles();
    SavedDocument saved = bringUpTo(what);
    if (saved.error) {
        document_ = std::move(before);
        return saved;
    }
    if (before)
        before->removeKeptFiles();
    return saved;
}

SavedDocument DocumentDisk::save(const DocumentToSave& what)
{
    // Before anything is copied.
    if (isChangedByOthers())
        return {.error = Error{ErrorCode::DocumentChanged, document_->location(),
                               localized("{} was changed by another program", document_->location().native())}};
    return bringUpTo(what);
}

SavedDocument DocumentDisk::saveOver(const DocumentToSave& what)
{
    if (const auto loaded = reload(); !loaded)
        return {.error = loaded.error()};
    return bringUpTo(what);
}

SavedDocument DocumentDisk::bringUpTo(const DocumentToSave& what)
{
    const auto stays = [this](const CopyProgress&) { return !isStopped_; };
    const auto items = document_->photos();
    auto photos = matched(items, what.photos);
    removeUnwanted(items.size(), photos, [this](std::size_t index) { document_->removePhoto(index); });
    const auto tracks = document_->soundtracks();
    auto sounds = matched(tracks, what.sounds);
    removeUnwanted(tracks.size(), sounds, [this](std::size_t index) { document_->removeSoundtrack(index); });

    std::vector<std::size_t> missing;
    for (std::size_t i = 0; i < photos.size(); ++i)
        if (!photos[i])
            missing.push_back(i);
    const auto facts = factsOf(what.photos, missing, isStopped_);
    std::vector<PhotoFacts> newPhotos;
    const std::size_t photosBefore = document_->photos().size();
    for (const auto& [place, fact] : facts) {
        photos[place] = photosBefore + newPhotos.size();
        newPhotos.push_back(fact);
    }
    std::vector<SoundArgument> arguments;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < sounds.size(); ++i)
        if (!sounds[i]) {
            arguments.push_back(argumentOf(what.sounds[i]));
            places.push_back(i);
        }
    CheckedSounds checked = checkSounds(arguments, [this] { return !isStopped_; });
    const std::size_t soundsBefore = document_->soundtracks().size();
    for (std::size_t i = 0, good = 0; i < places.size() && !checked.isCancelled; ++i)
        if (std::ranges::find(checked.bad, i, &BadFile::index) == checked.bad.end())
            sounds[places[i]] = soundsBefore + good++;
    if (isStopped_ && (!missing.empty() || !arguments.empty()))
        return {.error = Error{ErrorCode::Cancelled, document_->location(), localized("stopped")}};
    if (const auto added = document_->add(newPhotos, checked.good, stays); !added)
        return {.error = added.error()};

    const auto tracksNow = document_->soundtracks();
    for (std::size_t i = 0; i < sounds.size(); ++i)
        if (sounds[i] && tracksNow[*sounds[i]].state != DocumentItem::State::Damaged &&
            tracksNow[*sounds[i]].selection != what.sounds[i].selection)
            document_->setSelection(*sounds[i], what.sounds[i].selection);
    document_->setPhotoOrder(orderOf(photos));
    document_->setSoundtrackOrder(orderOf(sounds));
    document_->setSettings(what.settings);
    if (const auto saved = document_->save(); !saved)
        return {.error = saved.error()};
    noteState();

    SavedDocument saved;
    const auto photosNow = document_->photos();
    for (std::size_t i = 0, place = 0; i < photos.size(); ++i)
        if (photos[i])
            saved.photos.emplace(what.photos[i].id, photosNow[place++].path);
    const auto soundsNow = document_->soundtracks();
    for (std::size_t i = 0, place = 0; i < sounds.size(); ++i)
        if (sounds[i])
            saved.sounds.emplace(what.sounds[i].id, soundsNow[place++].path);
    return saved;
}

void DocumentDisk::remember(const std::filesystem::path& location)
{
    auto locations = remembered();
    std::erase(locations, location);
    locations.insert(locations.begin(), location);
    std::string text;
    for (std::size_t i = 0; i < std::min(locations.size(), kMostRecent); ++i)
        text += escapedWord(locations[i].native()) + "\n";
    // Without it nothing is lost.
    static_cast<void>(writeFile(stateFolder_ / kRecentName, text));
}

std::vector<std::filesystem::path> DocumentDisk::remembered() const
{
    std::vector<fs::path> locations;
    std::ifstream stream(stateFolder_ / kRecentName, std::ios::binary);
    for (std::string line; std::getline(stream, line);) {
        const auto path = unescapedWord(line);
        std::error_code failure;
        if (path && !path->empty() && fs::exists(fs::path(*path) / "Document.plist", failure))
            locations.emplace_back(*path);
    }
    return locations;
}

std::vector<std::pair<std::filesystem::path, std::size_t>> DocumentDisk::unnamed() const
{
    std::vector<std::pair<fs::path, std::size_t>> found;
    for (const fs::path& file : sessionsIn(sessionFolder())) {
        const fs::path lock = sessionFolder() / (file.stem().native() + std::string(kLockExtension));
        if (file.stem() == sessionName_ || !lockOf(lock))
            continue;
        const auto session = sessionOfText(contentsOf(file));
        if (session && !session->document)
            found.emplace_back(file, session->photos.size());
    }
    return found;
}

} // namespace stillora::window
