#pragma once

#include <stillora/Sounds.h>
#include <stillora/Types.h>

#include "client/command/options/OptionTable.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace stillora {

/// Nothing is left to do but to say something: help, the version, or what is wrong with the command line.
struct CommandLineAnswer {
    std::string text;
    /// An error's text is for standard error, help for standard output.
    int exitStatus = 0;
};

/// Writes the text where it belongs.
/// @return the program's exit status
int give(const CommandLineAnswer& answer);

/// What a command is to do, or why it cannot.
template <typename Options>
using Parsed = std::variant<CommandLineAnswer, Options>;

/// @param command  the one whose help tells more; none for the program's own
CommandLineAnswer usageError(const std::string& reason, const std::string& command = "");

/// What a command takes one of.
enum class OnlyOperand { File, Photo, Sound };

/// The arguments of one command, told apart.
class CommandArguments final {
public:
    /// Reads what the command's table lists. As is usual, options may stand anywhere before "--", a value may follow
    /// its option or its "=", and a long name may be shortened as long as it stands for one option alone.
    ///
    /// @param form       as for `commandForm`
    /// @param arguments  those that follow the command's words
    /// @return the help, if it was asked for, or what is wrong
    static Parsed<CommandArguments> read(std::string_view form, const std::vector<std::string>& arguments);

    bool has(std::string_view option) const { return values_.contains(option); }
    /// The option's only value; nothing if it was not given.
    std::optional<std::string> value(std::string_view option) const;
    /// In the order in which they were given.
    std::vector<std::string> values(std::string_view option) const;
    /// What is no option.
    const std::vector<std::string>& operands() const { return operands_; }

private:
    friend class ArgumentReader;

    std::map<std::string, std::vector<std::string>, std::less<>> values_;
    std::vector<std::string> operands_;
};

/// The whole text as a finite number, in the C locale.
std::optional<double> numberOf(std::string_view text);

/// "83", "1:23" or "1:02:03.5"; nothing for other texts.
std::optional<Seconds> timeOf(std::string_view text);

/// A part of a sound; where it starts or ends may be left out.
struct TimeSpan {
    std::optional<Seconds> start;
    std::optional<Seconds> end;

    bool endsBeforeItStarts() const { return end && *end <= start.value_or(Seconds(0)); }
};

/// "START-END", where either may be left out; nothing for other texts.
std::optional<TimeSpan> timeSpanOf(std::string_view text);

/// "FILE" or "FILE@START-END", where start and end may be left out. What does not read as times belongs to the name.
SoundArgument soundOf(const std::string& text);

/// @name Each reads the value of an option. Returns what is wrong, or nothing.
/// @param name  of what is given, for the sentence that says so
/// @{
/// "auto", "smallest" or a height of the service's table, also as "1080p" or "4k".
std::string readQuality(const std::string& given, int64_t& quality, std::string_view name = "--quality");
/// The height that people mean by "1080p" or "4k"; other texts as they are.
std::string heightOf(const std::string& typed);
/// --watermark and --no-watermark.
std::string readWatermark(const CommandArguments& arguments, Watermark& watermark);
/// The part of a sound that --range tells: "START-END", of which one may be left out.
std::string readRange(const std::string& text, SoundArgument& sound, std::string_view name = "--range");
/// Where a PNG file is to be made; the name of another kind of picture is a mistake.
std::string readPNG(const std::string& text, std::string& path, std::string_view name = "-o");
/// @}

/// @name Each reads what a command is about. Returns what is wrong, or nothing.
/// @{
/// The only one that the command takes.
std::string readOnly(const CommandArguments& arguments, OnlyOperand kind, std::string& path);
/// A sound and, where --range was given, the part of it.
std::string readSound(const CommandArguments& arguments, SoundArgument& sound);
/// @}

/// Runs a command whose arguments are read by `parse` and done by `run`.
template <typename Options, Parsed<Options> (*parse)(const std::vector<std::string>&), int (*run)(const Options&)>
int runParsed(const std::vector<std::string>& arguments)
{
    const Parsed<Options> parsed = parse(arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed))
        return give(*answer);
    return run(std::get<Options>(parsed));
}

} // namespace stillora
