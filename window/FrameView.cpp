#include "window/FrameView.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/Accessibility.h"
#include "window/toolkit/Player.h"
#include "window/toolkit/Textures.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include <glibmm/main.h>
#include <gtkmm/drawingarea.h>

namespace stillora::window {

namespace {

constexpr float kUsualShape = 16.0F / 9.0F;
constexpr double kMicroseconds = 1e6;

} // namespace

FrameView::FrameView(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state)
    : state_(state), shape_(builder->get_widget<Gtk::AspectFrame>("frame-shape")),
      picture_(builder->get_widget<Gtk::Picture>("frame")), message_(builder->get_widget<Gtk::Label>("frame-message")),
      caption_(builder->get_widget<Gtk::Label>("frame-caption")),
      faces_(builder->get_widget<Gtk::ToggleButton>("faces")), play_(builder->get_widget<Gtk::Button>("play")),
      player_(builder->get_widget<Gtk::Stack>("player")),
      preparing_(builder->get_widget<Gtk::ProgressBar>("preparing")),
      controls_(builder->get_widget<Gtk::MediaControls>("controls"))
{
    faces_->signal_toggled().connect([this] { state_.frame.setShowsFaces(faces_->get_active()); });
    connections_.push_back(state_.frame.changed.connect([this] { showFrame(); }));
    connections_.push_back(state_.draft.changed.connect([this] { draftChanged(); }));
    connections_.push_back(state_.selection.changed.connect([this] { selectionChanged(); }));
    connections_.push_back(state_.session.opened.connect([this] { stopPlaying(); }));
    builder->get_widget<Gtk::DrawingArea>("frame-size")->signal_resize().connect([this](int, int height) {
        const auto lines = static_cast<std::size_t>(std::max(height, 1) * picture_->get_scale_factor());
        // Nothing may change its size while sizes are given out.
        resized_.disconnect();
        resized_ = Glib::signal_idle().connect([this, lines] {
            state_.frame.setShownLines(lines);
            return false;
        });
    });
    nameMediaControls(GTK_WIDGET(controls_->gobj()));
    showFrame();
}

void FrameView::setMode(Mode mode)
{
    mode_ = mode;
    const bool isFrame = mode == Mode::Frame;
    player_->set_visible_child(isFrame ? "frame" : mode == Mode::PreparingDraft ? "preparing" : "playing");
    play_->set_icon_name(isFrame ? "media-playback-start-symbolic" : "media-playback-stop-symbolic");
    const std::string name = isFrame ? localized("Play") : localized("Stop");
    play_->set_tooltip_text(name);
    setAccessibleName(*play_, name);
}

FrameView::~FrameView()
{
    resized_.disconnect();
}

void FrameView::showFrame()
{
    if (mode_ == Mode::PlayingDraft || mode_ == Mode::PlayingMovie)
        return;
    const auto photo = state_.frame.photo();
    const std::string title = photo ? state_.session.photo(*photo).title : std::string();
    const auto size = state_.outlook.frameSize();
    shape_->set_ratio(size && size->height > 0 ? static_cast<float>(size->width / size->height) : kUsualShape);
    picture_->set_paintable(textureOf(state_.frame.frame()));
    setAccessibleName(*picture_, photo ? localized("The frame of {}", title) : localized("No photo is selected"));
    const std::string text = photo ? state_.frame.fault() : localized("Select a photo to see its frame");
    message_->set_text(text);
    message_->set_visible(!text.empty());
    if (photo && faces_->get_active() && !state_.frame.isDrawing())
        caption_->set_text(localizedCount(state_.frame.faceCount(), "{1}: {0} face", "{1}: {0} faces", title));
    else
        caption_->set_text(title);
}

void FrameView::togglePlaying()
{
    if (mode_ != Mode::Frame) {
        stopPlaying();
        return;
    }
    setMode(Mode::PreparingDraft);
    preparePlayer();
    state_.draft.want();
    draftChanged();
}

void FrameView::draftChanged()
{
    switch (state_.draft.state()) {
    case Draft::State::Making:
        if (mode_ == Mode::PlayingDraft)
            stopPlaying();
        if (const auto fraction = state_.draft.fraction())
            preparing_->set_fraction(*fraction);
        else
            preparing_->pulse();
        break;
    case Draft::State::Ready:
        if (mode_ == Mode::PreparingDraft) {
            const auto current = state_.selection.current();
            seekWanted_ = current ? state_.draft.startOf(*current) : std::nullopt;
            start(state_.draft.path(), Mode::PlayingDraft);
        }
        break;
    case Draft::State::Failed:
        if (mode_ == Mode::PreparingDraft) {
            const std::string reason = state_.draft.error().message;
            stopPlaying();
            if (playingFailed)
                playingFailed(reason);
        }
        break;
    case Draft::State::None:
        if (mode_ == Mode::PlayingDraft)
            stopPlaying();
        break;
    }
}

void FrameView::play(const std::filesystem::path& movie)
{
    stopPlaying();
    start(movie, Mode::PlayingMovie);
}

void FrameView::start(const std::filesystem::path& movie, Mode mode)
{
    media_ = Gtk::MediaFile::create_for_filename(movie.string());
    picture_->set_paintable(media_);
    controls_->set_media_stream(media_);
    message_->set_visible(false);
    setAccessibleName(*picture_, localized("The movie"));
    setMode(mode);
    watched_.push_back(media_->property_timestamp().signal_changed().connect([this] { tellPhoto(); }));
    watched_.push_back(media_->property_prepared().signal_changed().connect([this] { mediaChanged(); }));
    watched_.push_back(media_->property_ended().signal_changed().connect([this] { mediaChanged(); }));
    watched_.push_back(media_->property_error().signal_changed().connect([this] { mediaChanged(); }));
    media_->play();
    mediaChanged();
}

void FrameView::mediaChanged()
{
    if (!media_)
        return;
    if (media_->get_error()) {
        const std::string reason = media_->get_error().what();
        stopPlaying();
        if (playingFailed)
            playingFailed(reason);
        return;
    }
    if (media_->get_ended()) {
        // The button plays it once more.
        stopPlaying();
        return;
    }
    if (media_->is_prepared() && seekWanted_) {
        const Seconds start = *std::exchange(seekWanted_, std::nullopt);
        if (start > Seconds(0))
            media_->seek(static_cast<std::int64_t>(start.count() * kMicroseconds));
    }
}

void FrameView::tellPhoto()
{
    if (mode_ != Mode::PlayingDraft || !playingChanged)
        return;
    const auto photo = state_.draft.photoAt(Seconds(static_cast<double>(media_->get_timestamp()) / kMicroseconds));
    if (photo == told_)
        return;
    told_ = photo;
    playingChanged(photo);
}

void FrameView::selectionChanged()
{
    const auto current = state_.selection.current();
    if (mode_ == Mode::PlayingMovie)
        stopPlaying();
    else if (mode_ == Mode::PlayingDraft && current && media_->is_seekable())
        if (const auto start = state_.draft.startOf(*current))
            media_->seek(static_cast<std::int64_t>(start->count() * kMicroseconds));
}

void FrameView::stopPlaying()
{
    for (auto& each : watched_)
        each.disconnect();
    watched_.clear();
    const bool wasPlaying = mode_ != Mode::Frame;
    if (media_) {
        media_->pause();
        controls_->set_media_stream({});
        media_.reset();
    }
    seekWanted_.reset();
    told_.reset();
    if (!wasPlaying)
        return;
    setMode(Mode::Frame);
    state_.draft.stop();
    showFrame();
    if (playingChanged)
        playingChanged(std::nullopt);
}

} // namespace stillora::window
