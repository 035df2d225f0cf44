#pragma once

#include "window/state/SettingsModel.h"
#include "window/state/WindowState.h"

#include <vector>

#include <adwaita.h>
#include <gtkmm/builder.h>
#include <gtkmm/label.h>
#include <gtkmm/spinbutton.h>
#include <gtkmm/switch.h>

namespace stillora::window {

/// How the movie is to be made, in words for people, and what comes of it.
class SettingsPane final {
public:
    SettingsPane(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state);
    SettingsPane(const SettingsPane&) = delete;
    SettingsPane& operator=(const SettingsPane&) = delete;

private:
    void setUpChoices();
    void showSettings();
    void showOutlook();
    /// Has the settings changed, unless it is they that are shown.
    template <typename Change>
    void change(Change set);

    WindowState& state_;
    Gtk::SpinButton* const seconds_;
    AdwActionRow* const secondsRow_;
    AdwComboRow* const size_;
    AdwComboRow* const codec_;
    Gtk::Switch* const fill_;
    Gtk::Widget* const fitRow_;
    Gtk::Widget* const loopRow_;
    Gtk::Switch* const fit_;
    Gtk::Switch* const loop_;
    AdwComboRow* const watermark_;
    Gtk::Label* const summary_;
    const std::vector<SizeChoice> sizes_ = sizeChoices();
    const std::vector<CodecChoice> codecs_ = codecChoices();
    bool isShowing_ = false;
    std::vector<Connection> connections_;
};

} // namespace stillora::window
