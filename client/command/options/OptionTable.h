#pragma once

#include <stillora/Photos.h>

#include "client/command/terminal/Terminal.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace stillora {

/// What a shell offers where a value or an argument is wanted.
enum class Offer {
    Nothing,
    /// The words that the option lists.
    Words,
    Files,
    Folders,
    Photos,
    Sounds,
    PhotosAndSounds,
    /// Photos, sounds and movies.
    Media,
    PNGPictures,
    Covers,
    M4AFiles,
};

/// An option of the command line, said once: the check of a command line, the help, the manual and the completions of
/// all shells come from it.
struct Option {
    /// Without its hyphens.
    std::string name = {};
    /// Its short form; 0 without one.
    char letter = 0;
    /// The name of its value in the help; empty for a switch, which takes none.
    std::string value = {};
    /// What it does: a clause without a capital and a full stop. Shells show it up to its first comma, semicolon, colon
    /// or bracket.
    std::string help = {};
    /// Whole sentences that the manual adds.
    std::string more = {};
    Offer offer = Offer::Nothing;
    std::vector<std::string> words = {};
    bool isRepeatable = false;

    bool takesValue() const { return !value.empty(); }
};

/// One way to call a command.
struct CommandForm {
    /// The word after the command's name; empty where there is only one form.
    std::string verb = {};
    /// What the verb does, for the list of verbs.
    std::string summary = {};
    /// The arguments that are no options, as the help writes them.
    std::string operands = {};
    Offer offer = Offer::Nothing;
    /// The first operand is a document, a folder.
    bool startsWithDocument = false;
    /// Besides --help, which all have. Forms that share an option point to the same one.
    std::vector<const Option*> options = {};
};

/// Exit statuses, as they are listed, and what each means.
using ExitStatuses = std::vector<std::pair<std::string, std::string>>;

/// What `stillora NAME` takes and says of itself.
struct CommandText {
    std::string name = {};
    /// For the list of commands.
    std::string summary = {};
    /// Paragraphs of the help.
    std::vector<std::string> about = {};
    ExitStatuses exitStatuses = {};
    std::vector<CommandForm> forms = {};
};

/// Every command, in the order of the general help; its texts are in the user's language as it is at the first call.
const std::vector<CommandText>& commandTexts();

/// @param name  "create", or with its verb "document new"; must be in the table
const CommandForm& commandForm(std::string_view name);

/// --help, which every command has.
const Option& helpOption();

/// For `kSmallestQuality`.
inline constexpr std::string_view kSmallestWord = "smallest";

/// What --quality takes: "auto", "smallest", then the heights of the service's table.
const std::vector<std::string>& qualityWords();

/// What --sort takes, and what it means.
const std::vector<std::pair<std::string, PhotoSort>>& sortWords();

/// What --progress takes, and what it means.
const std::vector<std::pair<std::string, ProgressStyle>>& progressWords();

} // namespace stillora
