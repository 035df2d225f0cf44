#include "window/state/WindowState.h"

#include "window/state/photos/ThumbnailCache.h"
#include "window/state/photos/UserFolders.h"

namespace stillora::window {

WindowFolders WindowFolders::usual()
{
    return {usualStateFolder() / "stillora", usualCacheFolder() / "stillora", usualThumbnailCache()};
}

WindowState::WindowState(MainLoop& loop, const WindowFolders& folders)
    : session(loop, folders.state), selection(session), photos(loop, session), sounds(loop, session),
      thumbnails(loop, session, photos, folders.thumbnails), outlook(loop, session, photos, sounds),
      frame(loop, session, selection, photos, outlook), draft(loop, outlook, folders.cache), making(loop, outlook)
{
    session.setKnownFacts([this](PhotoID id) { return photos.facts(id); });
    // Somebody waits for a draft, and nobody for small pictures.
    draftChanged_ = draft.changed.connect([this] { thumbnails.setPaused(draft.state() == Draft::State::Making); });
    makingChanged_ = making.changed.connect([this] { letDraftsBeMadeAhead(); });
    letDraftsBeMadeAhead();
}

void WindowState::setHasPowerToSpare(bool hasPower)
{
    hasPowerToSpare_ = hasPower;
    letDraftsBeMadeAhead();
}

void WindowState::letDraftsBeMadeAhead()
{
    draft.setMakesAhead(hasPowerToSpare_ && !making.isGoingOn());
}

void WindowState::setView(std::size_t first, std::size_t end)
{
    photos.setView(first, end);
    thumbnails.setView(first, end);
}

void WindowState::finish()
{
    draft.setMakesAhead(false);
    draft.stop();
    making.finish();
    session.finish();
}

} // namespace stillora::window
