#pragma once

#include "window/state/WindowState.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <vector>

#include <gtkmm/aspectframe.h>
#include <gtkmm/builder.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/mediacontrols.h>
#include <gtkmm/mediafile.h>
#include <gtkmm/picture.h>
#include <gtkmm/progressbar.h>
#include <gtkmm/stack.h>
#include <gtkmm/togglebutton.h>

namespace stillora::window {

/// The selected photo as its frame in the movie; and the movie itself, where it is played.
class FrameView final {
public:
    FrameView(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state);
    ~FrameView();
    FrameView(const FrameView&) = delete;
    FrameView& operator=(const FrameView&) = delete;

    /// Plays a draft of the document from the selected photo on, or ends that.
    void togglePlaying();
    /// Plays a movie that was made.
    void play(const std::filesystem::path& movie);
    void stopPlaying();
    /// Told which photo is on the screen; nothing once nothing plays any more.
    std::function<void(std::optional<PhotoID>)> playingChanged;
    /// Told why nothing can be played, a sentence.
    std::function<void(const std::string&)> playingFailed;

private:
    enum class Mode { Frame, PreparingDraft, PlayingDraft, PlayingMovie };

    void showFrame();
    void draftChanged();
    void start(const std::filesystem::path& movie, Mode mode);
    void mediaChanged();
    void tellPhoto();
    void setMode(Mode mode);
    void selectionChanged();

    WindowState& state_;
    Gtk::AspectFrame* const shape_;
    Gtk::Picture* const picture_;
    Gtk::Label* const message_;
    Gtk::Label* const caption_;
    Gtk::ToggleButton* const faces_;
    Gtk::Button* const play_;
    Gtk::Stack* const player_;
    Gtk::ProgressBar* const preparing_;
    Gtk::MediaControls* const controls_;
    Mode mode_ = Mode::Frame;
    Glib::RefPtr<Gtk::MediaFile> media_;
    /// Where a draft begins to play once it can.
    std::optional<Seconds> seekWanted_;
    std::optional<PhotoID> told_;
    std::vector<sigc::connection> watched_;
    sigc::connection resized_;
    std::vector<Connection> connections_;
};

} // namespace stillora::window
