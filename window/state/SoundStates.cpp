#include "window/state/SoundStates.h"

#include <stillora/Picture.h>
#include <stillora/Waveform.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

namespace stillora::window {

/// What a first look has found.
struct SoundStates::Look {
    SoundState state;
};

namespace {

/// A picture made smaller until it fits into a square, each pixel from those that it stands for.
Pixels fitted(const Pixels& picture, int side)
{
    const int longer = std::max(picture.width, picture.height);
    if (longer <= side)
        return picture;
    const auto scaled = [&](int edge) { return std::max(1, static_cast<int>(std::int64_t{edge} * side / longer)); };
    Pixels small{scaled(picture.width), scaled(picture.height), 0, {}};
    small.rowBytes = static_cast<std::size_t>(small.width) * 4;
    small.bytes.resize(small.rowBytes * static_cast<std::size_t>(small.height));
    const auto from = [](int place, int edge, int whole) {
        return static_cast<std::size_t>(std::int64_t{place} * whole / edge);
    };
    for (int y = 0; y < small.height; ++y)
        for (int x = 0; x < small.width; ++x)
            for (std::size_t part = 0; part < 4; ++part) {
                std::uint64_t sum = 0;
                std::uint64_t count = 0;
                for (auto v = from(y, small.height, picture.height); v < from(y + 1, small.height, picture.height); ++v)
                    for (auto u = from(x, small.width, picture.width); u < from(x + 1, small.width, picture.width);
                         ++u) {
                        sum += std::to_integer<std::uint64_t>(picture.bytes[v * picture.rowBytes + u * 4 + part]);
                        ++count;
                    }
                small.bytes[static_cast<std::size_t>(y) * small.rowBytes + static_cast<std::size_t>(x) * 4 + part] =
                    static_cast<std::byte>(sum / count);
            }
    return small;
}

std::shared_ptr<const Pixels> coverOf(const FileFacts& facts)
{
    if (!facts.cover)
        return nullptr;
    auto pixels = pixelsOfPicture(facts.cover->picture);
    return pixels ? std::make_shared<const Pixels>(fitted(*pixels, SoundStates::kCoverPixels)) : nullptr;
}

SoundState stateOf(const SoundItem& sound)
{
    SoundState state;
    state.title = sound.title;
    const CheckedSounds checked = checkSounds({{sound.path, std::nullopt, std::nullopt}});
    if (checked.good.empty()) {
        state.kind = SoundState::Kind::Unusable;
        state.reason = checked.bad.empty() ? localized("is no sound") : checked.bad.front().reason;
        return state;
    }
    state.kind = SoundState::Kind::Good;
    state.length = checked.good.front().length;
    state.sampleRateHz = checked.good.front().sampleRateHz;
    if (const auto facts = factsOfFile(sound.path)) {
        state.title = facts->tags.title.value_or(sound.title);
        state.artist = facts->tags.artist.value_or("");
        state.cover = coverOf(*facts);
    }
    return state;
}

} // namespace

SoundStates::SoundStates(MainLoop& loop, DocumentSession& session)
    : session_(session), soundsChanged_(session.soundsChanged.connect([this] { soundsChanged(); })), background_(loop)
{
    soundsChanged();
}

const SoundState& SoundStates::state(SoundID id) const
{
    static const SoundState kUnknown;
    const auto found = states_.find(id);
    return found == states_.end() ? kUnknown : found->second;
}

void SoundStates::soundsChanged()
{
    for (SoundItem& sound : session_.sounds()) {
        const auto [entry, isNew] = states_.try_emplace(sound.id);
        if (!isNew)
            continue;
        entry->second.title = sound.title;
        if (!sound.fault.empty()) {
            entry->second.kind = SoundState::Kind::Unusable;
            entry->second.reason = sound.fault;
            continue;
        }
        const SoundID id = sound.id;
        background_.run([sound = std::move(sound)] { return Look{stateOf(sound)}; },
                        [this, id](Look look) { take(id, std::move(look)); });
    }
}

void SoundStates::take(SoundID id, Look look)
{
    states_[id] = std::move(look.state);
    if (states_[id].kind == SoundState::Kind::Good)
        draw(id);
    changed.emit(id);
}

void SoundStates::draw(SoundID id)
{
    const auto sound = session_.sound(id);
    if (!sound)
        return;
    const SoundFacts facts{sound->path, std::nullopt, states_[id].length, states_[id].sampleRateHz};
    background_.run([facts] { return waveformLevels(facts, kLevels); },
                    [this, id](Result<std::vector<float>> levels) {
                        if (!levels)
                            return;
                        states_[id].levels = std::make_shared<const std::vector<float>>(*std::move(levels));
                        changed.emit(id);
                    });
}

std::vector<SoundFacts> SoundStates::usable() const
{
    std::vector<SoundFacts> sounds;
    for (const SoundItem& sound : session_.sounds()) {
        const SoundState& known = state(sound.id);
        if (known.kind != SoundState::Kind::Good)
            continue;
        SoundFacts facts{sound.path, sound.selection, known.length, known.sampleRateHz};
        if (facts.selection) {
            facts.selection->end = std::min(facts.selection->end, known.length);
            facts.selection->start = std::min(facts.selection->start, facts.selection->end);
            facts.length = facts.selection->end - facts.selection->start;
        }
        // Of a part that holds nothing nothing is heard.
        if (facts.length > Seconds(0))
            sounds.push_back(std::move(facts));
    }
    return sounds;
}

std::vector<SoundID> SoundStates::usableIDs() const
{
    std::vector<SoundID> ids;
    for (const SoundItem& sound : session_.sounds()) {
        const SoundState& known = state(sound.id);
        if (known.kind == SoundState::Kind::Good &&
            (sound.selection ? sound.selection->start < std::min(sound.selection->end, known.length)
                             : known.length > Seconds(0)))
            ids.push_back(sound.id);
    }
    return ids;
}

bool SoundStates::isAnyWaiting() const
{
    return std::ranges::any_of(session_.sounds(), [this](const SoundItem& sound) {
        return state(sound.id).kind == SoundState::Kind::Waiting;
    });
}

} // namespace stillora::window
