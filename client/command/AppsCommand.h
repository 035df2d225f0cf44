#pragma once

#include "client/command/options/Arguments.h"

#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora apps`.
struct AppsOptions {
    std::string file;
    bool isJSON = false;
};

/// Reads the arguments of `stillora apps`. Touches no file.
Parsed<AppsOptions> parseApps(const std::vector<std::string>& arguments);

/// `stillora apps`: lists the applications that can open a file.
/// @return the program's exit status
int runAppsCommand(const AppsOptions& options);

} // namespace stillora
