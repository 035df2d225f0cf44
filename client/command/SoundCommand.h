#pragma once

#include <stillora/Sounds.h>
#include <stillora/Waveform.h>

#include "client/command/terminal/CommandOutput.h"
#include "client/command/terminal/SignalWatch.h"

#include <optional>
#include <string>

namespace stillora {

/// What is common to the commands that make one file of one sound: they tell that they work, stop when they are asked
/// to, and tell of their end. One at a time.
class SoundCommand final : public CommandOutput {
public:
    using CommandOutput::CommandOutput;

    /// Tells of work, from half a second on by a line, and ends it when the user wants that.
    /// @param title  what is done, in the user's language
    WorkProgress telling(std::string title);

    /// Looks into the file.
    /// @param status  out: the program's exit status if there is nothing to be made of it, which was then told
    std::optional<SoundFacts> check(const SoundArgument& argument, int& status);

    /// Whether something is there already, which is not replaced. It is then told, as the command's end.
    bool isTaken(const std::string& output);

    /// Ends the command that has made a file.
    int succeed(const SoundFacts& sound, const SoundFile& file);
    /// Ends the command whose work has failed, or that the user has stopped.
    int fail(const Error& error, ExitStatus status = kExitFailed);
    using CommandOutput::fail;
    using CommandOutput::succeed;

private:
    const SignalWatch signals_;
};

/// Whether a file of this name is an M4A file, in any case of letters.
bool isNameOfM4A(const std::string& path);

} // namespace stillora
