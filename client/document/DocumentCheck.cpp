#include <stillora/Document.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

/// Of an item without a path.
std::string nameOf(BadItem::Kind kind, size_t number)
{
    return kind == BadItem::Kind::Photo ? localized("photo {}", number) : localized("soundtrack {}", number);
}

template <typename Entry>
void addBadEntries(const std::vector<Entry>& entries, BadItem::Kind kind, std::vector<BadItem>& bad)
{
    for (size_t i = 0; i < entries.size(); ++i) {
        if (entries[i].state == DocumentItem::State::Good)
            continue;
        const std::string& path = entries[i].path.native();
        bad.push_back({kind, i, path.empty() ? nameOf(kind, i + 1) : path, entries[i].fault});
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

CheckedDocument checkDocument(const Document& document, const std::function<bool(std::size_t)>& progress)
{
    CheckedDocument checked;
    checked.bad = badItemsOf(document);

    std::vector<PhotoCandidate> candidates;
    std::vector<size_t> indices;
    const std::vector<DocumentPhoto> items = document.photos();
    for (size_t i = 0; i < items.size(); ++i) {
        if (items[i].state != DocumentItem::State::Good)
            continue;
        candidates.push_back({items[i].path, PhotoCandidate::Origin::Named});
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
        if (bad != photos.bad.end() && bad->index == i) {
            checked.bad.push_back({BadItem::Kind::Photo, indices[i], bad->path.native(), bad->reason});
            ++bad;
            continue;
        }
        const DocumentPhoto& item = items[indices[i]];
        if (item.fileSize > 0 && item.fileSize != good->fileSize)
            checked.changed.push_back(localized("{} has changed since it was added: it holds {} bytes, not {}",
                                                good->path.native(), good->fileSize, item.fileSize));
        checked.photos.push_back(std::move(*good));
        ++good;
    }

    std::vector<SoundArgument> arguments;
    indices.clear();
    const std::vector<DocumentSoundtrack> soundtracks = document.soundtracks();
    for (size_t i = 0; i < soundtracks.size(); ++i) {
        if (soundtracks[i].state != DocumentItem::State::Good)
            continue;
        arguments.push_back(soundArgumentOf(soundtracks[i]));
        indices.push_back(i);
    }
    CheckedSounds sounds = checkSounds(arguments, [&] { return !progress || progress(candidates.size()); });
    checked.isCancelled = sounds.isCancelled;
    if (checked.isCancelled)
        return checked;
    for (const BadFile& sound : sounds.bad)
        checked.bad.push_back({BadItem::Kind::Soundtrack, indices[sound.index], sound.path.native(), sound.reason});
    checked.sounds = std::move(sounds.good);
    std::sort(checked.bad.begin(), checked.bad.end(), [](const BadItem& one, const BadItem& other) {
        return std::tie(one.kind, one.index) < std::tie(other.kind, other.index);
    });
    return checked;
}

} // namespace stillora
