#pragma once

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
    bool isJSON = false;
    bool isQuiet = false;
    bool skipsBad = false;
};
