#include "window/MakingBar.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/Textures.h"

#include <string>

namespace stillora::window {

MakingBar::MakingBar(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state)
    : state_(state), revealer_(builder->get_widget<Gtk::Revealer>("making")),
      picture_(builder->get_widget<Gtk::Image>("making-picture")),
      stage_(builder->get_widget<Gtk::Label>("making-stage")), left_(builder->get_widget<Gtk::Label>("making-left")),
      bar_(builder->get_widget<Gtk::ProgressBar>("making-bar")),
      cancel_(builder->get_widget<Gtk::Button>("making-cancel")),
      play_(builder->get_widget<Gtk::Button>("making-play")),
      showInFolder_(builder->get_widget<Gtk::Button>("making-show")),
      close_(builder->get_widget<Gtk::Button>("making-close")),
      changed_(state.making.changed.connect([this] { show(); }))
{
    show();
}

void MakingBar::show()
{
    using State = MovieMaking::State;
    const State state = state_.making.state();
    const bool isGoingOn = state_.making.isGoingOn();
    const bool isShown = isGoingOn || state == State::Made || state == State::Failed;
    // Hidden, too, as what is not revealed would be read out.
    revealer_->set_visible(isShown);
    revealer_->set_reveal_child(isShown);
    bar_->set_visible(isGoingOn);
    left_->set_visible(isGoingOn);
    cancel_->set_visible(isGoingOn);
    cancel_->set_sensitive(state == State::Making);
    play_->set_visible(state == State::Made);
    showInFolder_->set_visible(state == State::Made);
    close_->set_visible(!isGoingOn);
    stage_->set_wrap(!isGoingOn);
    stage_->set_ellipsize(isGoingOn ? Pango::EllipsizeMode::END : Pango::EllipsizeMode::NONE);
    if (isGoingOn)
        showProgress();
    else
        showEnd();
}

void MakingBar::showProgress()
{
    const MovieMaking& making = state_.making;
    if (making.picture() != shownPicture_) {
        shownPicture_ = making.picture();
        if (const auto texture = textureOf(shownPicture_))
            picture_->set(texture);
    }
    picture_->set_visible(picture_->get_paintable() != nullptr);
    stage_->set_text(making.state() == MovieMaking::State::Cancelling ? localized("Cancelling…") : making.stage());
    left_->set_text(making.timeLeftText());
    if (making.fraction())
        bar_->set_fraction(*making.fraction());
    else
        bar_->pulse();
}

void MakingBar::showEnd()
{
    const MovieMaking& making = state_.making;
    if (making.state() == MovieMaking::State::Made) {
        std::string text = localized("{} is ready", making.path().filename().string());
        for (const std::string& fault : making.faults())
            text += "\n" + fault;
        stage_->set_text(text);
    } else if (making.state() == MovieMaking::State::Failed) {
        picture_->set_visible(false);
        const std::string advice = making.advice();
        stage_->set_text(advice.empty() ? making.error().message : making.error().message + "\n" + advice);
    }
}

} // namespace stillora::window
