#pragma once

#include <stillora/Movie.h>
#include <stillora/Sounds.h>

#include "client/command/CommandOutput.h"
#include "client/command/SignalWatch.h"
#include "platform/media/CMTime.h"

#include <functional>
#include <optional>
#include <string>

namespace stillora {

/// The part of a sound that the user wants, to the nearest sample.
/// @return zero, which stands for all of it, if no part was chosen
platform::CMTimeRange timeRangeOf(const SoundFacts& sound);

/// What is common to the commands that make one file of one sound: they work in the background while this thread runs
/// the main queue, tell that they do, stop when they are asked to, and tell of their end. One at a time.
class SoundCommand final : public CommandOutput {
public:
    using CommandOutput::CommandOutput;

    /// Runs the main queue until the work is done. From half a second on a line tells of it.
    /// @param title  what is done, in the user's language
    /// @param count  how much there is of it so far; may be none
    /// @return false if the user has stopped it
    [[nodiscard]] bool waitFor(const std::string& title, const std::function<bool()>& isDone,
                               const std::function<std::string()>& count = {});

    /// Looks into the file.
    /// @param status  out: the program's exit status if there is nothing to be made of it, which was then told
    std::optional<SoundFacts> check(const SoundArgument& argument, int& status);

    /// Ends the command that the user has stopped.
    int stopped() { return CommandOutput::stopped(signals_.signal()); }

private:
    const SignalWatch signals_;
};

} // namespace stillora
