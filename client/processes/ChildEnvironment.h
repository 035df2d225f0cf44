#pragma once

#include <string>
#include <vector>

namespace stillora {

/// What a program of the library's own gets of this process's environment, as "NAME=value": language, home and folders,
/// time zone, libraries and their settings, and what is named for Stillora. Nothing of descriptors, and nothing by
/// which other programs of the user's are reached: agents, the display, the session's bus, tokens. Beside these, how
/// GLib is to keep memory.
std::vector<std::string> environmentForChild();

} // namespace stillora
