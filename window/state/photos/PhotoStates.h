#pragma once

#include <stillora/Photos.h>
#include <stillora/Types.h>

#include "window/state/document/DocumentSession.h"
#include "window/state/document/Items.h"
#include "window/state/loop/Background.h"
#include "window/state/loop/Signal.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace stillora::window {

/// What is known of a photo.
struct PhotoState {
    enum class Kind {
        /// It was not looked at yet.
        Waiting,
        Good,
        /// It is shown as far as its file goes.
        CutOff,
        /// It cannot be used: the movie is made without it.
        Unusable,
    };

    Kind kind = Kind::Waiting;
    /// Of what can be used, but for the path, which the document knows.
    PhotoFacts facts;
    /// Stands in for the picture until that is there.
    std::optional<Color> averageColor;
    /// What is wrong with it, a sentence without the path.
    std::string reason;

    bool isUsable() const { return kind == Kind::Good || kind == Kind::CutOff; }
};

/// Looks at the photos of the document in the background, those nearest to what is on the screen first. A photo is
/// looked at once, whatever is moved, removed and undone. Main thread.
class PhotoStates final {
public:
    /// @param loop     of the main thread
    /// @param session  whose photos; outlives this
    PhotoStates(MainLoop& loop, DocumentSession& session);
    ~PhotoStates();
    PhotoStates(const PhotoStates&) = delete;
    PhotoStates& operator=(const PhotoStates&) = delete;

    const PhotoState& state(PhotoID id) const;
    /// Told together for all that were looked at since the last time, a few times a second.
    Signal<const std::vector<PhotoID>&> changed;

    /// Which photos are on the screen, by their places.
    /// @param end  one behind the last
    void setView(std::size_t first, std::size_t end);

    /// @name Of the photos that are in the document
    /// @{
    std::size_t waitingCount() const { return waiting_.size(); }
    /// In the document's order.
    std::vector<PhotoID> unusable() const;
    /// Removes them as one step; nothing where there is none.
    void removeUnusable();
    /// The facts of those that can be used, in the document's order.
    std::vector<PhotoFacts> usable() const;
    /// The photos of `usable`.
    std::vector<PhotoID> usableIDs() const;
    /// Of one that can be used.
    std::optional<PhotoFacts> facts(PhotoID id) const;
    /// @}

    /// Puts the photos of the document in order, as one step; where it goes by dates, as soon as all were looked at,
    /// and those that cannot be used come last.
    void sort(PhotoSort by);
    /// Whether an order waits for photos to be looked at.
    bool isSortWaiting() const { return waitingSort_.has_value(); }

    /// Of a photo whose picture is known, for as long as that is not shown.
    void noteColor(PhotoID id, Color color);

private:
    void photosChanged();
    void lookOn();
    std::optional<PhotoID> nearest(const std::unordered_set<PhotoID>& wanted) const;
    void take(PhotoID id, PhotoState state);
    void tell();
    void sortIfDue();
    void sortNow(PhotoSort by);

    MainLoop& loop_;
    DocumentSession& session_;
    std::unordered_map<PhotoID, PhotoState> states_;
    /// Of the document, not looked at yet.
    std::unordered_set<PhotoID> waiting_;
    /// Being looked at, whether they are still in the document or not.
    std::unordered_set<PhotoID> looking_;
    std::unordered_set<PhotoID> untold_;
    bool isTelling_ = false;
    std::size_t viewFirst_ = 0;
    std::size_t viewEnd_ = 0;
    std::optional<PhotoSort> waitingSort_;
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    Connection photosChanged_;
    Background background_;
};

} // namespace stillora::window
