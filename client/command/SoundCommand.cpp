#include "client/command/SoundCommand.h"

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSString.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using Clock = std::chrono::steady_clock;

/// Work that is done by then needs no telling.
constexpr double kQuietSeconds = 0.5;
constexpr double kSecondsBetweenDrawings = 0.1;
/// In which the bar goes there and back.
constexpr double kTurnSeconds = 3;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

WorkProgress SoundCommand::telling(std::string title)
{
    return [this, title = std::move(title), start = Clock::now(),
            lastDrawing = kQuietSeconds - kSecondsBetweenDrawings](std::uint64_t bytes) mutable {
        const double seconds = secondsSince(start);
        if (terminal_.showsProgress() && seconds >= lastDrawing + kSecondsBetweenDrawings) {
            lastDrawing = seconds;
            ProgressLineContent content;
            content.title = title;
            content.count = bytes > 0 ? bytesText(static_cast<double>(bytes)) : std::string();
            content.turns = seconds / kTurnSeconds;
            terminal_.drawProgress(content);
        }
        return signals_.signal() == 0;
    };
}

int SoundCommand::fail(const Error& error, ExitStatus status)
{
    terminal_.clearProgress();
    return error.code == ErrorCode::Cancelled ? stopped(signals_.signal()) : fail(status, error.message);
}

bool SoundCommand::isTaken(const std::string& output)
{
    std::error_code failure;
    if (!std::filesystem::exists(std::filesystem::symlink_status(output, failure)))
        return false;
    fail(kExitFailed, localized("{} exists already, and is not replaced", output));
    return true;
}

int SoundCommand::succeed(const SoundFacts& sound, const SoundFile& file)
{
    note(fmt::format("{}, {}", secondsText(sound.length), bytesText(static_cast<double>(file.bytes))));
    return CommandOutput::succeed(file.path.native(), resultOf(file.path.native())
                                                          .add("seconds", sound.length.count())
                                                          .add("bytes", static_cast<int64_t>(file.bytes)));
}

std::optional<SoundFacts> SoundCommand::check(const SoundArgument& argument, int& status)
{
    const WorkProgress progress = telling(localized("Checking the sound"));
    const auto goesOn = [&] { return progress(0); };
    if (const auto failure = failWithoutReader(goesOn)) {
        status = *failure;
        return std::nullopt;
    }
    CheckedSounds checked = checkSounds({argument}, goesOn);
    terminal_.clearProgress();
    if (signals_.signal() != 0) {
        status = stopped(signals_.signal());
        return std::nullopt;
    }
    if (!checked.bad.empty()) {
        status = fail(kExitBadInput, fmt::format("{}: {}", argument.path.native(), checked.bad.front().reason));
        return std::nullopt;
    }
    return std::move(checked.good.front());
}

bool isNameOfM4A(const std::string& path)
{
    return platform::lowercaseASCII(platform::pathExtension(path)) == "m4a";
}

} // namespace stillora
