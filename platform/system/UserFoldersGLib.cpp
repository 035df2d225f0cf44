#include "platform/system/UserFolders.h"

#include "platform/foundation/Lock.h"

#include <glib.h>

#include <cstdlib>
#include <string_view>

namespace platform {

std::optional<std::string> videosFolder()
{
    static Lock lock;
    const LockGuard guard(lock);
    const char* folder = std::getenv("XDG_VIDEOS_DIR");
    if (!folder || *folder == '\0') {
        // GLib reads the file once; the user may have changed it since.
        g_reload_user_special_dirs_cache();
        folder = g_get_user_special_dir(G_USER_DIRECTORY_VIDEOS);
    }
    if (!folder || *folder != '/' || folder == std::string_view(g_get_home_dir()))
        return std::nullopt;
    return folder;
}

std::string cacheFolder()
{
    const char* folder = std::getenv("XDG_CACHE_HOME");
    return folder && *folder == '/' ? std::string(folder) : g_get_home_dir() + std::string("/.cache");
}

} // namespace platform
