#pragma once

#include <stillora/Error.h>
#include <stillora/Picture.h>

#include "window/state/MovieOutlook.h"
#include "window/state/document/DocumentSession.h"
#include "window/state/document/Items.h"
#include "window/state/loop/Background.h"
#include "window/state/loop/Signal.h"
#include "window/state/photos/Selection.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace stillora::window {

/// The current photo as its frame in the movie, drawn in the background by the code that draws movies. The newest wish
/// wins. Main thread.
class FramePreview final {
public:
    FramePreview(MainLoop& loop, DocumentSession& session, Selection& selection, PhotoStates& states,
                 MovieOutlook& outlook);

    /// Whether the faces are outlined.
    void setShowsFaces(bool showsFaces);
    bool showsFaces() const { return showsFaces_; }

    /// How many lines of the screen the frame takes. One with many more would be made small again each time that it is
    /// shown: it is drawn as for the movie, and made so small once.
    void setShownLines(std::size_t lines);

    /// Of which the frame is; nothing where none is current.
    std::optional<PhotoID> photo() const { return photo_; }
    /// Null while there is none.
    std::shared_ptr<const Pixels> frame() const { return frame_; }
    /// That were found; looked for while they are shown.
    std::size_t faceCount() const { return faceCount_; }
    /// Whether a newer frame is on its way.
    bool isDrawing() const { return isDrawing_; }
    /// Why there is no frame, a sentence; empty where there is one or one is on its way.
    const std::string& fault() const { return fault_; }

    Signal<> changed;

private:
    struct Wish;

    void update();
    void draw();

    DocumentSession& session_;
    Selection& selection_;
    PhotoStates& states_;
    MovieOutlook& outlook_;
    bool showsFaces_ = false;
    /// At first those of a small window.
    std::size_t mostLines_ = 512;
    std::optional<PhotoID> photo_;
    std::shared_ptr<const Pixels> frame_;
    std::size_t faceCount_ = 0;
    bool isDrawing_ = false;
    std::string fault_;
    /// What is wanted, and what is drawn at the moment or was drawn last.
    std::shared_ptr<const Wish> wish_;
    std::shared_ptr<const Wish> drawn_;
    Connection selectionChanged_;
    Connection outlookChanged_;
    Connection statesChanged_;
    Background background_;
};

} // namespace stillora::window
