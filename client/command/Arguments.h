#pragma once

#include "client/SoundCheck.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace CLI {
class App;
}

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

/// Reads arguments into what the app binds. Options that were bound as text are read by the functions below, so that
/// the program says itself what is wrong.
/// @return the help, if it was asked for, or what is wrong
std::optional<CommandLineAnswer> readArguments(CLI::App& app, const std::vector<std::string>& arguments,
                                               const std::string& command, std::string (*help)());

/// The whole text as a finite number, in the C locale.
std::optional<double> numberOf(std::string_view text);

/// "83", "1:23" or "1:02:03.5" in seconds; nothing for other texts.
std::optional<double> timeOf(std::string_view text);

/// A part of a sound; where it starts or ends may be left out.
struct TimeSpan {
    std::optional<double> start;
    std::optional<double> end;

    bool endsBeforeItStarts() const { return end && *end <= start.value_or(0); }
};

/// "START-END", where either may be left out; nothing for other texts.
std::optional<TimeSpan> timeSpanOf(std::string_view text);

/// "FILE" or "FILE@START-END", where start and end may be left out. What does not read as times belongs to the name.
SoundArgument soundOf(const std::string& text);

/// Reads "auto" or a height of the service's table. Returns what is wrong, or nothing.
std::string readQuality(const std::string& text, int64_t& quality);

/// Runs a command whose arguments are read by `parse` and done by `run`.
template <typename Options, Parsed<Options> (*parse)(const std::vector<std::string>&), int (*run)(const Options&)>
int runParsed(const std::vector<std::string>& arguments)
{
    const Parsed<Options> parsed = parse(arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed))
        return give(*answer);
    return run(std::get<Options>(parsed));
}
