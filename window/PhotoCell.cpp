#include "window/PhotoCell.h"

#include "window/Accessibility.h"
#include "window/state/PhotoStates.h"

#include <utility>

#include <fmt/format.h>

namespace stillora::window {

PhotoCell::PhotoCell() : Gtk::Box(Gtk::Orientation::VERTICAL, 4)
{
    add_css_class("photo-cell");
    reason_.add_css_class("photo-reason");
    reason_.set_wrap(true);
    reason_.set_lines(4);
    reason_.set_ellipsize(Pango::EllipsizeMode::END);
    reason_.set_justify(Gtk::Justification::CENTER);
    reason_.set_valign(Gtk::Align::END);
    reason_.set_can_target(false);
    reason_.set_visible(false);
    number_.add_css_class("photo-number");
    overlay_.set_child(picture_);
    overlay_.add_overlay(reason_);
    append(overlay_);
    append(number_);
}

void PhotoCell::setPhoto(std::optional<PhotoID> photo, std::size_t index)
{
    photo_ = photo;
    index_ = index;
    number_.set_text(std::to_string(index + 1));
}

void PhotoCell::show(const std::string& title, const PhotoState& state, Glib::RefPtr<Gdk::Texture> texture)
{
    const bool isKnown = state.kind != PhotoState::Kind::Waiting;
    picture_.show(std::move(texture), state.averageColor,
                  state.isUsable() ? std::optional(state.facts.size) : std::nullopt);
    const bool isFaulty = isKnown && !state.reason.empty();
    reason_.set_visible(isFaulty);
    reason_.set_text(state.reason);
    set_tooltip_text(isFaulty ? fmt::format("{}: {}", title, state.reason) : title);
    if (auto* row = get_parent()) {
        setAccessibleName(*row, title);
        setAccessibleDescription(*row, state.reason);
    }
}

void PhotoCell::setPlaying(bool isPlaying)
{
    if (isPlaying)
        add_css_class("playing");
    else
        remove_css_class("playing");
}

} // namespace stillora::window
