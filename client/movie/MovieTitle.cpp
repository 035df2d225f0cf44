#include <stillora/Movie.h>

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSFileManager.h"
#include "platform/files/NSURL.h"
#include "platform/files/NSUserDefaults.h"
#include "platform/foundation/NSString.h"
#include "platform/system/UserFolders.h"
#include "util/MORPalvineCommons.h"
#include "util/UserSettings.h"

#include <filesystem>
#include <system_error>

#include <fmt/format.h>

namespace stillora {

std::optional<std::string> faultOfTitle(const std::string& title)
{
    if (!platform::isValidUTF8(title))
        return localized("is not valid UTF-8");
    if (printable(title) != title)
        return localized("holds control characters");
    if (title.find_first_not_of(' ') == std::string::npos)
        return localized("is empty");
    if (title.find('/') != std::string::npos)
        return localized("holds a \"/\", which no file name can");
    if (title.front() == '.')
        return localized("begins with a dot, which would hide the movie");
    if (title.size() > kMaxTitleBytes)
        return localized("is {} bytes long; {} are possible", title.size(), kMaxTitleBytes);
    return std::nullopt;
}

std::string titleForPhotos(const std::vector<PhotoFacts>& photos)
{
    std::optional<std::string> common;
    for (const PhotoFacts& photo : photos) {
        // "." and a link to a folder have the name of what they lead to.
        std::error_code failure;
        const auto photoPath = std::filesystem::absolute(photo.path, failure);
        const auto folder = failure ? photoPath : std::filesystem::canonical(photoPath.parent_path(), failure);
        if (failure || (common && *common != folder.native()))
            return localized("Slideshow");
        common = folder.native();
    }
    std::string title =
        printable(platform::stringByReplacingInvalidUTF8(platform::lastPathComponent(common.value_or(""))));
    title = prefixOfBytes(title, kMaxTitleBytes);
    return faultOfTitle(title) ? localized("Slideshow") : title;
}

std::filesystem::path usualSaveFolder()
{
    const auto chosen = platform::NSUserDefaults::standardUserDefaults().dataForKey(UserSettings::kDestinationKey);
    const auto folder = chosen ? platform::NSURL::URLByResolvingBookmarkData(*chosen) : std::nullopt;
    const auto videos = platform::videosFolder();
    // The service's own default knows nothing of the desktop's folders.
    if (videos && !(folder && platform::NSFileManager::defaultManager().fileExistsAtPath(folder->path())))
        return std::filesystem::path(*videos) / "Stillora";
    return MORPalvineCommons::customSaveDirectory().path();
}

} // namespace stillora
