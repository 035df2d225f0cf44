#pragma once

#include "window/music/RangeBar.h"
#include "window/state/WindowState.h"

#include <optional>
#include <string>

#include <gtkmm/builder.h>
#include <gtkmm/button.h>
#include <gtkmm/entry.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/listboxrow.h>

namespace stillora::window {

/// One sound: its cover and names, how loud it is, and the part of it that plays, by two handles or by typed times.
class MusicRow final : public Gtk::ListBoxRow {
public:
    MusicRow(WindowState& state, SoundID sound);

    SoundID sound() const { return sound_; }
    /// Shows what is known of the sound by now. One that is not in the document any more stays as it was.
    void show();

private:
    void setUpTime(Gtk::Entry& entry, bool isStart);
    void takeTime(Gtk::Entry& entry, bool isStart);
    void select(SoundFacts::Selection range);
    void showRange(const SoundItem& item, const SoundState& state);
    SoundFacts::Selection range() const;

    WindowState& state_;
    const SoundID sound_;
    const Glib::RefPtr<Gtk::Builder> builder_;
    Gtk::Image* const cover_;
    Gtk::Label* const title_;
    Gtk::Label* const artist_;
    Gtk::Button* const remove_;
    Gtk::Widget* const part_;
    Gtk::Entry* const start_;
    Gtk::Entry* const end_;
    Gtk::Label* const length_;
    Gtk::Label* const fault_;
    RangeBar bar_;
    std::shared_ptr<const Pixels> shownCover_;
};

} // namespace stillora::window
