#include "window/music/MusicPane.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/Accessibility.h"

#include <algorithm>
#include <utility>

#include <gdk/gdkkeysyms.h>
#include <gtk/gtk.h>
#include <gtkmm/dragsource.h>
#include <gtkmm/droptarget.h>
#include <gtkmm/eventcontrollerkey.h>
#include <gtkmm/widgetpaintable.h>

namespace stillora::window {

MusicPane::MusicPane(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state)
    : state_(state), list_(builder->get_widget<Gtk::ListBox>("sounds")), mends_(Gtk::Orientation::HORIZONTAL, 8),
      fit_(localized("_Fit to Music"), true), loop_(localized("_Loop"), true)
{
    auto* comparison = builder->get_widget<Gtk::Box>("comparison");
    sentence_.set_wrap(true);
    sentence_.set_xalign(0);
    comparison->append(sentence_);
    comparison->append(line_);
    fit_.set_tooltip_text(localized("The photos share the length of the music"));
    loop_.set_tooltip_text(localized("The music is repeated until the photos end"));
    mends_.append(fit_);
    mends_.append(loop_);
    comparison->append(mends_);
    fit_.signal_clicked().connect([this] { state_.session.fitToMusic(); });
    nameButtonsOnce(GTK_WIDGET(mends_.gobj()));
    loop_.signal_clicked().connect([this] { state_.session.loopMusic(); });

    connections_.push_back(state_.session.soundsChanged.connect([this] { showSounds(); }));
    connections_.push_back(state_.sounds.changed.connect([this](SoundID sound) {
        if (const auto row = rows_.find(sound); row != rows_.end())
            row->second->show();
    }));
    connections_.push_back(state_.outlook.changed.connect([this] { showPlan(); }));
    showSounds();
    showPlan();
}

std::unique_ptr<MusicRow> MusicPane::makeRow(SoundID sound)
{
    auto row = std::make_unique<MusicRow>(state_, sound);
    setUpDragging(*row);
    auto keys = Gtk::EventControllerKey::create();
    keys->signal_key_pressed().connect(
        [this, sound](guint key, guint, Gdk::ModifierType modifiers) {
            const bool isMoving = (modifiers & Gdk::ModifierType::ALT_MASK) == Gdk::ModifierType::ALT_MASK;
            if (!isMoving || (key != GDK_KEY_Up && key != GDK_KEY_Down))
                return false;
            move(sound, key == GDK_KEY_Up ? -1 : 1);
            return true;
        },
        false);
    row->add_controller(keys);
    return row;
}

void MusicPane::showSounds()
{
    std::vector<SoundID> sounds;
    for (const SoundItem& item : state_.session.sounds())
        sounds.push_back(item.id);
    if (sounds != shown_) {
        for (const SoundID sound : shown_)
            list_->remove(*rows_.at(sound));
        std::erase_if(rows_, [&sounds](const auto& entry) {
            return std::find(sounds.begin(), sounds.end(), entry.first) == sounds.end();
        });
        for (const SoundID sound : sounds) {
            auto& row = rows_[sound];
            if (!row)
                row = makeRow(sound);
            list_->append(*row);
        }
        shown_ = sounds;
    }
    for (const auto& [sound, row] : rows_)
        row->show();
    list_->set_visible(!sounds.empty());
}

void MusicPane::showPlan()
{
    const MusicPlan& plan = state_.outlook.music();
    const std::string text = plan.fault.empty() ? plan.sentence : plan.fault;
    sentence_.set_text(text);
    sentence_.set_visible(!text.empty());
    line_.set_visible(!plan.pieces.empty());
    line_.show(plan);
    fit_.set_visible(plan.offersFit);
    loop_.set_visible(plan.offersLoop);
    mends_.set_visible(plan.offersFit || plan.offersLoop);
}

void MusicPane::move(SoundID sound, int steps)
{
    const auto at = std::find(shown_.begin(), shown_.end(), sound) - shown_.begin();
    const auto target = at + steps;
    if (target < 0 || target >= static_cast<std::ptrdiff_t>(shown_.size()))
        return;
    // Before which one, in the list as it is.
    state_.session.moveSound(sound, static_cast<std::size_t>(steps > 0 ? target + 1 : target));
    rows_.at(sound)->grab_focus();
}

void MusicPane::setUpDragging(MusicRow& row)
{
    auto source = Gtk::DragSource::create();
    source->set_actions(Gdk::DragAction::MOVE);
    auto* raw = source.get();
    source->signal_prepare().connect(
        [this, &row, raw](double x, double y) {
            dragged_ = row.sound();
            raw->set_icon(Gtk::WidgetPaintable::create(row), static_cast<int>(x), static_cast<int>(y));
            Glib::Value<int> value;
            value.init(Glib::Value<int>::value_type());
            value.set(0);
            return Gdk::ContentProvider::create(value);
        },
        false);
    source->signal_drag_end().connect([this](const auto&, bool) { dragged_.reset(); });
    row.add_controller(source);

    auto target = Gtk::DropTarget::create(G_TYPE_INT, Gdk::DragAction::MOVE);
    target->signal_drop().connect(
        [this, &row](const Glib::ValueBase&, double, double y) {
            const auto at = std::find(shown_.begin(), shown_.end(), row.sound()) - shown_.begin();
            if (!dragged_)
                return false;
            state_.session.moveSound(*dragged_, static_cast<std::size_t>(at) + (y > row.get_height() / 2.0 ? 1 : 0));
            return true;
        },
        false);
    row.add_controller(target);
}

} // namespace stillora::window
