#include "client/command/terminal/SoundSentence.h"

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
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
    const std::string name = platform::lastPathComponent(sound.path.native());
    // Two of a clock's zeros tell nothing of a short sound.
    const std::string length = heard < Seconds(0.5) ? secondsText(heard) : clockText(rounded(heard));
    return sound.selection ? localized("{} from {} for {}", name, clockText(rounded(sound.selection->start)), length)
                           : localized("{} for {}", name, length);
}

/// The first ones, and the others as their number.
std::vector<std::string> shortened(std::vector<std::string> texts)
{
    if (texts.size() <= kMaxNamed)
        return texts;
    const size_t unnamed = texts.size() - kMaxNamed;
    texts.resize(kMaxNamed);
    texts.push_back(localizedCount(unnamed, "{} more", "{} more"));
    return texts;
}

std::string sequenceOf(const std::vector<std::string>& pieces)
{
    std::string sequence;
    for (const std::string& piece : pieces)
        sequence = sequence.empty() ? piece : localized("{}, then {}", sequence, piece);
    return sequence;
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
        return plan.sounds.empty() ? "" : localized("sound: silence");
    const std::string pieces = sequenceOf(shortened(std::move(texts)));
    std::string sentence =
        isRepeated ? localized("sound: {}, repeated to the end", pieces) : localized("sound: {}", pieces);
    const std::string pictureEnd = clockText(rounded(end));
    const std::string musicEnd = clockText(rounded(plan.musicEnd));
    if (plan.fadeStart)
        sentence = localized("{}; it fades from {} to {}", sentence, clockText(rounded(*plan.fadeStart)), pictureEnd);
    else if (musicEnd != pictureEnd)
        sentence = plan.sounds.back().source ? localized("{}; nothing from {} to {}", sentence, musicEnd, pictureEnd)
                                             : localized("{}; silence from {} to {}", sentence, musicEnd, pictureEnd);
    std::vector<std::string> leftOut;
    for (const size_t source : plan.leftOut)
        leftOut.push_back(platform::lastPathComponent(sounds[source].path.native()));
    if (!leftOut.empty())
        sentence = localized("{}; left out: {}", sentence, fmt::join(shortened(std::move(leftOut)), ", "));
    return sentence;
}

std::string reasonOfUnheardSound()
{
    return localized("is not heard: the sounds before it last until the pictures end");
}

} // namespace stillora
