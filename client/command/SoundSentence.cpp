#include "client/command/SoundSentence.h"

#include "client/Text.h"
#include "platform/foundation/NSURL.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace {

/// More pieces are counted, not named.
constexpr size_t kMaxNamed = 6;

std::string pieceText(const SoundFacts& sound, double heard)
{
    std::string text = platform::lastPathComponent(sound.path);
    if (sound.selection)
        text += fmt::format(" from {}", clockText(std::round(sound.selection->start)));
    return fmt::format("{} for {}", text, clockText(std::round(heard)));
}

} // namespace

std::string soundSentence(const MoviePlan& plan, const std::vector<SoundFacts>& sounds)
{
    const double end = plan.totalVideoDuration;
    std::vector<std::string> texts;
    size_t unnamed = 0;
    double cursor = 0;
    bool isRepeated = false;
    for (const PlannedSound& piece : plan.sounds) {
        isRepeated = piece.source && cursor > 0 && *piece.source == 0;
        if (!piece.source || isRepeated)
            break;
        if (texts.size() < kMaxNamed)
            texts.push_back(pieceText(sounds[*piece.source], std::min(piece.length, end - cursor)));
        else
            ++unnamed;
        cursor += piece.length;
    }
    if (texts.empty())
        return plan.sounds.empty() ? "" : "sound: silence";
    if (unnamed > 0)
        texts.push_back(fmt::format("{} more", unnamed));
    std::string sentence =
        fmt::format("sound: {}{}", fmt::join(texts, ", then "), isRepeated ? ", repeated to the end" : "");
    if (plan.fadeStart)
        sentence +=
            fmt::format("; it fades from {} to {}", clockText(std::round(*plan.fadeStart)), clockText(std::round(end)));
    else if (plan.musicEnd < end)
        sentence += fmt::format("; {} from {} to {}", plan.sounds.back().source ? "nothing" : "silence",
                                clockText(std::round(plan.musicEnd)), clockText(std::round(end)));
    return sentence;
}
