#pragma once

#include "window/state/document/Items.h"
#include "window/state/photos/PhotoStates.h"

#include <cstddef>
#include <optional>
#include <string>

#include <gdkmm/texture.h>
#include <gtkmm/widget.h>

namespace stillora::window {

/// One photo of the grid: the picture at its own shape, or its average colour in that shape before the picture is
/// there; the number below, and over it what is wrong with it. It draws all that itself: the list makes some hundred of
/// them in one go, for which the widgets and the accessible objects of labels would take too long.
class PhotoCell final : public Gtk::Widget {
public:
    /// Of the place for the picture, in pixels.
    static constexpr int kWidth = 160;
    static constexpr int kHeight = 120;

    PhotoCell();

    /// Which photo it stands for at the moment; nothing while it waits for one.
    std::optional<PhotoID> photo() const { return photo_; }
    /// Its place in the document.
    std::size_t index() const { return index_; }

    void setPhoto(PhotoID photo, std::size_t index);
    /// It stands for none any more.
    void clear();
    /// @param title    for people
    /// @param texture  null where it is not there yet
    void show(const std::string& title, const PhotoState& state, Glib::RefPtr<Gdk::Texture> texture);
    /// Whether it is on the screen while the movie plays.
    void setPlaying(bool isPlaying);

protected:
    Gtk::SizeRequestMode get_request_mode_vfunc() const override;
    void measure_vfunc(Gtk::Orientation orientation, int forSize, int& minimum, int& natural, int& minimumBaseline,
                       int& naturalBaseline) const override;
    void snapshot_vfunc(const Glib::RefPtr<Gtk::Snapshot>& snapshot) override;

private:
    Size shape() const;
    void drawPicture(GtkSnapshot* snapshot, float left) const;
    void drawReason(GtkSnapshot* snapshot, float left);
    void drawNumber(GtkSnapshot* snapshot);

    std::optional<PhotoID> photo_;
    std::size_t index_ = 0;
    std::string title_;
    std::string reason_;
    bool isPlaying_ = false;
    Glib::RefPtr<Gdk::Texture> texture_;
    std::optional<Color> color_;
    std::optional<Size> size_;
};

} // namespace stillora::window
