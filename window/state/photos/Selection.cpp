#include "window/state/photos/Selection.h"

#include <algorithm>
#include <utility>

namespace stillora::window {

Selection::Selection(DocumentSession& session)
    : session_(session),
      photosChanged_(session.photosChanged.connect([this](ListChange change) { photosChanged(change); }))
{}

std::vector<PhotoID> Selection::photos() const
{
    std::vector<PhotoID> photos(selected_.begin(), selected_.end());
    std::ranges::sort(photos, {}, [this](PhotoID id) { return session_.indexOf(id); });
    return photos;
}

void Selection::select(PhotoID id)
{
    anchor_ = id;
    change({id}, id);
}

void Selection::toggle(PhotoID id)
{
    anchor_ = id;
    auto selected = selected_;
    if (selected.erase(id) == 0) {
        selected.insert(id);
        change(std::move(selected), id);
        return;
    }
    const auto next = current_ != id ? current_ : selected.empty() ? std::nullopt : std::optional(*selected.begin());
    change(std::move(selected), next);
}

void Selection::extendTo(PhotoID id)
{
    const auto from = anchor_ ? session_.indexOf(*anchor_) : std::nullopt;
    const auto to = session_.indexOf(id);
    if (!from || !to) {
        select(id);
        return;
    }
    const auto& photos = session_.photos();
    const auto at = [&](std::size_t index) { return photos.begin() + static_cast<std::ptrdiff_t>(index); };
    change({at(std::min(*from, *to)), at(std::max(*from, *to) + 1)}, id);
}

void Selection::set(const std::vector<PhotoID>& ids)
{
    std::unordered_set<PhotoID> selected(ids.begin(), ids.end());
    const bool staysCurrent = current_ && selected.contains(*current_);
    const auto current = staysCurrent ? current_ : ids.empty() ? std::nullopt : std::optional(ids.back());
    if (!staysCurrent)
        anchor_ = current;
    change(std::move(selected), current);
}

void Selection::selectAll()
{
    set(session_.photos());
}

void Selection::clear()
{
    anchor_.reset();
    change({}, std::nullopt);
}

void Selection::photosChanged(ListChange listChange)
{
    auto selected = selected_;
    bool losesAll = !selected.empty();
    std::erase_if(selected, [&](PhotoID id) {
        const bool isGone = !session_.indexOf(id);
        if (isGone)
            removed_.insert(id);
        return isGone;
    });
    losesAll = losesAll && selected.empty();
    // What comes back with an undo is selected again, and nothing else.
    std::vector<PhotoID> back;
    for (const PhotoID id : removed_)
        if (session_.indexOf(id))
            back.push_back(id);
    for (const PhotoID id : back)
        removed_.erase(id);
    if (!back.empty())
        selected = {back.begin(), back.end()};

    auto current = current_;
    if (losesAll && selected.empty() && !session_.photos().empty()) {
        current = session_.photos()[std::min(listChange.position, session_.photos().size() - 1)];
        selected.insert(*current);
    } else if (current && !selected.contains(*current)) {
        current.reset();
    }
    if (!current && !selected.empty())
        current = *std::ranges::min_element(selected, {}, [this](PhotoID id) { return session_.indexOf(id); });
    if (anchor_ && !session_.indexOf(*anchor_))
        anchor_ = current;
    change(std::move(selected), current);
}

void Selection::change(std::unordered_set<PhotoID> selected, std::optional<PhotoID> current)
{
    if (selected == selected_ && current == current_)
        return;
    selected_ = std::move(selected);
    current_ = current;
    changed.emit();
}

} // namespace stillora::window
