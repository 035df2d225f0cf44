#include "client/command/SoundSentence.h"

#include "client/Text.h"
#include "platform/foundation/NSURL.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace stillora {

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

/// Names joined, the last of many counted.
std::string listText(std::vector<std::string> texts, const char* separator)
{
    if (texts.size() > kMaxNamed) {
        const size_t unnamed = texts.size() - kMaxNamed;
        texts.resize(kMaxNamed);
        texts.push_back(fmt::format("{} more", unnamed));
    }
    return fmt::format("{}", fmt::join(texts, separator));
}

} // namespace

std::string soundSentence(const MoviePlan& plan, const std::vector<SoundFacts>& sounds)
{
    const double end = plan.totalVideoDuration;
    std::vector<std::string> texts;
    double cursor = 0;
    bool isRepeated = false;
    for (const PlannedSound& piece : plan.sounds) {
        isRepeated = piece.source && cursor > 0 && *piece.source == 0;
        if (!piece.source || isRepeated)
            break;
        texts.push_back(pieceText(sounds[*piece.source], std::min(piece.length, end - cursor)));
        cursor += piece.length;
    }
    if (texts.empty())
        return plan.sounds.empty() ? "" : "sound: silence";
    std::string sentence =
        fmt::format("sound: {}{}", listText(std::move(texts), ", then "), isRepeated ? ", repeated to the end" : "");
    const std::string musicEnd = clockText(std::round(plan.musicEnd));
    if (plan.fadeStart)
        sentence +=
            fmt::format("; it fades from {} to {}", clockText(std::round(*plan.fadeStart)), clockText(std::round(end)));
    else if (musicEnd != clockText(std::round(end)))
        sentence += fmt::format("; {} from {} to {}", plan.sounds.back().source ? "nothing" : "silence", musicEnd,
                                clockText(std::round(end)));
    std::vector<std::string> leftOut;
    for (const size_t source : plan.leftOut)
        leftOut.push_back(platform::lastPathComponent(sounds[source].path));
    if (!leftOut.empty())
        sentence += fmt::format("; left out: {}", listText(std::move(leftOut), ", "));
    return sentence;
}

} // namespace stillora
