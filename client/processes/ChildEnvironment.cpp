#include "client/processes/ChildEnvironment.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <unistd.h>

namespace stillora {

namespace {

constexpr auto kNames =
    std::to_array<std::string_view>({"DBUS_SYSTEM_BUS_ADDRESS", "HOME", "LANG", "LANGUAGE", "LOCPATH", "LOGNAME",
                                     "NLSPATH", "PATH", "SOURCE_DATE_EPOCH", "TMPDIR", "TZ", "TZDIR", "USER"});

/// Families of names: the last four are what a fault is looked for with.
constexpr auto kPrefixes =
    std::to_array<std::string_view>({"FONTCONFIG_", "GLIBC_", "ICU_", "LC_", "LD_", "MALLOC_", "OMP_", "OPENCV_",
                                     "ORC_", "STILLORA_", "VIPS_", "XDG_", "ASAN_", "LSAN_", "TSAN_", "UBSAN_"});

/// GLib before 2.76 keeps small pieces of memory for itself when they are freed; a request is read into a million.
constexpr const char* kSmallPieces = "G_SLICE=always-malloc";

bool isForChildren(std::string_view name)
{
    return std::ranges::find(kNames, name) != kNames.end() ||
           std::ranges::any_of(kPrefixes, [&](std::string_view prefix) { return name.starts_with(prefix); });
}

} // namespace

std::vector<std::string> environmentForChild()
{
    std::vector<std::string> variables{kSmallPieces};
    for (char** variable = environ; variable && *variable; ++variable)
        if (const std::string_view text = *variable; isForChildren(text.substr(0, text.find('='))))
            variables.emplace_back(text);
    return variables;
}

} // namespace stillora
