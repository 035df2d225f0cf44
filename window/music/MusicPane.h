#pragma once

#include "window/music/MusicLine.h"
#include "window/music/MusicRow.h"
#include "window/state/WindowState.h"

#include <map>
#include <memory>
#include <vector>

#include <gtkmm/builder.h>
#include <gtkmm/button.h>
#include <gtkmm/label.h>
#include <gtkmm/listbox.h>

namespace stillora::window {

/// The sounds of the document in their order, and how they compare with the pictures.
class MusicPane final {
public:
    MusicPane(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state);
    MusicPane(const MusicPane&) = delete;
    MusicPane& operator=(const MusicPane&) = delete;

private:
    void showSounds();
    void showPlan();
    void setUpDragging(MusicRow& row);
    void move(SoundID sound, int steps);
    std::unique_ptr<MusicRow> makeRow(SoundID sound);

    WindowState& state_;
    Gtk::ListBox* const list_;
    Gtk::Label sentence_;
    MusicLine line_;
    Gtk::Box mends_;
    Gtk::Button fit_;
    Gtk::Button loop_;
    std::map<SoundID, std::unique_ptr<MusicRow>> rows_;
    std::vector<SoundID> shown_;
    std::optional<SoundID> dragged_;
    std::vector<Connection> connections_;
};

} // namespace stillora::window
