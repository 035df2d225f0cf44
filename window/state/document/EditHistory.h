#pragma once

#include <stillora/Movie.h>
#include <stillora/Sounds.h>

#include "window/state/document/Items.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// A sound's place in the document, and the part of it that plays.
struct SoundRow {
    SoundID id{};
    std::optional<SoundFacts::Selection> selection;

    friend bool operator==(const SoundRow&, const SoundRow&) = default;
};

/// What a document is made of. Copies share what is equal in them.
struct Arrangement {
    std::shared_ptr<const std::vector<PhotoID>> photos = std::make_shared<const std::vector<PhotoID>>();
    std::shared_ptr<const std::vector<SoundRow>> sounds = std::make_shared<const std::vector<SoundRow>>();
    std::shared_ptr<const MovieSettings> settings = std::make_shared<const MovieSettings>();

    bool isSameAs(const Arrangement& other) const
    {
        return *photos == *other.photos && *sounds == *other.sounds && *settings == *other.settings;
    }
};

/// All arrangements that a document had since it was opened, one of them the present one. Without limit.
class EditHistory final {
public:
    explicit EditHistory(Arrangement first = {});

    const Arrangement& present() const { return steps_[present_].arrangement; }

    /// Makes an arrangement the present one and forgets those that were undone.
    ///
    /// @param label   what was done, as people read it: "Remove 3 Photos"
    /// @param handle  of a movement that goes on, such as a handle that is dragged: a step with the same one as the
    ///                step before takes its place, so that undoing goes back to where the movement began. Empty for
    ///                none
    /// @return false where nothing was changed by it; no step is added then
    bool add(Arrangement arrangement, std::string label, std::string handle = {});

    /// Makes the next step a new one, whatever its handle.
    void endMovement() { steps_[present_].handle.clear(); }

    bool canUndo() const { return present_ > 0; }
    bool canRedo() const { return present_ + 1 < steps_.size(); }
    /// Only where it can.
    void undo() { --present_; }
    /// Only where it can.
    void redo() { ++present_; }
    /// What would be undone; empty where nothing can be.
    std::string undoLabel() const { return canUndo() ? steps_[present_].label : std::string(); }
    /// What would be done again; empty where nothing can be.
    std::string redoLabel() const { return canRedo() ? steps_[present_ + 1].label : std::string(); }

private:
    struct Step {
        Arrangement arrangement;
        std::string label;
        std::string handle;
    };

    std::vector<Step> steps_;
    std::size_t present_ = 0;
};

} // namespace stillora::window
