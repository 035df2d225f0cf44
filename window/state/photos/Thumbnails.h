#pragma once

#include <stillora/Picture.h>

#include "window/state/document/DocumentSession.h"
#include "window/state/document/Items.h"
#include "window/state/loop/Background.h"
#include "window/state/loop/Signal.h"
#include "window/state/photos/PhotoStates.h"

#include <cstddef>
#include <filesystem>
#include <list>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>

namespace stillora::window {

/// Small pictures of the photos that are on the screen and around it, made in the background and kept in the desktop's
/// cache of thumbnails, in a bounded amount of memory. Main thread.
class Thumbnails final {
public:
    /// A thumbnail fits into a square of so many pixels.
    static constexpr int kPixels = 256;
    /// So many bytes of pixels are kept in memory.
    static constexpr std::size_t kMostBytes = std::size_t{64} << 20;

    /// @param loop     of the main thread
    /// @param session  whose photos; outlives this
    /// @param states   of these photos; outlives this. Of a photo that cannot be used no thumbnail is made
    /// @param cache    the desktop's folder of thumbnails, `usualThumbnailCache()`
    Thumbnails(MainLoop& loop, DocumentSession& session, PhotoStates& states, std::filesystem::path cache);

    /// Upright and at the photo's shape; null while it is not there.
    std::shared_ptr<const Pixels> thumbnail(PhotoID id);
    /// A thumbnail has come; it is there now.
    Signal<PhotoID> arrived;

    /// Which photos are on the screen, by their places: their thumbnails are made first, then those of a screen before
    /// and after them. Others that still wait are given up.
    /// @param end  one behind the last
    void setView(std::size_t first, std::size_t end);

    /// While it waits for nothing but the processors, nothing new is begun.
    void setPaused(bool isPaused);

private:
    struct Kept {
        PhotoID id;
        std::shared_ptr<const Pixels> pixels;
    };

    std::optional<PhotoID> nextWanted();
    void makeOn();
    void take(PhotoID id, std::shared_ptr<const Pixels> pixels);

    DocumentSession& session_;
    PhotoStates& states_;
    const std::filesystem::path cache_;
    std::size_t viewFirst_ = 0;
    std::size_t viewEnd_ = 0;
    bool isPaused_ = false;
    /// The one that was asked for last stands first.
    std::list<Kept> kept_;
    std::unordered_map<PhotoID, std::list<Kept>::iterator> found_;
    std::size_t bytes_ = 0;
    std::unordered_set<PhotoID> making_;
    std::unordered_set<PhotoID> impossible_;
    Connection photosChanged_;
    Connection statesChanged_;
    Background background_;
};

} // namespace stillora::window
