#pragma once

#include "window/state/WindowState.h"

#include <gtkmm/builder.h>
#include <gtkmm/button.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/progressbar.h>
#include <gtkmm/revealer.h>

namespace stillora::window {

/// How far the movie is, at the lower edge of the window; at the end, what has become of it.
class MakingBar final {
public:
    MakingBar(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state);
    MakingBar(const MakingBar&) = delete;
    MakingBar& operator=(const MakingBar&) = delete;

private:
    void show();
    void showProgress();
    void showEnd();

    WindowState& state_;
    Gtk::Revealer* const revealer_;
    Gtk::Image* const picture_;
    Gtk::Label* const stage_;
    Gtk::Label* const left_;
    Gtk::ProgressBar* const bar_;
    Gtk::Button* const cancel_;
    Gtk::Button* const play_;
    Gtk::Button* const showInFolder_;
    Gtk::Button* const close_;
    /// What was decoded last; most news have the same picture.
    Bytes shownPicture_;
    Connection changed_;
};

} // namespace stillora::window
