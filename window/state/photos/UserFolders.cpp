#include "window/state/photos/UserFolders.h"

#include <cstdlib>
#include <string_view>

#include <pwd.h>
#include <unistd.h>

namespace stillora::window {

namespace {

std::filesystem::path home()
{
    if (const char* given = std::getenv("HOME"); given && *given == '/')
        return given;
    const passwd* user = getpwuid(getuid());
    return user && user->pw_dir ? user->pw_dir : "/";
}

/// Relative paths are none, by the rules of the desktop.
std::filesystem::path folder(const char* variable, std::string_view otherwise)
{
    const char* given = std::getenv(variable);
    return given && *given == '/' ? std::filesystem::path(given) : home() / otherwise;
}

} // namespace

std::filesystem::path usualCacheFolder()
{
    return folder("XDG_CACHE_HOME", ".cache");
}

std::filesystem::path usualStateFolder()
{
    return folder("XDG_STATE_HOME", ".local/state");
}

} // namespace stillora::window
