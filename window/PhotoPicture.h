#pragma once

#include <stillora/Types.h>

#include <optional>

#include <gdkmm/texture.h>
#include <gtkmm/widget.h>

namespace stillora::window {

/// A photo in a grid: the picture at its own shape in the middle of a place of a fixed size, or its average colour in
/// that shape before the picture is there.
class PhotoPicture final : public Gtk::Widget {
public:
    static constexpr int kWidth = 160;
    static constexpr int kHeight = 120;

    PhotoPicture();

    /// @param texture  null where it is not there yet
    /// @param color    of all of the photo, where that is known
    /// @param size     of the photo, upright, where that is known
    void show(Glib::RefPtr<Gdk::Texture> texture, std::optional<Color> color, std::optional<Size> size);

protected:
    Gtk::SizeRequestMode get_request_mode_vfunc() const override;
    void measure_vfunc(Gtk::Orientation orientation, int forSize, int& minimum, int& natural, int& minimumBaseline,
                       int& naturalBaseline) const override;
    void snapshot_vfunc(const Glib::RefPtr<Gtk::Snapshot>& snapshot) override;

private:
    Size shape() const;

    Glib::RefPtr<Gdk::Texture> texture_;
    std::optional<Color> color_;
    std::optional<Size> size_;
};

} // namespace stillora::window
