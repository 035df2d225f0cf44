#pragma once

#include "client/SoundCheck.h"
#include "client/command/Arguments.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// The command line of `stillora create`.
struct CreateOptions {
    /// A quality outside the service's table: the smallest photo chooses.
    static constexpr int64_t kAutomaticQuality = 0;

    /// Photos and folders, as given.
    std::vector<std::string> photos;
    std::optional<double> seconds;
    int64_t quality = kAutomaticQuality;
    std::string codec = "avc1";
    bool reducesBorders = false;
    std::optional<std::string> title;
    std::optional<std::string> saveFolder;
    /// In playing order.
    std::vector<SoundArgument> sounds;
    bool loopsSounds = false;
    bool fitsMusic = false;
    bool fillsSilence = true;
    bool isJSON = false;
    bool isQuiet = false;
    bool skipsBad = false;
};

/// Reads the arguments of `stillora create`. Touches no file.
Parsed<CreateOptions> parseCreate(const std::vector<std::string>& arguments);

/// Its help.
std::string createHelp();

/// The part of the help that tells of its options.
std::string createOptionsHelp();

/// Exit statuses of the commands that make a movie, for their help.
std::string_view movieExitStatuses();
