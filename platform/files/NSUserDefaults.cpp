#include "platform/files/NSUserDefaults.h"

#include "platform/files/NSFileManager.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/propertylists/NSPropertyListSerialization.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/file.h>
#include <utility>

namespace platform {

namespace {

constexpr uint64_t kMaximumFileBytes = uint64_t{16} << 20;

NSURL defaultsURL()
{
    const char* folder = getenv("XDG_CONFIG_HOME");
    // A relative path there is to be ignored.
    const std::string base = folder && *folder == '/' ? std::string(folder) : stringByExpandingTildeInPath("~/.config");
    return NSURL::fileURLWithPath(base, true).URLByAppendingPathComponent(SETTINGS_FOLDER "/defaults.plist", false);
}

/// All keys. Nothing if the file is there but cannot be read; a damaged one has no keys.
std::optional<PropertyList::Dictionary> readDefaults()
{
    NSError error;
    const auto data = NSFileManager::defaultManager().contentsAtURL(defaultsURL(), kMaximumFileBytes, &error);
    if (!data)
        return error.code == kNSFileReadNoSuchFileError ? std::optional<PropertyList::Dictionary>(std::in_place)
                                                        : std::nullopt;
    const auto list = propertyListWithData(*data);
    const auto* keys = list ? list->as<PropertyList::Dictionary>() : nullptr;
    return keys ? *keys : PropertyList::Dictionary();
}

/// Reads, changes and writes the keys while no other program does.
template <typename Change>
bool changeDefaults(const Change& change)
{
    const NSURL url = defaultsURL();
    const NSURL folderURL = url.URLByDeletingLastPathComponent();
    if (!NSFileManager::defaultManager().createDirectoryAtURL(folderURL, true))
        return false;
    // The file itself is replaced by each write, so its folder is what is locked.
    const FileDescriptor folder(open(folderURL.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder)
        return false;
    while (flock(folder.get(), LOCK_EX) != 0) {
        if (errno != EINTR)
            return false;
    }
    auto keys = readDefaults();
    if (!keys)
        return false;
    change(*keys);
    const auto data = dataWithPropertyList(std::move(*keys));
    return data && NSFileManager::defaultManager().writeContents(*data, url, nullptr, NSFileManager::NewFile::Private);
}

} // namespace

NSURL NSUserDefaults::fileURL()
{
    return defaultsURL();
}

NSUserDefaults& NSUserDefaults::standardUserDefaults()
{
    static NSUserDefaults defaults;
    return defaults;
}

std::optional<PropertyList> NSUserDefaults::objectForKey(std::string_view key) const
{
    const LockGuard guard(lock_);
    const auto keys = readDefaults();
    if (!keys)
        return std::nullopt;
    const auto entry = keys->find(key);
    return entry == keys->end() ? std::nullopt : std::optional(entry->second);
}

template <typename T>
std::optional<T> NSUserDefaults::valueForKey(std::string_view key) const
{
    const auto object = objectForKey(key);
    const T* value = object ? object->as<T>() : nullptr;
    return value ? std::optional(*value) : std::nullopt;
}

std::optional<NSData> NSUserDefaults::dataForKey(std::string_view key) const
{
    return valueForKey<NSData>(key);
}

std::optional<bool> NSUserDefaults::boolForKey(std::string_view key) const
{
    return valueForKey<bool>(key);
}

bool NSUserDefaults::setObjectForKey(const PropertyList& value, std::string_view key)
{
    const LockGuard guard(lock_);
    return changeDefaults([&](PropertyList::Dictionary& keys) { keys.insert_or_assign(std::string(key), value); });
}

bool NSUserDefaults::setDataForKey(const NSData& value, std::string_view key)
{
    return setObjectForKey(value, key);
}

bool NSUserDefaults::removeObjectForKey(std::string_view key)
{
    const LockGuard guard(lock_);
    return changeDefaults([&](PropertyList::Dictionary& keys) { keys.erase(std::string(key)); });
}

} // namespace platform
