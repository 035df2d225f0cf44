#include "window/music/RangeBar.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/Accessibility.h"
#include "window/toolkit/TimeText.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/gesturedrag.h>

namespace stillora::window {

namespace {

constexpr int kHeight = 56;
constexpr int kHandleWidth = 12;
constexpr double kKeySeconds = 0.1;
constexpr double kPageSeconds = 5;

} // namespace

RangeBar::RangeBar(const std::string& title)
{
    // Time goes from left to right in every language.
    set_direction(Gtk::TextDirection::LTR);
    add_css_class("range-bar");
    wave_.set_content_height(kHeight);
    wave_.set_hexpand(true);
    wave_.set_margin_start(kHandleWidth / 2);
    wave_.set_margin_end(kHandleWidth / 2);
    wave_.set_draw_func([this](const auto& context, int width, int height) { draw(context, width, height); });
    wave_.signal_resize().connect([this](int, int) { place(); });
    setAccessibleName(wave_, localized("How loud {} is over time", title));
    set_child(wave_);
    setUpHandle(start_, End::Start, localized("Where {} begins", title));
    setUpHandle(end_, End::End, localized("Where {} ends", title));
    setUpDragging();
}

void RangeBar::setUpHandle(Gtk::Box& handle, End end, const std::string& name)
{
    g_object_set(handle.gobj(), "accessible-role", GTK_ACCESSIBLE_ROLE_SLIDER, nullptr);
    handle.add_css_class("handle");
    handle.set_size_request(kHandleWidth, kHeight);
    handle.set_halign(Gtk::Align::START);
    handle.set_focusable(true);
    handle.set_cursor("ew-resize");
    setAccessibleName(handle, name);
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this, end](guint key, guint, Gdk::ModifierType) { return keyPressed(end, key); }, false);
    keys->signal_key_released().connect([this](guint, guint, Gdk::ModifierType) {
        if (movementEnded)
            movementEnded();
    });
    handle.add_controller(keys);
    add_overlay(handle);
}

bool RangeBar::keyPressed(End end, unsigned key)
{
    const Seconds at = end == End::Start ? range_.start : range_.end;
    switch (key) {
    case GDK_KEY_Left:
    case GDK_KEY_Down:
        moveTo(end, at - Seconds(kKeySeconds));
        return true;
    case GDK_KEY_Right:
    case GDK_KEY_Up:
        moveTo(end, at + Seconds(kKeySeconds));
        return true;
    case GDK_KEY_Page_Down:
        moveTo(end, at - Seconds(kPageSeconds));
        return true;
    case GDK_KEY_Page_Up:
        moveTo(end, at + Seconds(kPageSeconds));
        return true;
    case GDK_KEY_Home:
        moveTo(end, Seconds(0));
        return true;
    case GDK_KEY_End:
        moveTo(end, length_);
        return true;
    default:
        return false;
    }
}

void RangeBar::setUpDragging()
{
    auto drag = Gtk::GestureDrag::create();
    auto* raw = drag.get();
    drag->signal_drag_begin().connect([this, raw](double x, double) {
        // A row that is dragged is another gesture.
        raw->set_state(Gtk::EventSequenceState::CLAIMED);
        const Seconds at((x - kHandleWidth / 2.0) * scale());
        dragged_ = std::abs((at - range_.start).count()) <= std::abs((at - range_.end).count()) ? End::Start : End::End;
        (dragged_ == End::Start ? start_ : end_).grab_focus();
        dragStart_ = x;
    });
    drag->signal_drag_update().connect(
        [this](double x, double) { moveTo(dragged_, Seconds((dragStart_ + x - kHandleWidth / 2.0) * scale())); });
    drag->signal_drag_end().connect([this](double, double) {
        if (movementEnded)
            movementEnded();
    });
    add_controller(drag);
}

double RangeBar::scale() const
{
    return length_.count() / std::max(1, wave_.get_width());
}

void RangeBar::moveTo(End end, Seconds time)
{
    // Hundredths, as the times are shown.
    time = Seconds(std::round(time.count() * 100) / 100);
    SoundFacts::Selection range = range_;
    if (end == End::Start)
        range.start = std::clamp(time, Seconds(0), std::max(Seconds(0), range.end - kShortest));
    else
        range.end = std::clamp(time, std::min(length_, range.start + kShortest), length_);
    if (range == range_)
        return;
    setRange(range);
    if (moved)
        moved(range);
}

void RangeBar::setSound(Seconds length, std::shared_ptr<const std::vector<float>> levels)
{
    length_ = length;
    levels_ = std::move(levels);
    place();
}

void RangeBar::setRange(SoundFacts::Selection range)
{
    range_ = range;
    place();
}

void RangeBar::place()
{
    placeHandle(start_, range_.start);
    placeHandle(end_, range_.end);
    wave_.queue_draw();
}

void RangeBar::placeHandle(Gtk::Box& handle, Seconds time)
{
    handle.set_margin_start(std::max(0, static_cast<int>(std::lround(time.count() / std::max(1e-9, scale())))));
    gtk_accessible_update_property(GTK_ACCESSIBLE(handle.gobj()), GTK_ACCESSIBLE_PROPERTY_VALUE_MIN, 0.0,
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_MAX, length_.count(),
                                   GTK_ACCESSIBLE_PROPERTY_VALUE_NOW, time.count(), GTK_ACCESSIBLE_PROPERTY_VALUE_TEXT,
                                   textOfTime(time).c_str(), -1);
}

void RangeBar::draw(const Cairo::RefPtr<Cairo::Context>& context, int width, int height)
{
    const Gdk::RGBA color = wave_.get_style_context()->get_color();
    const double first = range_.start.count() / std::max(1e-9, scale());
    const double last = range_.end.count() / std::max(1e-9, scale());
    context->set_source_rgba(color.get_red(), color.get_green(), color.get_blue(), 0.08);
    context->rectangle(first, 0, last - first, height);
    context->fill();
    if (!levels_ || levels_->empty())
        return;
    for (int x = 0; x < width; ++x) {
        const std::size_t from = levels_->size() * static_cast<std::size_t>(x) / static_cast<std::size_t>(width);
        const std::size_t to = levels_->size() * static_cast<std::size_t>(x + 1) / static_cast<std::size_t>(width);
        float level = 0;
        for (std::size_t i = from; i < std::max(from + 1, to) && i < levels_->size(); ++i)
            level = std::max(level, (*levels_)[i]);
        const double drawn = std::max(1.0, level * (height - 8.0));
        const bool isHeard = x >= first && x <= last;
        context->set_source_rgba(color.get_red(), color.get_green(), color.get_blue(), isHeard ? 0.8 : 0.25);
        context->rectangle(x, (height - drawn) / 2, 1, drawn);
        context->fill();
    }
}

} // namespace stillora::window
