#pragma once

#include "window/PhotoPicture.h"
#include "window/state/Items.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include <gtkmm/box.h>
#include <gtkmm/image.h>
#include <gtkmm/label.h>
#include <gtkmm/overlay.h>

namespace stillora::window {

struct PhotoState;

/// One photo of the grid with its number, and what is wrong with it.
class PhotoCell final : public Gtk::Box {
public:
    PhotoCell();

    /// Which photo it stands for at the moment; nothing while it waits for one.
    std::optional<PhotoID> photo() const { return photo_; }
    /// Its place in the document.
    std::size_t index() const { return index_; }

    void setPhoto(std::optional<PhotoID> photo, std::size_t index);
    /// @param title    for people
    /// @param texture  null where it is not there yet
    void show(const std::string& title, const PhotoState& state, Glib::RefPtr<Gdk::Texture> texture);
    /// Whether it is on the screen while the movie plays.
    void setPlaying(bool isPlaying);

private:
    std::optional<PhotoID> photo_;
    std::size_t index_ = 0;
    PhotoPicture picture_;
    Gtk::Overlay overlay_;
    Gtk::Label reason_;
    Gtk::Label number_;
};

} // namespace stillora::window
