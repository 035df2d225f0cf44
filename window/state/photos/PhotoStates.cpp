#include "window/state/photos/PhotoStates.h"

#include <stillora/Picture.h>

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <utility>

namespace stillora::window {

namespace {

constexpr std::chrono::milliseconds kTellingInterval{200};

PhotoState stateOf(const CheckedPhotos& checked)
{
    PhotoState state;
    if (checked.good.empty()) {
        state.kind = PhotoState::Kind::Unusable;
        state.reason = checked.bad.empty() ? localized("is no photo") : checked.bad.front().reason;
        return state;
    }
    state.facts = checked.good.front();
    state.kind = state.facts.isCutOff ? PhotoState::Kind::CutOff : PhotoState::Kind::Good;
    if (state.facts.isCutOff)
        state.reason = reasonOfCutOffPhoto();
    return state;
}

} // namespace

PhotoStates::PhotoStates(MainLoop& loop, DocumentSession& session)
    : loop_(loop), session_(session),
      photosChanged_(session.photosChanged.connect([this](ListChange) { photosChanged(); })), background_(loop)
{
    photosChanged();
}

PhotoStates::~PhotoStates()
{
    *isAlive_ = false;
}

const PhotoState& PhotoStates::state(PhotoID id) const
{
    static const PhotoState kUnknown;
    const auto found = states_.find(id);
    return found == states_.end() ? kUnknown : found->second;
}

void PhotoStates::photosChanged()
{
    waiting_.clear();
    for (const PhotoID id : session_.photos()) {
        const auto [entry, isNew] = states_.try_emplace(id);
        const std::string& fault = session_.photo(id).fault;
        if (isNew && !fault.empty()) {
            entry->second.kind = PhotoState::Kind::Unusable;
            entry->second.reason = fault;
        }
        if (entry->second.kind == PhotoState::Kind::Waiting)
            waiting_.insert(id);
    }
    lookOn();
    sortIfDue();
}

void PhotoStates::setView(std::size_t first, std::size_t end)
{
    viewFirst_ = first;
    viewEnd_ = end;
}

std::optional<PhotoID> PhotoStates::nearest(const std::unordered_set<PhotoID>& wanted) const
{
    const auto& photos = session_.photos();
    const auto isWanted = [&](std::size_t place) {
        return wanted.contains(photos[place]) && !looking_.contains(photos[place]);
    };
    const std::size_t first = std::min(viewFirst_, photos.size());
    for (std::size_t after = first, before = first; after < photos.size() || before > 0;) {
        if (after < photos.size() && isWanted(after))
            return photos[after];
        after += after < photos.size();
        // What is before the view is as far as what is behind its end.
        const bool isBeyondView = after >= std::min(viewEnd_, photos.size());
        if (isBeyondView && before > 0 && isWanted(--before))
            return photos[before];
    }
    return std::nullopt;
}

void PhotoStates::lookOn()
{
    while (looking_.size() < Background::mostAtOnce()) {
        const auto id = waiting_.empty() ? std::nullopt : nearest(waiting_);
        if (!id)
            return;
        looking_.insert(*id);
        background_.run(
            [path = session_.photo(*id).path] {
                return stateOf(checkPhotos({{path, PhotoCandidate::Origin::Named}}));
            },
            [this, id = *id](PhotoState state) { take(id, std::move(state)); });
    }
}

void PhotoStates::take(PhotoID id, PhotoState state)
{
    looking_.erase(id);
    waiting_.erase(id);
    states_[id] = std::move(state);
    untold_.insert(id);
    lookOn();
    if (std::exchange(isTelling_, true))
        return;
    loop_.postAfter(kTellingInterval, [this, isAlive = isAlive_] {
        if (*isAlive)
            tell();
    });
}

void PhotoStates::tell()
{
    isTelling_ = false;
    const std::vector<PhotoID> told(untold_.begin(), untold_.end());
    untold_.clear();
    changed.emit(told);
    sortIfDue();
}

void PhotoStates::noteColor(PhotoID id, Color color)
{
    if (const auto found = states_.find(id); found != states_.end())
        found->second.averageColor = color;
}

std::vector<PhotoID> PhotoStates::unusable() const
{
    std::vector<PhotoID> ids;
    std::ranges::copy_if(session_.photos(), std::back_inserter(ids),
                         [this](PhotoID id) { return state(id).kind == PhotoState::Kind::Unusable; });
    return ids;
}

void PhotoStates::removeUnusable()
{
    if (const auto ids = unusable(); !ids.empty())
        session_.removeUnusablePhotos(ids);
}

std::vector<PhotoFacts> PhotoStates::usable() const
{
    std::vector<PhotoFacts> photos;
    for (const PhotoID id : session_.photos())
        if (state(id).isUsable()) {
            photos.push_back(state(id).facts);
            photos.back().path = session_.photo(id).path;
        }
    return photos;
}

std::vector<PhotoID> PhotoStates::usableIDs() const
{
    std::vector<PhotoID> ids;
    std::ranges::copy_if(session_.photos(), std::back_inserter(ids),
                         [this](PhotoID id) { return state(id).isUsable(); });
    return ids;
}

std::optional<PhotoFacts> PhotoStates::facts(PhotoID id) const
{
    return state(id).isUsable() ? std::optional(state(id).facts) : std::nullopt;
}

void PhotoStates::sort(PhotoSort by)
{
    waitingSort_ = by;
    sortIfDue();
}

void PhotoStates::sortIfDue()
{
    if (!waitingSort_ || (*waitingSort_ == PhotoSort::ByDate && !waiting_.empty()))
        return;
    sortNow(*std::exchange(waitingSort_, std::nullopt));
}

void PhotoStates::sortNow(PhotoSort by)
{
    std::vector<PhotoFacts> facts;
    // A file that is in the document twice is two photos, whose order among each other stays.
    std::multimap<std::filesystem::path, PhotoID> ids;
    std::vector<PhotoID> last;
    for (const PhotoID id : session_.photos()) {
        const PhotoState& known = state(id);
        if (by == PhotoSort::ByDate && !known.isUsable()) {
            last.push_back(id);
            continue;
        }
        facts.push_back(known.facts);
        facts.back().path = session_.photo(id).path;
        ids.emplace(facts.back().path, id);
    }
    std::vector<PhotoID> order;
    for (const PhotoFacts& photo : sortPhotos(std::move(facts), {.sort = by}).photos)
        order.push_back(ids.extract(ids.lower_bound(photo.path)).mapped());
    order.insert(order.end(), last.begin(), last.end());
    session_.setPhotoOrder(std::move(order),
                           by == PhotoSort::ByDate ? localized("Sort by Date") : localized("Sort by Name"));
}

} // namespace stillora::window
