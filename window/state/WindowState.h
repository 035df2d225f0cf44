#pragma once

#include "window/state/Draft.h"
#include "window/state/FramePreview.h"
#include "window/state/MovieMaking.h"
#include "window/state/MovieOutlook.h"
#include "window/state/SoundStates.h"
#include "window/state/document/DocumentSession.h"
#include "window/state/loop/MainLoop.h"
#include "window/state/photos/PhotoStates.h"
#include "window/state/photos/Selection.h"
#include "window/state/photos/Thumbnails.h"

#include <filesystem>

namespace stillora::window {

/// Where a window keeps things.
struct WindowFolders {
    /// Documents without a name; $XDG_STATE_HOME/stillora as a rule.
    std::filesystem::path state;
    /// Drafts; $XDG_CACHE_HOME/stillora as a rule.
    std::filesystem::path cache;
    /// $XDG_CACHE_HOME/thumbnails as a rule.
    std::filesystem::path thumbnails;

    /// Those of the user.
    static WindowFolders usual();
};

/// All that stands behind a window; widgets show it and send orders to it. Main thread.
struct WindowState {
    WindowState(MainLoop& loop, const WindowFolders& folders);

    /// Sets what is on the screen of the photos, for those that work in the background.
    /// @param end  one behind the last
    void setView(std::size_t first, std::size_t end);
    /// Whether the machine has power for work that nobody waits for.
    void setHasPowerToSpare(bool hasPower);
    /// Ends all work and saves, for the end of the program: blocks for a few seconds at the most.
    void finish();

    DocumentSession session;
    Selection selection;
    PhotoStates photos;
    SoundStates sounds;
    Thumbnails thumbnails;
    MovieOutlook outlook;
    FramePreview frame;
    Draft draft;
    MovieMaking making;

private:
    void letDraftsBeMadeAhead();

    bool hasPowerToSpare_ = true;
    Connection draftChanged_;
    Connection makingChanged_;
};

} // namespace stillora::window
