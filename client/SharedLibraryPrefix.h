#pragma once

#include <optional>
#include <string>

/// The folder that the installed shared library was put into ("/usr/"), so that what belongs to it is found wherever
/// that is. Nothing where this code is part of the program itself.
std::optional<std::string> sharedLibraryPrefix();
