#pragma once

#include <optional>
#include <string>

namespace platform {

/// The user's folder for videos: `XDG_VIDEOS_DIR` of the environment, else of user-dirs.dirs (xdg-user-dirs), where it
/// is an absolute path other than the home folder, which stands for none. May not exist. Any thread.
std::optional<std::string> videosFolder();

/// The user's folder for what can be made again: `XDG_CACHE_HOME` where it is an absolute path, else ".cache" in the
/// home folder. May not exist. Any thread.
std::string cacheFolder();

} // namespace platform
