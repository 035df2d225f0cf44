#include "util/MORPalvineCommons.h"

#include "platform/files/NSFileManager.h"
#include "platform/files/NSUserDefaults.h"
#include "util/UserSettings.h"

#include <atomic>
#include <optional>
#include <string_view>

using namespace platform;

namespace {

constexpr std::string_view kTemporaryFolderName = ".MORStilloraTemporaryFiles/";
constexpr std::string_view kDestinationKey = UserSettings::kDestinationKey;

/// Set by the first look-up of the process whatever it finds, and never cleared.
std::atomic<bool> accessStarted{false};

bool exists(const NSURL& url)
{
    return NSFileManager::defaultManager().fileExistsAtPath(url.path());
}

} // namespace

NSURL MORPalvineCommons::defaultSaveDirectory()
{
    const NSURL url = NSURL::fileURLWithPath(stringByExpandingTildeInPath(UserSettings::kDefaultSaveFolder), true);
    (void)NSFileManager::defaultManager().createDirectoryAtURL(url, true);
    return url;
}

NSURL MORPalvineCommons::customSaveDirectory()
{
    NSUserDefaults& defaults = NSUserDefaults::standardUserDefaults();
    std::optional<NSURL> url;
    bool isStale = false;
    if (const auto bookmark = defaults.dataForKey(kDestinationKey))
        url = NSURL::URLByResolvingBookmarkData(*bookmark, BookmarkResolutionOptions::WithSecurityScope, &isStale);
    if (!accessStarted.exchange(true) && url)
        url->startAccessingSecurityScopedResource();
    if (!url || !exists(*url))
        return defaultSaveDirectory();
    if (isStale) {
        if (const auto fresh = url->bookmarkData(BookmarkCreationOptions::WithSecurityScope)) {
            defaults.setDataForKey(*fresh, kDestinationKey);
            return *url;
        }
        if (const auto fallback = defaultSaveDirectory().bookmarkData(BookmarkCreationOptions::WithSecurityScope))
            defaults.setDataForKey(*fallback, kDestinationKey);
        return defaultSaveDirectory();
    }
    return *url;
}

NSURL MORPalvineCommons::temporarySaveDirectory()
{
    const NSURL url = customSaveDirectory().URLByAppendingPathComponent(kTemporaryFolderName);
    if (NSFileManager::defaultManager().createDirectoryAtURL(url, true) || exists(url))
        return url;
    const NSURL fallback =
        NSURL::fileURLWithPath(NSTemporaryDirectory(), true).URLByAppendingPathComponent(kTemporaryFolderName);
    (void)NSFileManager::defaultManager().createDirectoryAtURL(fallback, true);
    return fallback;
}
