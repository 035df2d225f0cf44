#include "client/command/SoundCommand.h"

#include <stillora/Localization.h>

#include "platform/dispatch/DispatchQueue.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>
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
/// Longer than anything here takes.
constexpr double kForever = 1e8;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

platform::CMTimeRange timeRangeOf(const SoundFacts& sound)
{
    if (!sound.selection)
        return platform::kCMTimeRangeZero;
    const auto timeOfSeconds = [&](Seconds time) {
        return platform::CMTimeMake(std::llround(time.count() * sound.sampleRateHz), sound.sampleRateHz);
    };
    const platform::CMTime start = timeOfSeconds(sound.selection->start);
    return {start, platform::CMTimeSubtract(timeOfSeconds(sound.selection->end), start)};
}

bool SoundCommand::waitFor(const std::string& title, const std::function<bool()>& isDone,
                           const std::function<std::string()>& count)
{
    const Clock::time_point start = Clock::now();
    double lastDrawing = kQuietSeconds - kSecondsBetweenDrawings;
    const auto isOver = [&] {
        if (signals_.signal() != 0 || isDone())
            return true;
        const double seconds = secondsSince(start);
        if (terminal_.showsProgress() && seconds >= lastDrawing + kSecondsBetweenDrawings) {
            lastDrawing = seconds;
            ProgressLineContent content;
            content.title = title;
            content.count = count ? count() : std::string();
            content.turns = seconds / kTurnSeconds;
            terminal_.drawProgress(content);
        }
        return false;
    };
    while (!platform::DispatchQueue::runMainUntil(isOver, kForever)) {
    }
    terminal_.clearProgress();
    return signals_.signal() == 0;
}

std::optional<SoundFacts> SoundCommand::check(const SoundArgument& argument, int& status)
{
    struct State {
        std::atomic<bool> isDone{false};
        CheckedSounds checked;
    };
    // Goes on by itself if the user does not wait for it.
    const auto state = std::make_shared<State>();
    platform::DispatchQueue::global()->async([state, argument] {
        state->checked = checkSounds({argument});
        state->isDone = true;
    });
    if (!waitFor(localized("Checking the sound"), [&] { return state->isDone.load(); })) {
        status = stopped();
        return std::nullopt;
    }
    if (!state->checked.bad.empty()) {
        status = fail(kExitBadInput, fmt::format("{}: {}", argument.path.native(), state->checked.bad.front().reason));
        return std::nullopt;
    }
    return state->checked.good.front();
}

} // namespace stillora
