#pragma once

#include "client/JSONWriter.h"
#include "client/MoviePlan.h"
#include "client/SoundCheck.h"
#include "client/command/ExitStatus.h"
#include "client/command/SignalWatch.h"
#include "client/command/Terminal.h"
#include "platform/media/CMTime.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

/// The part of a sound that the user wants, to the nearest sample.
/// @return zero, which stands for all of it, if no part was chosen
platform::CMTimeRange timeRangeOf(const SoundFacts& sound);

/// What is common to the commands that make one file of one sound: they work in the background while this thread runs
/// the main queue, tell that they do, stop when they are asked to, and tell of their end. One at a time.
class SoundCommand final {
public:
    struct Output {
        bool isJSON = false;
        bool isQuiet = false;
        /// What the command makes, as the result's member in JSON.
        std::string_view product;
    };

    explicit SoundCommand(const Output& output);

    /// Runs the main queue until the work is done. From half a second on a line tells of it.
    /// @param title  what is done, in the user's language
    /// @param count  how much there is of it so far; may be none
    /// @return false if the user has stopped it
    [[nodiscard]] bool waitFor(const std::string& title, const std::function<bool()>& isDone,
                               const std::function<std::string()>& count = {});

    /// Looks into the file.
    /// @param status  out: the program's exit status if there is nothing to be made of it, which was then told
    std::optional<SoundFacts> check(const SoundArgument& argument, int& status);

    /// A line on standard error, unless the user wants errors alone.
    void note(const std::string& text);

    /// @name The ends of a command: each tells it, and returns the program's exit status
    /// @{
    int fail(ExitStatus status, const std::string& reason);
    int stopped();
    /// @param path     the product's
    /// @param details  follow in JSON
    int succeed(const std::string& path, const std::function<void(JSONWriter& result)>& details);
    /// @}

private:
    int writeResult(const JSONWriter& result, int status);

    const Output output_;
    Terminal terminal_;
    const SignalWatch signals_;
};
