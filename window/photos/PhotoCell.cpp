#include "window/photos/PhotoCell.h"

#include "window/toolkit/Accessibility.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <gtk/gtk.h>
#include <gtkmm/snapshot.h>
#include <gtkmm/tooltip.h>

namespace stillora::window {

namespace {

constexpr float kCornerRadius = 4;
/// Between the picture and the number.
constexpr int kSpacing = 4;
constexpr float kNumberOpacity = 0.75F;
constexpr int kReasonPadding = 6;
constexpr int kMostReasonLines = 4;
constexpr GdkRGBA kReasonColor{1, 1, 1, 1};
constexpr GdkRGBA kReasonBackground{0, 0, 0, 0.72F};

graphene_rect_t rectangle(float left, float top, float width, float height)
{
    graphene_rect_t rectangle;
    graphene_rect_init(&rectangle, left, top, width, height);
    return rectangle;
}

/// Until `gtk_snapshot_pop`.
void clipRounded(GtkSnapshot* snapshot, const graphene_rect_t& place)
{
    GskRoundedRect outline;
    gsk_rounded_rect_init_from_rect(&outline, &place, kCornerRadius);
    gtk_snapshot_push_rounded_clip(snapshot, &outline);
}

void drawText(GtkSnapshot* snapshot, const Glib::RefPtr<Pango::Layout>& layout, const GdkRGBA& color, float left,
              float top)
{
    const graphene_point_t origin{left, top};
    gtk_snapshot_save(snapshot);
    gtk_snapshot_translate(snapshot, &origin);
    gtk_snapshot_append_layout(snapshot, layout->gobj(), &color);
    gtk_snapshot_restore(snapshot);
}

} // namespace

PhotoCell::PhotoCell() : Glib::ObjectBase("StilloraPhotoCell")
{
    add_css_class("photo-cell");
    // A text that is set is looked up under the pointer at once, which waits for the screen each time.
    set_has_tooltip(true);
    signal_query_tooltip().connect(
        [this](int, int, bool, const Glib::RefPtr<Gtk::Tooltip>& tooltip) {
            tooltip->set_text(reason_.empty() ? title_ : fmt::format("{}: {}", title_, reason_));
            return !title_.empty();
        },
        false);
}

void PhotoCell::setPhoto(PhotoID photo, std::size_t index)
{
    photo_ = photo;
    if (std::exchange(index_, index) != index)
        queue_draw();
}

void PhotoCell::show(const std::string& title, const PhotoState& state, Glib::RefPtr<Gdk::Texture> texture)
{
    texture_ = std::move(texture);
    color_ = state.averageColor;
    size_ = state.isUsable() ? std::optional(state.facts.size) : std::nullopt;
    queue_draw();
    const std::string reason = state.kind == PhotoState::Kind::Waiting ? std::string() : state.reason;
    auto* row = get_parent();
    if (std::exchange(title_, title) != title && row)
        setAccessibleName(*row, title);
    if (std::exchange(reason_, reason) != reason && row)
        setAccessibleDescription(*row, reason);
}

void PhotoCell::clear()
{
    photo_.reset();
    texture_.reset();
}

void PhotoCell::setPlaying(bool isPlaying)
{
    if (std::exchange(isPlaying_, isPlaying) == isPlaying)
        return;
    if (isPlaying)
        add_css_class("playing");
    else
        remove_css_class("playing");
}

Gtk::SizeRequestMode PhotoCell::get_request_mode_vfunc() const
{
    return Gtk::SizeRequestMode::CONSTANT_SIZE;
}

void PhotoCell::measure_vfunc(Gtk::Orientation orientation, int, int& minimum, int& natural, int& minimumBaseline,
                              int& naturalBaseline) const
{
    minimumBaseline = naturalBaseline = -1;
    minimum = natural = kWidth;
    if (orientation == Gtk::Orientation::HORIZONTAL)
        return;
    PangoContext* context = gtk_widget_get_pango_context(const_cast<GtkWidget*>(gobj()));
    PangoFontMetrics* metrics = pango_context_get_metrics(context, nullptr, nullptr);
    minimum = natural = kHeight + kSpacing + PANGO_PIXELS_CEIL(pango_font_metrics_get_height(metrics));
    pango_font_metrics_unref(metrics);
}

Size PhotoCell::shape() const
{
    if (texture_)
        return {static_cast<double>(texture_->get_width()), static_cast<double>(texture_->get_height())};
    return size_ && size_->width > 0 && size_->height > 0 ? *size_ : Size{4, 3};
}

void PhotoCell::snapshot_vfunc(const Glib::RefPtr<Gtk::Snapshot>& snapshot)
{
    const float left = static_cast<float>(get_width() - kWidth) / 2;
    drawPicture(snapshot->gobj(), left);
    if (!reason_.empty())
        drawReason(snapshot->gobj(), left);
    if (photo_)
        drawNumber(snapshot->gobj());
}

void PhotoCell::drawPicture(GtkSnapshot* snapshot, float left) const
{
    const Size wanted = shape();
    const double scale = std::min(kWidth / wanted.width, kHeight / wanted.height);
    const auto width = static_cast<float>(wanted.width * scale);
    const auto height = static_cast<float>(wanted.height * scale);
    const graphene_rect_t place = rectangle(left + (kWidth - width) / 2, (kHeight - height) / 2, width, height);
    clipRounded(snapshot, place);
    if (texture_) {
        gtk_snapshot_append_texture(snapshot, const_cast<GdkTexture*>(texture_->gobj()), &place);
    } else {
        const Color shown = color_.value_or(Color{0.5, 0.5, 0.5});
        const GdkRGBA color{static_cast<float>(shown.red), static_cast<float>(shown.green),
                            static_cast<float>(shown.blue), color_ ? 1.0F : 0.25F};
        gtk_snapshot_append_color(snapshot, &color, &place);
    }
    gtk_snapshot_pop(snapshot);
}

void PhotoCell::drawReason(GtkSnapshot* snapshot, float left)
{
    const auto layout = create_pango_layout(reason_);
    layout->set_width((kWidth - 2 * kReasonPadding) * PANGO_SCALE);
    layout->set_height(-kMostReasonLines);
    layout->set_wrap(Pango::WrapMode::WORD_CHAR);
    layout->set_ellipsize(Pango::EllipsizeMode::END);
    layout->set_alignment(Pango::Alignment::CENTER);
    int width = 0;
    int height = 0;
    layout->get_pixel_size(width, height);
    const auto boxHeight = static_cast<float>(std::min(height + 2 * kReasonPadding, kHeight));
    const graphene_rect_t place = rectangle(left, static_cast<float>(kHeight) - boxHeight, kWidth, boxHeight);
    clipRounded(snapshot, place);
    gtk_snapshot_append_color(snapshot, &kReasonBackground, &place);
    drawText(snapshot, layout, kReasonColor, left + kReasonPadding, place.origin.y + kReasonPadding);
    gtk_snapshot_pop(snapshot);
}

void PhotoCell::drawNumber(GtkSnapshot* snapshot)
{
    const auto layout = create_pango_layout(std::to_string(index_ + 1));
    int width = 0;
    int height = 0;
    layout->get_pixel_size(width, height);
    GdkRGBA color;
    gtk_style_context_get_color(gtk_widget_get_style_context(gobj()), &color);
    color.alpha *= kNumberOpacity;
    drawText(snapshot, layout, color, static_cast<float>(get_width() - width) / 2, kHeight + kSpacing);
}

} // namespace stillora::window
