#pragma once

#include "window/state/document/DocumentSession.h"
#include "window/state/document/Items.h"
#include "window/state/loop/Signal.h"

#include <optional>
#include <unordered_set>
#include <vector>

namespace stillora::window {

/// Which photos are selected, and which one of them shows large. It stays with the photos, wherever they are moved to,
/// and comes back with them when their removal is undone. Main thread.
class Selection final {
public:
    explicit Selection(DocumentSession& session);

    bool contains(PhotoID id) const { return selected_.contains(id); }
    /// In the order of the document.
    std::vector<PhotoID> photos() const;
    std::size_t size() const { return selected_.size(); }
    /// The photo that shows large: the one that was selected last. After the removal of all that are selected, the one
    /// that took their place is selected instead.
    std::optional<PhotoID> current() const { return current_; }

    /// One alone.
    void select(PhotoID id);
    /// Takes a photo in or out; with none left nothing is current.
    void toggle(PhotoID id);
    /// All from the one that was selected last to this one, and no others.
    void extendTo(PhotoID id);
    void set(const std::vector<PhotoID>& ids);
    void selectAll();
    void clear();

    Signal<> changed;

private:
    void photosChanged(ListChange change);
    void change(std::unordered_set<PhotoID> selected, std::optional<PhotoID> current);

    DocumentSession& session_;
    std::unordered_set<PhotoID> selected_;
    /// Photos that were selected when they were removed.
    std::unordered_set<PhotoID> removed_;
    std::optional<PhotoID> current_;
    /// Where `extendTo` begins.
    std::optional<PhotoID> anchor_;
    Connection photosChanged_;
};

} // namespace stillora::window
