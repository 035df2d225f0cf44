#include <stillora/Document.h>

#include "client/files/ResourceCopier.h"
#include "client/movie/MovieSettings.h"
#include "client/text/ClientError.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "items/SavedForm.h"
#include "platform/files/NSFileManager.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <cassert>
#include <cerrno>
#include <cmath>
#include <filesystem>
#include <functional>
#include <set>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace stillora {

using platform::NSData;
using platform::NSError;
using platform::NSFileManager;
using platform::NSURL;
using platform::PropertyList;

namespace {

/// The property list's name in the document's folder.
constexpr std::string_view kPropertyListName = "Document.plist";
/// The newest form of the property list that is known here.
constexpr int64_t kFormatVersion = 1;

constexpr std::string_view kVersionKey = "formatVersion";
constexpr std::string_view kPhotosKey = "photos";
constexpr std::string_view kSoundtracksKey = "soundtracks";
constexpr std::string_view kSettingsKey = "settings";

constexpr std::string_view kResources = "Resources";
constexpr std::string_view kPhotosFolder = "Resources/Photos";
constexpr std::string_view kSoundtracksFolder = "Resources/Soundtracks";

/// Of a new document before it gets its name.
constexpr std::string_view kNewPrefix = ".stillora-new-";

/// As much as a property list that is read may hold.
constexpr uint64_t kMaxPropertyListBytes = uint64_t{64} << 20;

constexpr int kLockPollMilliseconds = 50;
/// How long `save` waits for another process that is saving.
constexpr int kSavePolls = 10'000 / kLockPollMilliseconds;

/// The saved form of a selection has six decimals.
constexpr double kSelectionUnits = 1e6;

platform::FileDescriptor openFolder(const std::string& path, int flags = 0)
{
    return platform::FileDescriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | flags));
}

enum class LockAnswer { Held, Busy, Impossible };

LockAnswer tryLock(const platform::FileDescriptor& folder)
{
    while (flock(folder.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR)
            continue;
        return errno == EWOULDBLOCK ? LockAnswer::Busy : LockAnswer::Impossible;
    }
    return LockAnswer::Held;
}

/// File systems without locks are used without them: `save` still looks for changes of others.
bool waitForLock(const platform::FileDescriptor& folder, const std::function<bool()>& waits)
{
    while (tryLock(folder) == LockAnswer::Busy) {
        if (!waits())
            return false;
        poll(nullptr, 0, kLockPollMilliseconds);
    }
    return true;
}

/// Removes what processes that are gone have left of documents they did not finish.
void removeAbandoned(const std::string& parent)
{
    std::error_code ignored;
    std::vector<std::string> folders;
    for (auto entry = std::filesystem::directory_iterator(parent, ignored);
         entry != std::filesystem::directory_iterator(); entry.increment(ignored))
        if (entry->path().filename().native().starts_with(kNewPrefix))
            folders.push_back(entry->path().native());
    for (const std::string& path : folders) {
        const auto folder = openFolder(path, O_NOFOLLOW);
        if (folder && tryLock(folder) == LockAnswer::Held)
            std::filesystem::remove_all(path, ignored);
    }
}

/// "." and ".." stand for a folder with a name.
NSURL locationOf(const NSURL& given)
{
    const std::string last = given.lastPathComponent();
    std::error_code failure;
    const auto path = last == "." || last == ".." ? std::filesystem::canonical(given.path(), failure)
                                                  : std::filesystem::path(given.path());
    return NSURL::fileURLWithPath(failure ? given.path() : path.native(), true);
}

/// Whether a path below the document stays there: "Resources/../.." would lead to any file of the user's.
bool staysInside(const std::string& path)
{
    const std::filesystem::path parts(path);
    return std::none_of(parts.begin(), parts.end(), [](const auto& part) { return part == ".." || part == "."; });
}

std::optional<NSURL> urlOf(const MORPhoto& photo)
{
    return photo.photoURL();
}

std::optional<NSURL> urlOf(const MORSoundtrack& soundtrack)
{
    return soundtrack.soundtrackURL();
}

void setURL(MORPhoto& photo, NSURL url)
{
    photo.setPhotoURL(std::move(url));
}

void setURL(MORSoundtrack& soundtrack, NSURL url)
{
    soundtrack.setSoundtrackURL(std::move(url));
}

MORPhotoPtr itemOf(const NSData& saved, const NSURL& location, NSError* error, const MORPhoto*)
{
    return MORPhoto::photoWithSaveData(saved, location, error);
}

MORSoundtrackPtr itemOf(const NSData& saved, const NSURL& location, NSError* error, const MORSoundtrack*)
{
    return MORSoundtrack::soundtrackWithSaveData(saved, location, error);
}

/// A photo or soundtrack with its saved form.
template <typename Item>
struct Entry {
    using State = DocumentItem::State;

    State state = State::Good;
    /// Null where the saved form cannot be read.
    std::shared_ptr<Item> item = nullptr;
    std::string fault = {};
    /// As it stands in the property list; an item that was not changed is written back byte for byte. Nothing for a new
    /// item.
    std::optional<PropertyList> saved = {};
    /// What the item's saved form was when it was read.
    std::optional<NSData> unchanged = {};

    /// Where the item's file lies; empty where that is not known.
    std::string path() const
    {
        const auto url = item ? urlOf(*item) : std::nullopt;
        return url ? url->path() : std::string();
    }
};

/// Zeros mean the whole file, and unlike the marker for it they survive being saved. The end is rounded up, so that a
/// part which reaches the file's end still does.
SoundtrackSelection savedSelection(const std::optional<SoundFacts::Selection>& part)
{
    if (!part)
        return {};
    const double end = std::ceil(part->end.count() * kSelectionUnits) / kSelectionUnits;
    return {part->start.count(), end, end - part->start.count()};
}

std::optional<SoundFacts::Selection> selectionOf(const MORSoundtrack& soundtrack)
{
    const SoundtrackSelection selection = soundtrack.selection();
    // The marker's length is lost when it is saved.
    const bool isMarker = selection.start == kNoSelection.start && selection.end == kNoSelection.end;
    if (isMarker || selection == SoundtrackSelection{})
        return std::nullopt;
    return SoundFacts::Selection{Seconds(selection.start), Seconds(selection.end)};
}

/// Why an item could not be made of its saved form.
std::string faultOfSavedForm(const NSData& saved, const NSError& error)
{
    if (error.code != 0)
        return localized("is damaged: {}", error.localizedDescription);
    NSError problem;
    return saved_form::read(saved, &problem) ? localized("is damaged: it names no file among the document's resources")
                                             : localized("is of another version, or is damaged");
}

template <typename Item>
Entry<Item> entryOf(const PropertyList& saved, const NSURL& location)
{
    using State = DocumentItem::State;
    Entry<Item> entry;
    entry.saved = saved;
    const auto damaged = [&](const std::string& fault) {
        entry.state = State::Damaged;
        entry.fault = fault;
        entry.item = nullptr;
        return std::move(entry);
    };
    const auto* data = saved.as<NSData>();
    if (!data)
        return damaged(localized("is damaged: it is no saved item"));
    NSError error;
    entry.item = itemOf(*data, location, &error, static_cast<const Item*>(nullptr));
    if (!entry.item)
        return damaged(faultOfSavedForm(*data, error));
    const std::string path = urlOf(*entry.item)->path();
    if (!staysInside(path.substr(std::min(location.path().size(), path.size()))))
        return damaged(localized("is damaged: its file is not among the document's resources"));
    // Of an item that cannot be saved again, what was read is kept.
    entry.unchanged = entry.item->saveData();

    struct stat status = {};
    if (stat(path.c_str(), &status) != 0) {
        entry.state = State::FileMissing;
        entry.fault = errno == ENOENT ? localized("is missing") : localized("cannot be read: {}", reasonOfErrno(errno));
    } else if (!S_ISREG(status.st_mode)) {
        entry.state = State::FileMissing;
        entry.fault = localized("is not a regular file");
    }
    return entry;
}

template <typename Item>
bool readEntries(const PropertyList::Dictionary& saved, std::string_view key, const NSURL& location,
                 std::vector<Entry<Item>>& entries)
{
    const auto found = saved.find(key);
    if (found == saved.end())
        return true;
    const auto* array = found->second.template as<PropertyList::Array>();
    if (!array)
        return false;
    entries.reserve(array->size());
    for (const PropertyList& object : *array)
        entries.push_back(entryOf<Item>(object, location));
    return true;
}

/// The saved forms, for writing: those that were not changed byte for byte.
template <typename Item>
bool writeEntries(const std::vector<Entry<Item>>& entries, PropertyList::Array& saved, NSError* error)
{
    for (const Entry<Item>& entry : entries) {
        NSError problem;
        auto data = entry.item ? entry.item->saveData(&problem) : std::nullopt;
        if (entry.saved && (!entry.item || data == entry.unchanged)) {
            saved.push_back(*entry.saved);
        } else if (data) {
            saved.emplace_back(std::move(*data));
        } else {
            if (error)
                *error = std::move(problem);
            return false;
        }
    }
    return true;
}

template <typename Item>
void moveURLs(const std::vector<Entry<Item>>& entries, const std::string& from, const std::string& to)
{
    for (const Entry<Item>& entry : entries) {
        if (const std::string path = entry.path(); path.starts_with(from + "/"))
            setURL(*entry.item, NSURL::fileURLWithPath(to + path.substr(from.size()), false));
    }
}

/// Files that processes which are gone have left of a writing they did not finish.
void removeUnfinished(const std::string& folder)
{
    std::error_code ignored;
    std::vector<std::filesystem::path> files;
    for (auto entry = std::filesystem::directory_iterator(folder, ignored);
         entry != std::filesystem::directory_iterator(); entry.increment(ignored))
        if (entry->path().filename().native().starts_with(".writing-"))
            files.push_back(entry->path());
    for (const auto& file : files)
        std::filesystem::remove(file, ignored);
}

} // namespace

/// The document with its items as they are saved.
class STILLORA_HIDDEN Document::Content final {
public:
    [[nodiscard]] static std::unique_ptr<Content> create(const NSURL& location, NSError* error);
    /// @param waits  where the document is to be kept from changes of others
    [[nodiscard]] static std::unique_ptr<Content> open(const NSURL& location, const std::function<bool()>* waits,
                                                       NSError* error);
    ~Content();
    Content(const Content&) = delete;
    Content& operator=(const Content&) = delete;

    [[nodiscard]] bool add(const std::vector<PhotoFacts>& photos, const std::vector<SoundFacts>& sounds,
                           const std::function<bool(const CopyProgress&)>& progress, NSError* error);
    [[nodiscard]] bool save(NSError* error);
    std::vector<std::filesystem::path> unusedFiles() const;
    void removeKeptFiles();

    const NSURL location_;
    const std::filesystem::path path_ = location_.path();
    std::vector<Entry<MORPhoto>> photos_;
    std::vector<Entry<MORSoundtrack>> soundtracks_;
    MovieSettings settings_;
    std::vector<std::string> settingFaults_;
    /// Keys of settings that are written in any case.
    std::set<std::string, std::less<>> rewrittenSettings_;
    /// Paths of the files of removed items.
    std::vector<std::string> removedFiles_;
    bool keepsRemovedFiles_ = false;
    /// Paths of the files of removed items that may come back.
    std::vector<std::string> keptFiles_;

private:
    explicit Content(NSURL location) : location_(std::move(location)), folder_(location_.path()) {}

    [[nodiscard]] bool read(NSError* error);
    [[nodiscard]] bool isUnchangedOnDisk(NSError* error) const;
    [[nodiscard]] std::optional<NSData> propertyList(NSError* error) const;
    void setFolder(const std::string& path);
    void adoptSaved(NSData written);
    void removeFiles(const std::vector<std::string>& paths) const;
    bool isUsed(const std::string& path) const;
    bool hasDamagedItems() const;
    std::string propertyListPath() const { return fmt::format("{}/{}", folder_, kPropertyListName); }

    /// Where the files are: the location, but for a new document before it is saved.
    std::string folder_;
    /// Keeps other processes from changing the document, where it is held.
    platform::FileDescriptor lock_;
    bool isNew_ = false;
    MovieSettings savedSettings_;

    /// The property list as it was read or written last, with all that is not known here.
    PropertyList::Dictionary saved_;
    NSData savedBytes_;

    /// Paths of copies that no saved item has yet.
    std::vector<std::string> addedFiles_;
};

std::unique_ptr<Document::Content> Document::Content::create(const NSURL& location, NSError* error)
{
    const std::string& path = location.path();
    struct stat status = {};
    if (lstat(path.c_str(), &status) == 0) {
        fail(error, ErrorCode::DocumentExists, localized("{} is there already", path));
        return nullptr;
    }
    const std::string parent = location.URLByDeletingLastPathComponent().path();
    removeAbandoned(parent);

    std::unique_ptr<Content> document(new Content(NSURL::fileURLWithPath(path, true)));
    document->isNew_ = true;
    document->folder_ = (parent == "/" ? "" : parent) + "/" + std::string(kNewPrefix) + platform::NSUUIDString();
    if (mkdir(document->folder_.c_str(), 0777) != 0) {
        platform::failWithErrno(error, errno, localized("the document {} cannot be made", path));
        document->folder_.clear();
        return nullptr;
    }
    document->lock_ = openFolder(document->folder_, O_NOFOLLOW);
    static_cast<void>(tryLock(document->lock_));
    for (const std::string_view folder : {kResources, kPhotosFolder, kSoundtracksFolder}) {
        if (mkdir((document->folder_ + "/" + std::string(folder)).c_str(), 0777) != 0) {
            platform::failWithErrno(error, errno, localized("the document {} cannot be made", path));
            return nullptr;
        }
    }
    return document;
}

std::unique_ptr<Document::Content> Document::Content::open(const NSURL& location, const std::function<bool()>* waits,
                                                           NSError* error)
{
    std::unique_ptr<Content> document(new Content(locationOf(location)));
    const std::string& path = document->location_.path();
    const auto noDocument = [&](const std::string& reason) {
        fail(error, ErrorCode::NoDocument, fmt::format("{}: {}", path, reason));
        return nullptr;
    };
    auto folder = openFolder(path);
    if (!folder)
        return noDocument(errno == ENOTDIR ? localized("is no document: it is not a folder") : reasonOfErrno(errno));
    if (access(document->propertyListPath().c_str(), F_OK) != 0)
        return noDocument(localized("is no document: there is no {} in it", kPropertyListName));
    if (waits) {
        if (!waitForLock(folder, *waits)) {
            fail(error, ErrorCode::Cancelled, localized("{} is being changed by another program", path));
            return nullptr;
        }
        removeUnfinished(path);
        document->lock_ = std::move(folder);
    }
    return document->read(error) ? std::move(document) : nullptr;
}

bool Document::Content::read(NSError* error)
{
    const auto damaged = [&](const std::string& what) {
        return fail(error, ErrorCode::DocumentDamaged,
                    localized("{} is damaged: its {} {}", location_.path(), kPropertyListName, what));
    };
    auto bytes = NSFileManager::defaultManager().contentsAtURL(NSURL::fileURLWithPath(propertyListPath(), false),
                                                               kMaxPropertyListBytes, error);
    if (!bytes)
        return false;
    const auto propertyList = platform::propertyListWithData(*bytes);
    const auto* dictionary = propertyList ? propertyList->as<PropertyList::Dictionary>() : nullptr;
    if (!dictionary)
        return damaged(bytes->empty() ? localized("is empty") : localized("is no property list of a document"));
    const auto* version = propertyList->objectForKey<int64_t>(kVersionKey);
    if (!version || *version < 1)
        return damaged(localized("does not tell its version"));
    if (*version > kFormatVersion)
        return fail(error, ErrorCode::DocumentTooNew,
                    localized("{} was made by a newer version of this program: it has format {}, and the newest "
                              "that can be read here is {}",
                              location_.path(), *version, kFormatVersion));
    if (!readEntries(*dictionary, kPhotosKey, location_, photos_))
        return damaged(localized("has no list of photos"));
    if (!readEntries(*dictionary, kSoundtracksKey, location_, soundtracks_))
        return damaged(localized("has no list of soundtracks"));
    if (const auto settings = dictionary->find(kSettingsKey); settings != dictionary->end()) {
        if (!settings->second.as<PropertyList::Dictionary>())
            return damaged(localized("has no list of settings"));
        settings_ = readMovieSettings(*settings->second.as<PropertyList::Dictionary>(), settingFaults_);
    }
    savedSettings_ = settings_;
    saved_ = *dictionary;
    savedBytes_ = std::move(*bytes);
    return true;
}

Document::Content::~Content()
{
    removeFiles(addedFiles_);
    if (isNew_ && !folder_.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
}

bool Document::Content::add(const std::vector<PhotoFacts>& photos, const std::vector<SoundFacts>& sounds,
                            const std::function<bool(const CopyProgress&)>& progress, NSError* error)
{
    ResourceCopier copier(folder_);
    std::vector<std::string> photoSources;
    std::vector<std::string> soundSources;
    for (const PhotoFacts& photo : photos)
        photoSources.push_back(photo.path.native());
    for (const SoundFacts& sound : sounds)
        soundSources.push_back(sound.path.native());
    if (!copier.reserve(std::string(kPhotosFolder), photoSources, ResourceCopier::Kind::Photo, error) ||
        !copier.reserve(std::string(kSoundtracksFolder), soundSources, ResourceCopier::Kind::Sound, error) ||
        !copier.copy(progress, error))
        return false;

    std::vector<Entry<MORPhoto>> newPhotos;
    std::vector<Entry<MORSoundtrack>> newSoundtracks;
    for (size_t i = 0; i < photos.size(); ++i) {
        const ResourceCopier::Copy& copy = copier.copyOf(i);
        const auto source = NSURL::fileURLWithPath(photos[i].path.native(), false);
        Entry<MORPhoto> entry;
        entry.item = std::make_shared<MORPhoto>();
        entry.item->setPhotoURL(NSURL::fileURLWithPath(copy.path, false));
        entry.item->setTitle(platform::stringByReplacingInvalidUTF8(
            platform::stringByDeletingPathExtension(source.lastPathComponent())));
        entry.item->setSize({photos[i].size.width, photos[i].size.height});
        entry.item->setFileSize(static_cast<int64_t>(copy.bytes));
        entry.item->setDateCreated(copy.created);
        entry.item->setAverageImageColor(copy.averageColor);
        newPhotos.push_back(std::move(entry));
    }
    for (size_t i = 0; i < sounds.size(); ++i) {
        Entry<MORSoundtrack> entry;
        entry.item = MORSoundtrack::soundtrackWithURL(
            NSURL::fileURLWithPath(copier.copyOf(photos.size() + i).path, false), savedSelection(sounds[i].selection));
        entry.item->set_originalPath(NSURL::fileURLWithPath(sounds[i].path.native(), false).path());
        newSoundtracks.push_back(std::move(entry));
    }
    std::move(newPhotos.begin(), newPhotos.end(), std::back_inserter(photos_));
    std::move(newSoundtracks.begin(), newSoundtracks.end(), std::back_inserter(soundtracks_));
    for (std::string& path : copier.keep())
        addedFiles_.push_back(std::move(path));
    return true;
}

std::optional<NSData> Document::Content::propertyList(NSError* error) const
{
    PropertyList::Dictionary dictionary = saved_;
    PropertyList::Array photos;
    PropertyList::Array soundtracks;
    if (!writeEntries(photos_, photos, error) || !writeEntries(soundtracks_, soundtracks, error))
        return std::nullopt;
    dictionary.insert_or_assign(std::string(kPhotosKey), std::move(photos));
    dictionary.insert_or_assign(std::string(kSoundtracksKey), std::move(soundtracks));
    PropertyList::Dictionary settings;
    if (const auto entry = saved_.find(kSettingsKey); entry != saved_.end())
        settings = *entry->second.as<PropertyList::Dictionary>();
    if (isNew_)
        dictionary.insert_or_assign(std::string(kVersionKey), int64_t{kFormatVersion});
    // Of a new document every setting is written, so that another program's defaults do not matter.
    writeMovieSettings(isNew_ ? std::nullopt : std::optional(savedSettings_), settings_, rewrittenSettings_, settings);
    dictionary.insert_or_assign(std::string(kSettingsKey), std::move(settings));
    auto data = platform::dataWithPropertyList(PropertyList(std::move(dictionary)), error);
    // What cannot be read again must not replace what can.
    if (data && (data->size() > kMaxPropertyListBytes || !platform::propertyListWithData(*data))) {
        fail(error, ErrorCode::OutOfRange, localized("{} would hold too many items", location_.path()));
        return std::nullopt;
    }
    return data;
}

bool Document::Content::isUnchangedOnDisk(NSError* error) const
{
    NSError problem;
    const auto bytes = NSFileManager::defaultManager().contentsAtURL(NSURL::fileURLWithPath(propertyListPath(), false),
                                                                     kMaxPropertyListBytes, &problem);
    if (bytes && *bytes == savedBytes_)
        return true;
    return fail(
        error, ErrorCode::DocumentChanged,
        localized("{} was changed by another program since it was opened; nothing was saved", location_.path()));
}

void Document::Content::setFolder(const std::string& path)
{
    moveURLs(photos_, folder_, path);
    moveURLs(soundtracks_, folder_, path);
    for (std::vector<std::string>* paths : {&addedFiles_, &removedFiles_, &keptFiles_})
        for (std::string& file : *paths)
            if (file.starts_with(folder_ + "/"))
                file.replace(0, folder_.size(), path);
    folder_ = path;
}

bool Document::Content::save(NSError* error)
{
    auto& files = NSFileManager::defaultManager();
    if (isNew_) {
        // Saved forms hold paths, which should be those of the document that will be seen.
        const std::string hidden = folder_;
        setFolder(location_.path());
        auto data = propertyList(error);
        setFolder(hidden);
        if (!data || !files.writeContents(*data, NSURL::fileURLWithPath(propertyListPath(), false), error))
            return false;
        NSError problem;
        if (!files.moveItemAtURL(NSURL::fileURLWithPath(hidden, true), location_, &problem)) {
            if (problem.domain == platform::kNSCocoaErrorDomain &&
                problem.code == platform::kNSFileWriteFileExistsError)
                return fail(error, ErrorCode::DocumentExists, localized("{} is there already", location_.path()));
            if (error)
                *error = std::move(problem);
            return false;
        }
        isNew_ = false;
        setFolder(location_.path());
        // It was held to tell others that somebody is at work on a document without a name.
        lock_.reset();
        adoptSaved(std::move(*data));
        return true;
    }

    platform::FileDescriptor folder;
    if (!lock_) {
        folder = openFolder(folder_);
        int polls = kSavePolls;
        if (folder && !waitForLock(folder, [&polls] { return polls-- > 0; }))
            return fail(error, ErrorCode::DocumentChanged,
                        localized("{} is being changed by another program; nothing was saved", location_.path()));
    }
    auto data = isUnchangedOnDisk(error) ? propertyList(error) : std::nullopt;
    if (!data || !files.writeContents(*data, NSURL::fileURLWithPath(propertyListPath(), false), error))
        return false;
    adoptSaved(std::move(*data));
    return true;
}

/// What is in memory is now also in the folder.
void Document::Content::adoptSaved(NSData written)
{
    const auto adopt = [](auto& entries) {
        for (auto& entry : entries) {
            auto data = entry.item ? entry.item->saveData() : std::nullopt;
            if (!data || (entry.saved && data == entry.unchanged))
                continue;
            entry.saved = PropertyList(*data);
            entry.unchanged = std::move(data);
        }
    };
    adopt(photos_);
    adopt(soundtracks_);
    savedSettings_ = settings_;
    // Just written, and read before that.
    saved_ = *platform::propertyListWithData(written)->as<PropertyList::Dictionary>();
    savedBytes_ = std::move(written);
    addedFiles_.clear();
    rewrittenSettings_.clear();
    settingFaults_.clear();
    readMovieSettings(*saved_.find(kSettingsKey)->second.as<PropertyList::Dictionary>(), settingFaults_);

    std::vector<std::string> unneeded;
    for (std::string& path : removedFiles_)
        if (keepsRemovedFiles_)
            keptFiles_.push_back(std::move(path));
        else if (!hasDamagedItems() && !isUsed(path))
            unneeded.push_back(std::move(path));
    removedFiles_.clear();
    removeFiles(unneeded);
}

/// Only files among the resources: an item may have been given any location, and a link instead of a folder might lead
/// to files of the user's.
void Document::Content::removeFiles(const std::vector<std::string>& paths) const
{
    const std::string resources = folder_ + "/" + std::string(kResources) + "/";
    for (const std::string& path : paths) {
        if (!path.starts_with(resources) || !staysInside(path.substr(resources.size())))
            continue;
        const std::filesystem::path relative = path.substr(folder_.size() + 1);
        auto folder = openFolder(folder_);
        for (const auto& part : relative.parent_path())
            if (folder)
                folder.reset(openat(folder.get(), part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (folder)
            unlinkat(folder.get(), relative.filename().c_str(), 0);
    }
}

bool Document::Content::isUsed(const std::string& path) const
{
    const auto uses = [&path](const auto& entry) { return entry.path() == path; };
    return std::any_of(photos_.begin(), photos_.end(), uses) ||
           std::any_of(soundtracks_.begin(), soundtracks_.end(), uses);
}

bool Document::Content::hasDamagedItems() const
{
    const auto isDamaged = [](const auto& entry) { return !entry.item; };
    return std::any_of(photos_.begin(), photos_.end(), isDamaged) ||
           std::any_of(soundtracks_.begin(), soundtracks_.end(), isDamaged);
}

std::vector<std::filesystem::path> Document::Content::unusedFiles() const
{
    std::vector<std::filesystem::path> unused;
    if (hasDamagedItems())
        return unused;
    std::set<std::string> used;
    for (const auto& photo : photos_)
        used.insert(photo.path());
    for (const auto& soundtrack : soundtracks_)
        used.insert(soundtrack.path());
    for (const std::string_view name : {kPhotosFolder, kSoundtracksFolder}) {
        std::error_code ignored;
        for (auto entry = std::filesystem::directory_iterator(folder_ + "/" + std::string(name), ignored);
             entry != std::filesystem::directory_iterator(); entry.increment(ignored))
            if (!used.contains(entry->path().native()))
                unused.push_back(entry->path().native());
    }
    std::sort(unused.begin(), unused.end());
    return unused;
}

void Document::Content::removeKeptFiles()
{
    const platform::FileDescriptor folder = lock_ ? platform::FileDescriptor() : openFolder(folder_);
    if ((folder && tryLock(folder) == LockAnswer::Busy) || hasDamagedItems() || !isUnchangedOnDisk(nullptr))
        return;
    std::erase_if(keptFiles_, [this](const std::string& path) { return isUsed(path); });
    removeFiles(keptFiles_);
    keptFiles_.clear();
}

namespace {

template <typename Public, typename Item>
Public described(const Entry<Item>& entry)
{
    Public item;
    item.state = entry.state;
    item.fault = entry.fault;
    item.path = entry.path();
    return item;
}

template <typename Item>
void putInOrder(std::vector<Entry<Item>>& entries, const std::vector<size_t>& order)
{
    assert(order.size() == entries.size());
    std::vector<Entry<Item>> ordered;
    ordered.reserve(order.size());
    for (const size_t index : order)
        ordered.push_back(std::move(entries[index]));
    entries = std::move(ordered);
}

} // namespace

Document::Document(std::unique_ptr<Content> content) : content_(std::move(content)) {}
Document::~Document() = default;
Document::Document(Document&& other) noexcept = default;
Document& Document::operator=(Document&& other) noexcept = default;

Result<Document> Document::create(const std::filesystem::path& location)
{
    NSError error;
    auto content = Content::create(NSURL::fileURLWithPath(location.native(), true), &error);
    return content ? Result(Document(std::move(content))) : errorOf(error, location);
}

Result<Document> Document::load(const std::filesystem::path& location)
{
    NSError error;
    auto content = Content::open(NSURL::fileURLWithPath(location.native(), true), nullptr, &error);
    return content ? Result(Document(std::move(content))) : errorOf(error, location);
}

Result<Document> Document::loadForChange(const std::filesystem::path& location, const std::function<bool()>& waits)
{
    NSError error;
    auto content = Content::open(NSURL::fileURLWithPath(location.native(), true), &waits, &error);
    return content ? Result(Document(std::move(content))) : errorOf(error, location);
}

const std::filesystem::path& Document::location() const
{
    return content_->path_;
}

std::string Document::name() const
{
    return platform::stringByDeletingPathExtension(content_->location_.lastPathComponent());
}

std::vector<DocumentPhoto> Document::photos() const
{
    std::vector<DocumentPhoto> photos;
    for (const Entry<MORPhoto>& entry : content_->photos_) {
        auto& photo = photos.emplace_back(described<DocumentPhoto>(entry));
        if (!entry.item)
            continue;
        photo.title = entry.item->title().value_or("");
        photo.size = {entry.item->size().width, entry.item->size().height};
        photo.fileSize = entry.item->fileSize();
        if (const auto color = entry.item->averageImageColor())
            photo.averageColor = Color{color->red, color->green, color->blue};
        if (const auto date = entry.item->dateCreated())
            photo.created.emplace(Seconds(date->timeIntervalSinceReferenceDate + platform::kTimeIntervalSince1970));
        photo.isFeatured = entry.item->isFeatured();
    }
    return photos;
}

std::vector<DocumentSoundtrack> Document::soundtracks() const
{
    std::vector<DocumentSoundtrack> soundtracks;
    for (const Entry<MORSoundtrack>& entry : content_->soundtracks_) {
        auto& soundtrack = soundtracks.emplace_back(described<DocumentSoundtrack>(entry));
        if (!entry.item)
            continue;
        soundtrack.selection = selectionOf(*entry.item);
        soundtrack.originalPath = entry.item->_originalPath();
    }
    return soundtracks;
}

const MovieSettings& Document::settings() const
{
    return content_->settings_;
}

void Document::setSettings(MovieSettings settings)
{
    content_->settings_ = std::move(settings);
}

void Document::rewriteSetting(std::string_view key)
{
    content_->rewrittenSettings_.emplace(key);
}

const std::vector<std::string>& Document::settingFaults() const
{
    return content_->settingFaults_;
}

Result<void> Document::add(const std::vector<PhotoFacts>& photos, const std::vector<SoundFacts>& sounds,
                           const std::function<bool(const CopyProgress&)>& progress)
{
    NSError error;
    return content_->add(photos, sounds, progress, &error) ? Result<void>() : errorOf(error, location());
}

void Document::setFeatured(std::size_t photo, bool isFeatured)
{
    content_->photos_[photo].item->setIsFeatured(isFeatured);
}

void Document::setSelection(std::size_t soundtrack, const std::optional<SoundFacts::Selection>& selection)
{
    content_->soundtracks_[soundtrack].item->setSelection(savedSelection(selection));
}

void Document::removePhoto(std::size_t index)
{
    auto& photos = content_->photos_;
    content_->removedFiles_.push_back(photos[index].path());
    photos.erase(photos.begin() + static_cast<ptrdiff_t>(index));
}

void Document::removeSoundtrack(std::size_t index)
{
    auto& soundtracks = content_->soundtracks_;
    content_->removedFiles_.push_back(soundtracks[index].path());
    soundtracks.erase(soundtracks.begin() + static_cast<ptrdiff_t>(index));
}

void Document::movePhoto(std::size_t from, std::size_t to)
{
    const auto at = [this](size_t index) { return content_->photos_.begin() + static_cast<ptrdiff_t>(index); };
    if (from < to)
        std::rotate(at(from), at(from + 1), at(to + 1));
    else
        std::rotate(at(to), at(from), at(from + 1));
}

void Document::setPhotoOrder(const std::vector<std::size_t>& order)
{
    putInOrder(content_->photos_, order);
}

void Document::setSoundtrackOrder(const std::vector<std::size_t>& order)
{
    putInOrder(content_->soundtracks_, order);
}

Result<void> Document::save()
{
    NSError error;
    return content_->save(&error) ? Result<void>() : errorOf(error, location());
}

std::vector<std::filesystem::path> Document::unusedFiles() const
{
    return content_->unusedFiles();
}

void Document::keepRemovedFiles()
{
    content_->keepsRemovedFiles_ = true;
}

void Document::removeKeptFiles()
{
    content_->removeKeptFiles();
}

SoundArgument soundArgumentOf(const DocumentSoundtrack& soundtrack)
{
    SoundArgument argument{soundtrack.path, std::nullopt, std::nullopt};
    if (soundtrack.selection) {
        argument.start = soundtrack.selection->start;
        argument.end = soundtrack.selection->end;
    }
    return argument;
}

} // namespace stillora
