#pragma once

#include "client/command/terminal/ExitStatus.h"
#include "client/command/terminal/Terminal.h"
#include "client/text/JSONWriter.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace stillora {

/// How a command speaks, and how it ends: remarks and complaints on standard error, the path of what was made, or JSON,
/// on standard output. Only on the main thread.
class CommandOutput {
public:
    /// How the result stands in JSON: as an object, or as the last of a stream of events.
    enum class ResultForm { Object, Event };
    struct Wish {
        bool isJSON = false;
        bool isQuiet = false;
        /// What the command makes, as the result's member.
        std::string_view product = "picture";
        ResultForm form = ResultForm::Object;
        ProgressStyle progress = ProgressStyle::Bar;
        /// Standard input is read for something else than answers.
        bool isInputTaken = false;
    };

    explicit CommandOutput(const Wish& wish);

    bool isJSON() const { return wish_.isJSON; }
    bool isQuiet() const { return wish_.isQuiet; }
    /// Whether somebody may be there who answers questions; a terminal has to be looked for besides.
    bool mayAsk() const { return !wish_.isJSON && !wish_.isQuiet && !wish_.isInputTaken; }
    /// A line on standard error, unless the user wants errors alone.
    void note(const std::string& text);
    void complain(const std::string& text);
    /// Tells that no faces will be found, where what finds them is not installed.
    void noteMissingFaceDetector();
    void clearProgress() { terminal_.clearProgress(); }

    /// Writes a file that may replace another.
    /// @return why it could not; empty if it was
    static std::string save(std::span<const std::byte> contents, const std::filesystem::path& file);

    /// The members that every result begins with, of something that was made.
    JSONWriter resultOf(const std::string& path, bool isAsWished = true) const;

    /// @name The ends of a command: each tells it, and returns the program's exit status
    /// @{
    int fail(ExitStatus status, const std::string& reason) { return fail(status, reason, reason, {}); }
    /// Where no file can be read at all, which is then told once and not of each file; else nothing.
    /// @param goesOn  false ends the wait for what reads them
    std::optional<int> failWithoutReader(const std::function<bool()>& goesOn = {});
    /// @param signal  what the user has stopped it with
    int stopped(int signal);
    /// @param path  of what was made
    int succeed(const std::string& path, const JSONWriter& result, ExitStatus status = kExitDone);
    /// Writes what was asked for to standard output.
    /// @param complaint  for where it cannot be written
    int give(std::string_view text, const std::string& complaint, ExitStatus status = kExitDone);
    /// @}

protected:
    /// @param complaint  for standard error
    /// @param details    follow in JSON
    int fail(ExitStatus status, const std::string& complaint, const std::string& reason, const JSONWriter& details);

    Terminal terminal_;

private:
    int writeResult(const JSONWriter& result, int status);

    const Wish wish_;
};

/// Writes the text to standard output.
/// @return whether all of it went there
[[nodiscard]] bool writeToStandardOutput(std::string_view text);

} // namespace stillora
