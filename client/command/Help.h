#pragma once

#include <string>

/// The texts of `--help`, ready for a terminal of 80 columns.
std::string generalHelp();
std::string createHelp();
std::string frameHelp();

/// "stillora 0.1.0"
std::string versionText();
