#include "platform/files/NSURL.h"

#include "platform/foundation/Handle.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSString.h"
#include "platform/propertylists/NSPropertyListSerialization.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unordered_map>
#include <utility>

namespace platform {

namespace {

// A bookmark is a binary property list of one dictionary with these keys; all but the path may be missing.
constexpr std::string_view kVersionKey = "version";
constexpr std::string_view kPathKey = "path";
/// The path's bytes where they are not UTF-8; "path" is then only for reading by people.
constexpr std::string_view kPathBytesKey = "pathBytes";
constexpr std::string_view kDirectoryKey = "directory";
constexpr std::string_view kDeviceKey = "device";
constexpr std::string_view kInodeKey = "inode";
constexpr std::string_view kBirthKey = "birth";
constexpr std::string_view kVolumeKey = "volume";
/// Inode numbers of the parent folders, root first.
constexpr std::string_view kFoldersKey = "folders";

constexpr int64_t kBookmarkVersion = 1;
/// Seconds; a birth time near today loses a quarter of this as a double.
constexpr double kBirthTolerance = 1e-6;
/// How much may be looked at for one file that is not where it was.
constexpr int kMaximumEntries = 20000;
/// So many are looked at however long it takes: on a busy machine the time may pass without this thread having run.
constexpr int kSureEntries = 500;
constexpr std::chrono::milliseconds kMaximumSearchTime{200};

/// What tells one file from all others of its volume.
struct FileIdentity {
    uint64_t inode = 0;
    uint64_t device = 0;
    uint64_t mount = 0;
    std::optional<double> birth;
    bool isDirectory = false;
};

enum class Links { Follow, Keep };

std::optional<FileIdentity> identityOf(const std::string& path, Links links)
{
    struct statx status {};
    const int flags = AT_STATX_SYNC_AS_STAT | (links == Links::Keep ? AT_SYMLINK_NOFOLLOW : 0);
    if (statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE | STATX_INO | STATX_BTIME | STATX_MNT_ID, &status) != 0)
        return std::nullopt;
    FileIdentity identity;
    identity.inode = status.stx_ino;
    identity.device = makedev(status.stx_dev_major, status.stx_dev_minor);
    identity.mount = status.stx_mask & STATX_MNT_ID ? status.stx_mnt_id : 0;
    if (status.stx_mask & STATX_BTIME)
        identity.birth = static_cast<double>(status.stx_btime.tv_sec) + status.stx_btime.tv_nsec / 1e9;
    identity.isDirectory = S_ISDIR(status.stx_mode);
    return identity;
}

bool exists(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0;
}

bool isFolder(const std::string& path)
{
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string parentOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string joined(const std::string& folder, std::string_view name)
{
    return (folder == "/" ? "" : folder) + "/" + std::string(name);
}

/// The highest folder above that is still on the same file system.
std::string mountPointOf(const std::string& folder)
{
    const Handle<char, free> resolved(realpath(folder.c_str(), nullptr));
    std::string path = resolved ? resolved.get() : folder;
    const auto inside = identityOf(path, Links::Follow);
    while (inside && path != "/") {
        const auto above = identityOf(parentOf(path), Links::Follow);
        if (!above || above->device != inside->device || above->mount != inside->mount)
            break;
        path = parentOf(path);
    }
    return path;
}

std::vector<std::string> componentsOf(const std::string& path)
{
    std::vector<std::string> components;
    for (size_t begin = 0; begin < path.size();) {
        const size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin)
            components.push_back(path.substr(begin, end - begin));
        begin = end + 1;
    }
    return components;
}

void addPath(PropertyList::Dictionary& fields, const NSURL& url)
{
    const std::string& path = url.path();
    fields.emplace(kVersionKey, kBookmarkVersion);
    fields.emplace(kPathKey, stringByReplacingInvalidUTF8(path));
    if (!isValidUTF8(path))
        fields.emplace(kPathBytesKey, NSData(path.begin(), path.end()));
}

/// A bookmark as it was read.
struct Bookmark {
    std::string path;
    std::optional<bool> isDirectory;
    std::optional<uint64_t> inode;
    std::optional<uint64_t> device;
    std::optional<double> birth;
    std::optional<std::string> volume;
    std::vector<uint64_t> folders;
};

std::optional<uint64_t> unsignedNumber(const PropertyList* value)
{
    if (!value)
        return std::nullopt;
    if (const auto* number = value->as<int64_t>())
        return static_cast<uint64_t>(*number);
    if (const auto* number = value->as<uint64_t>())
        return *number;
    return std::nullopt;
}

std::optional<Bookmark> readBookmark(const NSData& data)
{
    const auto list = propertyListWithData(data);
    if (!list)
        return std::nullopt;
    Bookmark bookmark;
    if (const auto* bytes = list->objectForKey<NSData>(kPathBytesKey))
        bookmark.path.assign(bytes->begin(), bytes->end());
    else if (const auto* path = list->objectForKey<std::string>(kPathKey))
        bookmark.path = *path;
    if (!bookmark.path.starts_with('/') || bookmark.path.size() >= PATH_MAX ||
        bookmark.path.find('\0') != std::string::npos)
        return std::nullopt;
    while (bookmark.path.size() > 1 && bookmark.path.ends_with('/'))
        bookmark.path.pop_back();
    if (const auto* isDirectory = list->objectForKey<bool>(kDirectoryKey))
        bookmark.isDirectory = *isDirectory;
    bookmark.inode = unsignedNumber(list->objectForKey(kInodeKey));
    bookmark.device = unsignedNumber(list->objectForKey(kDeviceKey));
    if (const auto* birth = list->objectForKey<double>(kBirthKey))
        bookmark.birth = *birth;
    if (const auto* volume = list->objectForKey<std::string>(kVolumeKey))
        bookmark.volume = *volume;
    if (const auto* folders = list->objectForKey<PropertyList::Array>(kFoldersKey)) {
        for (const PropertyList& folder : *folders)
            bookmark.folders.push_back(unsignedNumber(&folder).value_or(0));
    }
    return bookmark;
}

/// Whether a file of the right volume may be the one that was bookmarked.
bool hasIdentity(const Bookmark& bookmark, const FileIdentity& file)
{
    if (bookmark.inode && *bookmark.inode != file.inode)
        return false;
    // Inode numbers are used again at once, so the time of birth must agree where it is known.
    return !bookmark.birth || !file.birth || std::abs(*bookmark.birth - *file.birth) <= kBirthTolerance;
}

/// Device numbers change when the system starts anew; a volume on the same folder is taken for the same.
bool isOnVolume(const Bookmark& bookmark, const std::string& folder)
{
    if (bookmark.volume && mountPointOf(folder) == *bookmark.volume)
        return true;
    const auto identity = identityOf(folder, Links::Follow);
    return bookmark.device && identity && identity->device == *bookmark.device;
}

/// What the last search that found nothing has seen, so that a whole folder of deleted photos is searched for once and
/// not once a photo.
class LastWalk final {
public:
    using Entries = std::unordered_multimap<uint64_t, std::string>;

    static LastWalk& shared()
    {
        // Never destroyed: files may still be looked for while the process ends.
        static auto& walk = *new LastWalk;
        return walk;
    }

    void remember(const std::string& folder, Entries entries)
    {
        const LockGuard guard(lock_);
        folder_ = folder;
        entries_ = std::move(entries);
        when_ = std::chrono::steady_clock::now();
    }

    /// Paths of entries with that inode. Nothing if the search did not begin in that folder, or too long ago.
    std::optional<std::vector<std::string>> entriesWithInode(const std::string& folder, uint64_t inode) const
    {
        const LockGuard guard(lock_);
        if (folder != folder_ || std::chrono::steady_clock::now() - when_ > kMaximumAge)
            return std::nullopt;
        std::vector<std::string> paths;
        const auto [begin, end] = entries_.equal_range(inode);
        for (auto entry = begin; entry != end; ++entry)
            paths.push_back(entry->second);
        return paths;
    }

private:
    static constexpr std::chrono::seconds kMaximumAge{2};

    mutable Lock lock_;
    std::string folder_ GUARDED_BY(lock_);
    Entries entries_ GUARDED_BY(lock_);
    std::chrono::steady_clock::time_point when_ GUARDED_BY(lock_);
};

/// Looks for a file that is no longer at its path, within limits.
class Search final {
public:
    explicit Search(const Bookmark& bookmark) : bookmark_(bookmark), components_(componentsOf(bookmark.path)) {}

    std::optional<std::string> find()
    {
        if (!bookmark_.inode || components_.empty())
            return std::nullopt;
        // The deepest folder of the path that is still there.
        std::string folder = "/";
        size_t depth = 0;
        while (depth + 1 < components_.size() && isFolder(joined(folder, components_[depth])))
            folder = joined(folder, components_[depth++]);
        // On another volume the inode's number means another file.
        if (!isOnVolume(bookmark_, folder))
            return std::nullopt;
        const auto identity = identityOf(folder, Links::Follow);
        if (!identity)
            return std::nullopt;
        device_ = identity->device;

        if (auto found = followRenamedFolders(folder, depth))
            return found;
        if (const auto known = LastWalk::shared().entriesWithInode(folder, *bookmark_.inode)) {
            const auto found =
                std::find_if(known->begin(), known->end(), [this](const auto& path) { return isTheFile(path); });
            return found == known->end() ? std::nullopt : std::optional(*found);
        }
        // Near to far: all below that folder, then all below its parent and so on.
        for (std::string top = folder;;) {
            if (auto found = walk(top))
                return found;
            const std::string parent = parentOf(top);
            const auto above = identityOf(parent, Links::Follow);
            if (parent == top || isExhausted() || !above || above->device != device_)
                break;
            top = parent;
        }
        LastWalk::shared().remember(folder, std::move(seen_));
        return std::nullopt;
    }

private:
    bool isExhausted() const
    {
        return entries_ >= kMaximumEntries ||
               (entries_ >= kSureEntries && std::chrono::steady_clock::now() > deadline_);
    }

    /// Calls `visit(name, inode, type)` for the entries of a folder until it answers true.
    template <typename Visit>
    void visitEntries(const std::string& path, const Visit& visit)
    {
        const Handle<DIR, closedir> folder(opendir(path.c_str()));
        if (!folder)
            return;
        while (const dirent* entry = readdir(folder.get())) {
            const std::string_view name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            if (++entries_, isExhausted() || visit(name, uint64_t{entry->d_ino}, entry->d_type))
                return;
        }
    }

    bool isTheFile(const std::string& path) const
    {
        const auto identity = identityOf(path, Links::Keep);
        return identity && identity->device == device_ && hasIdentity(bookmark_, *identity) &&
               identity->isDirectory == bookmark_.isDirectory.value_or(identity->isDirectory);
    }

    std::optional<std::string> entryWithInode(const std::string& folder, uint64_t inode)
    {
        std::optional<std::string> found;
        visitEntries(folder, [&](std::string_view name, uint64_t entryInode, unsigned char) {
            if (entryInode == inode)
                found = joined(folder, name);
            return found.has_value();
        });
        return found;
    }

    /// Goes down the path; a folder that is missing there is looked for under another name beside.
    std::optional<std::string> followRenamedFolders(std::string folder, size_t depth)
    {
        for (; depth + 1 < components_.size(); ++depth) {
            std::string next = joined(folder, components_[depth]);
            if (!isFolder(next)) {
                // The numbers begin with the root, the components do not.
                if (depth + 1 >= bookmark_.folders.size())
                    return std::nullopt;
                const auto renamed = entryWithInode(folder, bookmark_.folders[depth + 1]);
                if (!renamed || !isFolder(*renamed))
                    return std::nullopt;
                next = *renamed;
            }
            folder = next;
        }
        std::string same = joined(folder, components_.back());
        if (isTheFile(same))
            return same;
        const auto renamed = entryWithInode(folder, *bookmark_.inode);
        return renamed && isTheFile(*renamed) ? renamed : std::nullopt;
    }

    /// All below a folder, level by level; links and other volumes are not entered.
    std::optional<std::string> walk(const std::string& top)
    {
        std::optional<std::string> found;
        std::deque<std::string> folders{top};
        while (!folders.empty() && !found && !isExhausted()) {
            const std::string folder = std::move(folders.front());
            folders.pop_front();
            const auto identity = identityOf(folder, Links::Keep);
            if (!identity || !identity->isDirectory || identity->device != device_ ||
                !walked_.insert(identity->inode).second)
                continue;
            visitEntries(folder, [&](std::string_view name, uint64_t inode, unsigned char type) {
                std::string path = joined(folder, name);
                if (inode == *bookmark_.inode && isTheFile(path)) {
                    found = std::move(path);
                    return true;
                }
                if (type == DT_DIR || type == DT_UNKNOWN)
                    folders.push_back(path);
                seen_.emplace(inode, std::move(path));
                return false;
            });
        }
        return found;
    }

    const Bookmark& bookmark_;
    const std::vector<std::string> components_;
    uint64_t device_ = 0;
    int entries_ = 0;
    const std::chrono::steady_clock::time_point deadline_ = std::chrono::steady_clock::now() + kMaximumSearchTime;
    std::set<uint64_t> walked_;
    LastWalk::Entries seen_;
};

} // namespace

std::optional<NSData> NSURL::bookmarkData(BookmarkCreationOptions, NSError* error) const
{
    // A link is bookmarked as itself, but must lead to something.
    const auto identity = identityOf(path_, Links::Keep);
    if (!identity || !exists(path_)) {
        failWithErrno(error, errno, localized("\"{}\" cannot be bookmarked", {path_}), FileAccess::Reading);
        return std::nullopt;
    }
    PropertyList::Dictionary fields;
    addPath(fields, *this);
    fields.emplace(kDirectoryKey, identity->isDirectory);
    fields.emplace(kDeviceKey, static_cast<int64_t>(identity->device));
    fields.emplace(kInodeKey, static_cast<int64_t>(identity->inode));
    if (identity->birth)
        fields.emplace(kBirthKey, *identity->birth);
    if (const std::string volume = mountPointOf(isFolder(path_) ? path_ : parentOf(path_)); isValidUTF8(volume))
        fields.emplace(kVolumeKey, volume);

    PropertyList::Array folders;
    std::string folder = "/";
    std::vector<std::string> components = componentsOf(path_);
    if (!components.empty())
        components.pop_back();
    const auto addFolder = [&] {
        const auto parent = identityOf(folder, Links::Follow);
        folders.emplace_back(parent ? static_cast<int64_t>(parent->inode) : int64_t{0});
    };
    addFolder();
    for (const std::string& component : components) {
        folder = joined(folder, component);
        addFolder();
    }
    fields.emplace(kFoldersKey, std::move(folders));
    return dataWithPropertyList(std::move(fields), error);
}

NSData NSURL::bookmarkDataOfPathAlone() const
{
    PropertyList::Dictionary fields;
    addPath(fields, *this);
    fields.emplace(kDirectoryKey, isDirectory_);
    return dataWithPropertyList(std::move(fields)).value_or(NSData());
}

std::optional<NSURL> NSURL::URLByResolvingBookmarkData(const NSData& data, BookmarkResolutionOptions,
                                                       bool* bookmarkDataIsStale, NSError* error)
{
    const auto bookmark = readBookmark(data);
    if (!bookmark) {
        fail(error, kNSCocoaErrorDomain, kNSFileReadCorruptFileError, localized("The data is no bookmark of a file"));
        return std::nullopt;
    }
    bool isStale = false;
    std::string path = bookmark->path;
    if (exists(path)) {
        // What stands at the path counts, even if it is another file by now.
        const auto identity = identityOf(path, Links::Keep);
        isStale = identity &&
                  (!hasIdentity(*bookmark, *identity) || (bookmark->device && !isOnVolume(*bookmark, parentOf(path))));
    } else if (auto found = Search(*bookmark).find(); found && exists(*found)) {
        path = std::move(*found);
        isStale = true;
    } else {
        fail(error, kNSCocoaErrorDomain, kNSFileNoSuchFileError,
             localized("\"{}\" is no longer there", {bookmark->path}));
        return std::nullopt;
    }
    if (bookmarkDataIsStale)
        *bookmarkDataIsStale = isStale;
    return fileURLWithPath(path, isFolder(path));
}

} // namespace platform
