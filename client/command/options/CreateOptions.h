#pragma once

#include <stillora/Movie.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>

#include "client/command/options/Arguments.h"
#include "client/command/options/NameList.h"
#include "client/command/terminal/Terminal.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// The command line of `stillora create`.
struct CreateOptions {
    /// Photos, folders and sounds, or a document, as given.
    std::vector<std::filesystem::path> photos;
    /// More of these, after them.
    std::optional<NameList> list;
    std::optional<Seconds> seconds;
    /// As in `MovieSettings`.
    int64_t quality = kAutomaticQuality;
    bool isQualityGiven = false;
    std::string codec = "avc1";
    bool isCodecGiven = false;
    bool reducesBorders = false;
    std::optional<std::string> title;
    std::optional<std::filesystem::path> saveFolder;
    /// Of --soundtrack, in playing order.
    std::vector<SoundArgument> sounds;
    bool loopsSounds = false;
    bool fitsMusic = false;
    bool fillsSilence = true;
    MovieUse use = MovieUse::Anywhere;
    Watermark watermark = Watermark::Usual;
    bool isJSON = false;
    bool isQuiet = false;
    ProgressStyle progress = ProgressStyle::Bar;
    bool skipsBad = false;
    /// Make every frame, also those that a movie has which was made lately.
    bool isFresh = false;
    /// Tell what the movie would be, and make none.
    bool plansOnly = false;
    /// Where the frames of the plan are drawn, if they are to be.
    std::optional<std::filesystem::path> contactSheet;
    PhotoOrder order;
    InnerFolders innerFolders = InnerFolders::PassedOver;
};

/// The settings that the options stand for.
MovieSettings settingsOf(const CreateOptions& options);

/// Reads the options that say how a movie is to be made: `create` has them all, and the commands for documents some.
/// Returns what is wrong, or nothing.
std::string readMovieOptions(const CommandArguments& arguments, CreateOptions& options);

/// Reads the value of one option of these. Returns what is wrong, or nothing.
/// @param option  "seconds", "quality", "codec", "title", "soundtrack", "save", "sort" or "output"
/// @param name    how it is called where that was given, for the sentence that says what is wrong
std::string readMovieOption(std::string_view option, const std::string& text, CreateOptions& options,
                            std::string_view name);

/// How options are called where they were given, for sentences.
struct FittingNames {
    std::string_view fitMusic;
    std::string_view loop;
    std::string_view seconds;
};

/// What of the options contradicts that pictures and music end together; empty if nothing does.
std::string faultOfFitting(const CreateOptions& options, const FittingNames& names);

/// What is wrong where sounds are wanted and none was given.
std::string faultOfMissingSound(const CreateOptions& options,
                                const FittingNames& names = {"--fit-music", "--loop", "--seconds"});

/// Reads the arguments of `stillora create`. Touches no file.
Parsed<CreateOptions> parseCreate(const std::vector<std::string>& arguments);

} // namespace stillora
