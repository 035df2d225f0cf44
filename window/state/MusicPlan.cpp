#include "window/state/MusicPlan.h"

#include <stillora/Localization.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

namespace stillora::window {

namespace {

/// Nobody hears, or sees in a line, what is shorter.
constexpr Seconds kNothing{0.1};

Seconds lengthOfAll(const std::vector<SoundFacts>& sounds)
{
    Seconds length{0};
    for (const SoundFacts& sound : sounds)
        length += sound.length;
    return length;
}

std::vector<MusicPlan::Piece> piecesOf(const stillora::MoviePlan& plan, const std::vector<SoundID>& ids)
{
    using Kind = MusicPlan::Piece::Kind;
    std::vector<MusicPlan::Piece> pieces;
    std::unordered_set<SoundID> heard;
    Seconds cursor{0};
    for (const PlannedSound& planned : plan.sounds) {
        const Seconds end = std::min(cursor + planned.length, plan.totalVideoDuration);
        if (!planned.source && !pieces.empty() && pieces.back().kind == Kind::Silence) {
            pieces.back().end = end;
        } else if (end > cursor) {
            MusicPlan::Piece piece{planned.source ? Kind::Music : Kind::Silence, std::nullopt, false, cursor, end};
            if (planned.source) {
                piece.sound = ids[*planned.source];
                piece.isRepeat = !heard.insert(*piece.sound).second;
            }
            pieces.push_back(piece);
        }
        cursor = end;
    }
    return pieces;
}

bool isAnyRepeated(const MusicPlan& music)
{
    return std::ranges::any_of(music.pieces, &MusicPlan::Piece::isRepeat);
}

std::string sentenceOf(const MusicPlan& music, const stillora::MoviePlan& plan, const MovieWish& wish)
{
    const std::string length = lengthInWords(music.length);
    if (wish.sounds.empty())
        return localized("The pictures last {}, without music.", length);
    if (wish.fitsMusic)
        return localized("The pictures last {}, as long as the music.", length);
    if (isAnyRepeated(music))
        return localized("The pictures last {}; the music of {} is repeated, and fades at their end.", length,
                         lengthInWords(lengthOfAll(wish.sounds)));
    if (music.cutOff > kNothing && music.leftOut.empty())
        return localized("The pictures last {}; the music would go on for {}, and fades at their end.", length,
                         lengthInWords(music.cutOff));
    if (music.cutOff > kNothing)
        return localizedCount(music.leftOut.size(),
                              "The pictures last {1}; the music would go on for {2}, and fades at their end. {0} sound "
                              "is not heard.",
                              "The pictures last {1}; the music would go on for {2}, and fades at their end. {0} "
                              "sounds are not heard.",
                              length, lengthInWords(music.cutOff));
    if (plan.musicEnd + kNothing < music.length)
        return localized("The pictures last {}; the music ends after {}, and the last {} are silent.", length,
                         lengthInWords(plan.musicEnd), lengthInWords(music.length - plan.musicEnd));
    return localized("The pictures last {}, and so does the music.", length);
}

bool canFit(MovieWish wish)
{
    wish.fitsMusic = true;
    wish.loopsSounds = false;
    return planMovie(wish).hasValue();
}

} // namespace

MusicPlan planMusicFor(const MovieWish& wish, const std::vector<SoundID>& soundIDs,
                       std::optional<stillora::MoviePlan>* plan)
{
    MusicPlan music;
    if (plan)
        plan->reset();
    if (wish.photos.empty())
        return music;
    auto planned = planMovie(wish);
    const bool hasMusic = !wish.sounds.empty();
    if (!planned) {
        music.fault = planned.error().message;
        music.offersFit = hasMusic && !wish.fitsMusic && canFit(wish);
        return music;
    }
    music.length = planned->totalVideoDuration;
    music.timePerPhoto = planned->timePerPhoto;
    if (hasMusic)
        music.pieces = piecesOf(*planned, soundIDs);
    music.fadeStart = planned->fadeStart;
    for (const std::size_t index : planned->leftOut)
        music.leftOut.push_back(soundIDs[index]);
    if (!wish.loopsSounds)
        music.cutOff = std::max(Seconds(0), lengthOfAll(wish.sounds) - planned->musicEnd);
    if (wish.fitsMusic)
        music.cutOff = Seconds(0);
    music.sentence = sentenceOf(music, *planned, wish);
    const bool ends = hasMusic && planned->musicEnd + kNothing < music.length;
    music.offersFit =
        hasMusic && !wish.fitsMusic && (ends || music.cutOff > kNothing || isAnyRepeated(music)) && canFit(wish);
    music.offersLoop = ends && !wish.loopsSounds && !wish.fitsMusic;
    if (plan)
        *plan = *std::move(planned);
    return music;
}

} // namespace stillora::window
