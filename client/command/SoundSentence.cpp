#include "client/command/SoundSentence.h"

#include "client/Text.h"
#include "platform/files/NSURL.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

/// More pieces are counted, not named.
constexpr size_t kMaxNamed = 6;

Seconds rounded(Seconds time)
{
    return Seconds(std::round(time.count()));
}

std::string pieceText(const SoundFacts& sound, Seconds heard)
{
    std::string text = platform::lastPathComponent(sound.path.native());
    if (sound.selection)
        text += fmt::format(" from {}", clockText(rounded(sound.selection->start)));
    return fmt::format("{} for {}", text, clockText(rounded(heard)));
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
    const Seconds end = plan.totalVideoDuration;
    std::vector<std::string> texts;
    Seconds cursor{0};
    bool isRepeated = false;
    for (const PlannedSound& piece : plan.sounds) {
        isRepeated = piece.source && cursor.count() > 0 && *piece.source == 0;
        if (!piece.source || isRepeated)
            break;
        texts.push_back(pieceText(sounds[*piece.source], std::min(piece.length, end - cursor)));
        cursor += piece.length;
    }
    if (texts.empty())
        return plan.sounds.empty() ? "" : "sound: silence";
    std::string sentence =
        fmt::format("sound: {}{}", listText(std::move(texts), ", then "), isRepeated ? ", repeated to the end" : "");
    const std::string musicEnd = clockText(rounded(plan.musicEnd));
    if (plan.fadeStart)
        sentence +=
            fmt::format("; it fades from {} to {}", clockText(rounded(*plan.fadeStart)), clockText(rounded(end)));
    else if (musicEnd != clockText(rounded(end)))
        sentence += fmt::format("; {} from {} to {}", plan.sounds.back().source ? "nothing" : "silence", musicEnd,
                                clockText(rounded(end)));
    std::vector<std::string> leftOut;
    for (const size_t source : plan.leftOut)
        leftOut.push_back(platform::lastPathComponent(sounds[source].path.native()));
    if (!leftOut.empty())
        sentence += fmt::format("; left out: {}", listText(std::move(leftOut), ", "));
    return sentence;
}

} // namespace stillora
