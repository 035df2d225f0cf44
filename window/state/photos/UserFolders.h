#pragma once

#include <filesystem>

namespace stillora::window {

/// @name The user's folders, as the desktop has them
/// @{

/// $XDG_CACHE_HOME, else ~/.cache.
std::filesystem::path usualCacheFolder();
/// $XDG_STATE_HOME, else ~/.local/state.
std::filesystem::path usualStateFolder();
/// @}

} // namespace stillora::window
