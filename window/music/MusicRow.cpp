#include "window/music/MusicRow.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/Accessibility.h"
#include "window/toolkit/Textures.h"
#include "window/toolkit/TimeText.h"

#include <algorithm>
#include <utility>

#include <gtkmm/box.h>
#include <gtkmm/eventcontrollerfocus.h>

namespace stillora::window {

MusicRow::MusicRow(WindowState& state, SoundID sound)
    : state_(state), sound_(sound), builder_(Gtk::Builder::create_from_resource("/app/stillora/Stillora/music-row.ui")),
      cover_(builder_->get_widget<Gtk::Image>("cover")), title_(builder_->get_widget<Gtk::Label>("title")),
      artist_(builder_->get_widget<Gtk::Label>("artist")), remove_(builder_->get_widget<Gtk::Button>("remove")),
      part_(builder_->get_widget<Gtk::Widget>("part")), start_(builder_->get_widget<Gtk::Entry>("start")),
      end_(builder_->get_widget<Gtk::Entry>("end")), length_(builder_->get_widget<Gtk::Label>("length")),
      fault_(builder_->get_widget<Gtk::Label>("fault")), bar_(state.session.sound(sound)->title)
{
    const std::string name = state.session.sound(sound)->title;
    set_activatable(false);
    set_child(*builder_->get_widget<Gtk::Box>("row"));
    builder_->get_widget<Gtk::Box>("wave")->append(bar_);
    bar_.set_hexpand(true);
    remove_->set_tooltip_text(localized("Remove {}", name));
    setAccessibleName(*remove_, localized("Remove {}", name));
    setAccessibleName(*start_, localized("{} plays from", name));
    setAccessibleName(*end_, localized("{} plays to", name));
    setAccessibleName(*this, name);
    remove_->signal_clicked().connect([this] { state_.session.removeSound(sound_); });
    bar_.moved = [this](SoundFacts::Selection range) { select(range); };
    bar_.movementEnded = [this] { state_.session.endMovement(); };
    setUpTime(*start_, true);
    setUpTime(*end_, false);
    show();
}

void MusicRow::setUpTime(Gtk::Entry& entry, bool isStart)
{
    entry.signal_activate().connect([this, &entry, isStart] { takeTime(entry, isStart); });
    auto focus = Gtk::EventControllerFocus::create();
    focus->signal_leave().connect([this, &entry, isStart] { takeTime(entry, isStart); });
    entry.add_controller(focus);
}

SoundFacts::Selection MusicRow::range() const
{
    const auto item = state_.session.sound(sound_);
    return item && item->selection ? *item->selection
                                   : SoundFacts::Selection{Seconds(0), state_.sounds.state(sound_).length};
}

void MusicRow::takeTime(Gtk::Entry& entry, bool isStart)
{
    const Seconds length = state_.sounds.state(sound_).length;
    SoundFacts::Selection wanted = range();
    const auto shown = textOfTime(isStart ? wanted.start : wanted.end);
    const auto time = timeOfText(entry.get_text().raw());
    if (entry.get_text().raw() != shown && time) {
        if (isStart)
            wanted.start = std::clamp(*time, Seconds(0), std::max(Seconds(0), wanted.end - RangeBar::kShortest));
        else
            wanted.end = std::clamp(*time, std::min(length, wanted.start + RangeBar::kShortest), length);
        select(wanted);
        state_.session.endMovement();
    }
    show();
}

void MusicRow::select(SoundFacts::Selection range)
{
    const Seconds length = state_.sounds.state(sound_).length;
    const bool isWhole = range.start <= Seconds(0) && range.end >= length;
    state_.session.setSoundSelection(sound_, isWhole ? std::nullopt : std::optional(range));
}

void MusicRow::show()
{
    const auto item = state_.session.sound(sound_);
    if (!item)
        return;
    const SoundState& state = state_.sounds.state(sound_);
    const bool isGood = state.kind == SoundState::Kind::Good;
    title_->set_text(isGood ? state.title : item->title);
    artist_->set_text(state.artist);
    artist_->set_visible(!state.artist.empty());
    fault_->set_text(state.reason);
    fault_->set_visible(state.kind == SoundState::Kind::Unusable);
    part_->set_visible(state.kind != SoundState::Kind::Unusable);
    part_->set_sensitive(isGood);
    if (state.cover && state.cover != shownCover_) {
        shownCover_ = state.cover;
        cover_->set(textureOf(state.cover));
    }
    if (isGood)
        showRange(*item, state);
}

void MusicRow::showRange(const SoundItem& item, const SoundState& state)
{
    const SoundFacts::Selection shown = item.selection.value_or(SoundFacts::Selection{Seconds(0), state.length});
    bar_.setSound(state.length, state.levels);
    bar_.setRange(shown);
    start_->set_text(textOfTime(shown.start));
    end_->set_text(textOfTime(shown.end));
    const std::string plays = textOfTime(shown.end - shown.start);
    length_->set_text(item.selection ? localized("{} of {}", plays, textOfTime(state.length)) : plays);
}

} // namespace stillora::window
