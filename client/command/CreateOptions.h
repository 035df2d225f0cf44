#pragma once

#include "client/MovieSettings.h"
#include "client/SoundCheck.h"
#include "client/command/Arguments.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class Option;
}

/// The command line of `stillora create`.
struct CreateOptions {
    /// A quality outside the service's table: the smallest photo chooses.
    static constexpr int64_t kAutomaticQuality = 0;

    /// Photos and folders, as given.
    std::vector<std::string> photos;
    std::optional<double> seconds;
    int64_t quality = kAutomaticQuality;
    bool isQualityGiven = false;
    std::string codec = "avc1";
    bool isCodecGiven = false;
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

/// The settings that the options stand for.
MovieSettings settingsOf(const CreateOptions& options);

/// Reads the options that say how a movie is to be made: `create` has them, and so have the commands for documents. The
/// app keeps pointers to it.
class MovieOptionReader final {
public:
    MovieOptionReader() = default;
    MovieOptionReader(const MovieOptionReader&) = delete;
    MovieOptionReader& operator=(const MovieOptionReader&) = delete;

    /// Seconds, quality, codec and title.
    void addPictures(CLI::App& app);
    void addSoundtracks(CLI::App& app);
    /// How the music is fitted to the pictures and the pictures to the frame.
    void addFitting(CLI::App& app);

    /// After the app has read its arguments. Returns what is wrong, or nothing.
    std::string read(CreateOptions& options) const;

private:
    std::string secondsText_;
    std::string qualityText_;
    std::string codecText_;
    std::string titleText_;
    std::vector<std::string> sounds_;
    bool loopsSounds_ = false;
    bool fitsMusic_ = false;
    bool isSilenceLeftOut_ = false;
    bool reducesBorders_ = false;
    const CLI::Option* seconds_ = nullptr;
    const CLI::Option* quality_ = nullptr;
    const CLI::Option* codec_ = nullptr;
    const CLI::Option* title_ = nullptr;
};

/// Reads the arguments of `stillora create`. Touches no file.
Parsed<CreateOptions> parseCreate(const std::vector<std::string>& arguments);

/// Its help.
std::string createHelp();

/// The part of the help that tells of its options.
std::string createOptionsHelp();

/// Exit statuses of the commands that make a movie, for their help.
std::string_view movieExitStatuses();
