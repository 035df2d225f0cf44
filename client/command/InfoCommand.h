#pragma once

#include "client/command/options/Arguments.h"
#include "client/command/options/NameList.h"

#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora info`.
struct InfoOptions {
    std::vector<std::string> files;
    /// More of these, after them.
    std::optional<NameList> list;
    bool isJSON = false;
    /// Where the cover of the only file is saved.
    std::optional<std::string> cover;
};

/// Reads the arguments of `stillora info`. Touches no file.
Parsed<InfoOptions> parseInfo(const std::vector<std::string>& arguments);

/// `stillora info`: tells what is known of files on standard output, and which cannot be used on standard error.
/// @return the program's exit status
int runInfoCommand(const InfoOptions& options);

} // namespace stillora
