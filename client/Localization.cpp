#include "client/Localization.h"

#include "client/SharedLibraryPrefix.h"
#include "platform/foundation/NSBundle.h"

#include <array>
#include <clocale>

#include <sys/stat.h>
#include <unistd.h>

// Where the translations lie when everything is installed.
#ifndef STILLORA_LOCALE_FOLDER
#define STILLORA_LOCALE_FOLDER "/usr/local/share/locale"
#endif

namespace {

bool isFolder(const std::string& path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Beside the program ("bin/../share/locale") or the shared library, so that a moved installation and a build both find
/// theirs.
std::string localeFolder()
{
    if (const auto prefix = sharedLibraryPrefix(); prefix && isFolder(*prefix + "share/locale"))
        return *prefix + "share/locale";
    std::array<char, 4096> path{};
    const ssize_t length = readlink("/proc/self/exe", path.data(), path.size() - 1);
    if (length > 0) {
        const std::string program(path.data(), static_cast<size_t>(length));
        std::string folder = program.substr(0, program.rfind('/')) + "/../share/locale";
        if (isFolder(folder))
            return folder;
    }
    return STILLORA_LOCALE_FOLDER;
}

} // namespace

std::string localized(std::string_view text)
{
    return platform::NSBundle::mainBundle().localizedStringForKey(text);
}

void setUpLocalization()
{
    // Not LC_NUMERIC: numbers of options and of JSON have a point in every language.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    platform::NSBundle::mainBundle().setLocalizations(localeFolder(), "stillora");
}
