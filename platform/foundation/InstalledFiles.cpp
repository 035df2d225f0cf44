#include "platform/foundation/InstalledFiles.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <system_error>

#include <dlfcn.h>

namespace platform {

namespace {

namespace fs = std::filesystem;

const char* relativePath(InstalledFolder folder)
{
    switch (folder) {
    case InstalledFolder::Services:
        return INSTALLED_SERVICES;
    case InstalledFolder::Modules:
        return INSTALLED_MODULES;
    case InstalledFolder::Models:
        return INSTALLED_MODELS;
    case InstalledFolder::Shared:
        return INSTALLED_SHARED;
    }
    return "";
}

/// Links followed; empty if it cannot be told.
fs::path folderOf(const fs::path& file)
{
    std::error_code failure;
    return fs::canonical(file, failure).parent_path();
}

/// The folder of the file that this code was loaded from: the program, or a shared library.
fs::path folderOfThisCode()
{
    Dl_info place = {};
    if (dladdr(reinterpret_cast<const void*>(&installedPlaces), &place) == 0 || !place.dli_fname)
        return {};
    return folderOf(place.dli_fname);
}

/// What is left of a folder without the last parts, if those are its last.
std::optional<fs::path> withoutEnd(const fs::path& folder, const fs::path& end)
{
    const auto parts = std::distance(end.begin(), end.end());
    if (end.is_absolute() || std::distance(folder.begin(), folder.end()) <= parts)
        return std::nullopt;
    const auto last = std::prev(folder.end(), parts);
    if (!std::equal(last, folder.end(), end.begin(), end.end()))
        return std::nullopt;
    fs::path rest;
    for (auto part = folder.begin(); part != last; ++part)
        rest /= *part;
    return rest;
}

} // namespace

std::string programFile()
{
    // A file that is gone from its place has this behind its name, unless its name is such a one.
    constexpr std::string_view kGone = " (deleted)";
    std::error_code failure;
    std::string file = fs::read_symlink("/proc/self/exe", failure);
    if (file.ends_with(kGone) && !fs::exists(file, failure))
        file.resize(file.size() - kGone.size());
    // Outside of what this process sees as the root it has no place that could be named.
    return file.starts_with('/') ? file : std::string();
}

std::vector<std::string> installedPlaces(InstalledFolder folder, std::string_view name)
{
    std::vector<std::string> places;
    const auto add = [&](const fs::path& place) {
        if (std::find(places.begin(), places.end(), place.native()) == places.end())
            places.push_back(place.native());
    };
    const fs::path program = fs::path(programFile()).parent_path();
    // What is shared lies in its folder even in a build. Beside an installed program there are those of others: one
    // that is called "locale" among them.
    if (!program.empty() && folder != InstalledFolder::Shared)
        add(program / name);
    for (const fs::path& start : {folderOfThisCode(), program})
        for (const char* end : {INSTALLED_PROGRAMS, INSTALLED_LIBRARIES, INSTALLED_SERVICES})
            if (const auto prefix = withoutEnd(start, end))
                add(*prefix / relativePath(folder) / name);
    add(fs::path(INSTALLED_PREFIX) / relativePath(folder) / name);
    return places;
}

std::string installedPlace(InstalledFolder folder, std::string_view name)
{
    const std::vector<std::string> places = installedPlaces(folder, name);
    const auto found = std::find_if(places.begin(), places.end(), [](const std::string& place) {
        std::error_code failure;
        return fs::exists(place, failure);
    });
    return found == places.end() ? places.back() : *found;
}

} // namespace platform
