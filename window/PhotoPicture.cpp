#include "window/PhotoPicture.h"

#include <algorithm>
#include <utility>

#include <gtk/gtk.h>
#include <gtkmm/snapshot.h>

namespace stillora::window {

namespace {

constexpr float kCornerRadius = 4;

} // namespace

PhotoPicture::PhotoPicture() : Glib::ObjectBase("StilloraPhotoPicture")
{
    set_halign(Gtk::Align::CENTER);
}

void PhotoPicture::show(Glib::RefPtr<Gdk::Texture> texture, std::optional<Color> color, std::optional<Size> size)
{
    texture_ = std::move(texture);
    color_ = color;
    size_ = size;
    queue_draw();
}

Gtk::SizeRequestMode PhotoPicture::get_request_mode_vfunc() const
{
    return Gtk::SizeRequestMode::CONSTANT_SIZE;
}

void PhotoPicture::measure_vfunc(Gtk::Orientation orientation, int, int& minimum, int& natural, int& minimumBaseline,
                                 int& naturalBaseline) const
{
    minimum = natural = orientation == Gtk::Orientation::HORIZONTAL ? kWidth : kHeight;
    minimumBaseline = naturalBaseline = -1;
}

Size PhotoPicture::shape() const
{
    if (texture_)
        return {static_cast<double>(texture_->get_width()), static_cast<double>(texture_->get_height())};
    return size_ && size_->width > 0 && size_->height > 0 ? *size_ : Size{4, 3};
}

void PhotoPicture::snapshot_vfunc(const Glib::RefPtr<Gtk::Snapshot>& snapshot)
{
    const Size wanted = shape();
    const double scale = std::min(get_width() / wanted.width, get_height() / wanted.height);
    const auto width = static_cast<float>(wanted.width * scale);
    const auto height = static_cast<float>(wanted.height * scale);
    graphene_rect_t place;
    graphene_rect_init(&place, (static_cast<float>(get_width()) - width) / 2,
                       (static_cast<float>(get_height()) - height) / 2, width, height);
    GskRoundedRect outline;
    gsk_rounded_rect_init_from_rect(&outline, &place, kCornerRadius);
    gtk_snapshot_push_rounded_clip(snapshot->gobj(), &outline);
    if (texture_) {
        gtk_snapshot_append_texture(snapshot->gobj(), texture_->gobj(), &place);
    } else {
        const Color shown = color_.value_or(Color{0.5, 0.5, 0.5});
        const GdkRGBA color{static_cast<float>(shown.red), static_cast<float>(shown.green),
                            static_cast<float>(shown.blue), color_ ? 1.0F : 0.25F};
        gtk_snapshot_append_color(snapshot->gobj(), &color, &place);
    }
    gtk_snapshot_pop(snapshot->gobj());
}

} // namespace stillora::window
