#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The file of the running program, links followed: where it was started from, also when another file was put there
/// since or it was removed. Empty if it cannot be told.
std::string programFile();

/// What an installation keeps in folders of its own.
enum class InstalledFolder {
    /// Programs that other programs start.
    Services,
    /// Libraries that are loaded when they are needed.
    Modules,
    Models,
    Shared,
};

/// Where an installed file or folder may lie, nearest first: beside the running program, but for what is shared; in the
/// installation that the shared library with this code, or the program, is a part of, wherever that was moved to; and
/// where this build was to be installed. Whether there is anything is not looked at.
/// @param name relative to the folder
std::vector<std::string> installedPlaces(InstalledFolder folder, std::string_view name);

/// The first of those places where there is something; the last where there is nothing anywhere.
std::string installedPlace(InstalledFolder folder, std::string_view name);

} // namespace platform
