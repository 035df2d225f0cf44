#include "client/DocumentCheck.h"

#include "client/PhotoCheck.h"
#include "client/SoundCheck.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

template <typename Entry>
void addBadEntries(const std::vector<Entry>& entries, BadItem::Kind kind, std::vector<BadItem>& bad)
{
    const char* const name = kind == BadItem::Kind::Photo ? "photo" : "soundtrack";
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].state == Entry::State::Good)
            continue;
        const std::string path = pathOf(entries[i]);
        bad.push_back({kind, i, path.empty() ? fmt::format("{} {}", name, i + 1) : path, entries[i].fault});
    }
}

} // namespace

std::vector<BadItem> badItemsOf(const Document& document)
{
    std::vector<BadItem> bad;
    addBadEntries(document.photos(), BadItem::Kind::Photo, bad);
    addBadEntries(document.soundtracks(), BadItem::Kind::Soundtrack, bad);
    return bad;
}

CheckedDocument checkDocument(const Document& document, const std::function<bool(size_t)>& progress)
{
    CheckedDocument checked;
    checked.bad = badItemsOf(document);

    std::vector<PhotoCandidate> candidates;
    std::vector<size_t> indices;
    for (size_t i = 0; i < document.photos().size(); ++i) {
        if (document.photos()[i].state != DocumentPhoto::State::Good)
            continue;
        candidates.push_back({pathOf(document.photos()[i]), PhotoCandidate::Origin::Named});
        indices.push_back(i);
    }
    CheckedPhotos photos = checkPhotos(candidates, progress);
    if (photos.isCancelled) {
        checked.isCancelled = true;
        return checked;
    }
    // Good and bad ones come in the candidates' order, each in one of the two lists.
    auto bad = photos.bad.begin();
    auto good = photos.good.begin();
    for (size_t i = 0; i < candidates.size(); ++i) {
        if (bad != photos.bad.end() && (good == photos.good.end() || good->path != candidates[i].path)) {
            checked.bad.push_back({BadItem::Kind::Photo, indices[i], bad->path, bad->reason});
            ++bad;
            continue;
        }
        const MORPhoto& item = *document.photos()[indices[i]].item;
        if (item.fileSize() > 0 && item.fileSize() != good->fileSize)
            checked.changed.push_back(fmt::format("{} has changed since it was added: it holds {} bytes, not {}",
                                                  good->path, good->fileSize, item.fileSize()));
        checked.photos.push_back(std::move(*good));
        ++good;
    }

    std::vector<SoundArgument> arguments;
    indices.clear();
    for (size_t i = 0; i < document.soundtracks().size(); ++i) {
        if (document.soundtracks()[i].state != DocumentSoundtrack::State::Good)
            continue;
        arguments.push_back(soundArgumentOf(*document.soundtracks()[i].item));
        indices.push_back(i);
    }
    CheckedSounds sounds = checkSounds(arguments);
    for (const BadSound& sound : sounds.bad)
        checked.bad.push_back({BadItem::Kind::Soundtrack, indices[sound.argument], sound.path, sound.reason});
    checked.sounds = std::move(sounds.good);
    std::sort(checked.bad.begin(), checked.bad.end(), [](const BadItem& one, const BadItem& other) {
        return std::tie(one.kind, one.index) < std::tie(other.kind, other.index);
    });
    return checked;
}

} // namespace stillora
