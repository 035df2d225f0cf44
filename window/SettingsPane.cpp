#include "window/SettingsPane.h"

#include "client/text/LocalizedText.h"
#include "window/toolkit/TimeText.h"

#include <cmath>
#include <string>
#include <utility>

#include <gtkmm/stringlist.h>

namespace stillora::window {

namespace {

template <typename Row>
Row* rowOf(const Glib::RefPtr<Gtk::Builder>& builder, const char* name)
{
    return reinterpret_cast<Row*>(gtk_builder_get_object(builder->gobj(), name));
}

template <typename Choice>
GListModel* labelsOf(const std::vector<Choice>& choices)
{
    GtkStringList* labels = gtk_string_list_new(nullptr);
    for (const Choice& choice : choices)
        gtk_string_list_append(labels, choice.label.c_str());
    return G_LIST_MODEL(labels);
}

template <typename Choice>
void setChoices(AdwComboRow* row, const std::vector<Choice>& choices)
{
    GListModel* labels = labelsOf(choices);
    adw_combo_row_set_model(row, labels);
    g_object_unref(labels);
}

/// What was typed, with a comma too, whatever the locale.
int takeNumber(GtkSpinButton* button, double* value, void*)
{
    const auto number = numberOfText(gtk_editable_get_text(GTK_EDITABLE(button)));
    *value = number.value_or(*value);
    return number ? TRUE : GTK_INPUT_ERROR;
}

} // namespace

template <typename Change>
void SettingsPane::change(Change set)
{
    if (isShowing_)
        return;
    MovieSettings settings = state_.session.settings();
    set(settings);
    state_.session.setSettings(std::move(settings));
}

SettingsPane::SettingsPane(const Glib::RefPtr<Gtk::Builder>& builder, WindowState& state)
    : state_(state), seconds_(builder->get_widget<Gtk::SpinButton>("seconds")),
      secondsRow_(rowOf<AdwActionRow>(builder, "seconds-row")), size_(rowOf<AdwComboRow>(builder, "size")),
      codec_(rowOf<AdwComboRow>(builder, "codec")), fill_(builder->get_widget<Gtk::Switch>("fill")),
      fitRow_(builder->get_widget<Gtk::Widget>("fit-row")), loopRow_(builder->get_widget<Gtk::Widget>("loop-row")),
      fit_(builder->get_widget<Gtk::Switch>("fit")), loop_(builder->get_widget<Gtk::Switch>("loop")),
      watermark_(rowOf<AdwComboRow>(builder, "watermark")), summary_(builder->get_widget<Gtk::Label>("summary"))
{
    setUpChoices();
    g_signal_connect(seconds_->gobj(), "input", G_CALLBACK(takeNumber), nullptr);
    seconds_->signal_value_changed().connect([this] {
        // Hundredths, as it is shown.
        change([this](MovieSettings& settings) {
            settings.timePerPhoto = Seconds(std::round(seconds_->get_value() * 100) / 100);
        });
    });
    fill_->property_active().signal_changed().connect(
        [this] { change([this](MovieSettings& settings) { settings.reducesBorders = fill_->get_active(); }); });
    fit_->property_active().signal_changed().connect(
        [this] { change([this](MovieSettings& settings) { settings.fitsMusic = fit_->get_active(); }); });
    loop_->property_active().signal_changed().connect(
        [this] { change([this](MovieSettings& settings) { settings.loopsSounds = loop_->get_active(); }); });
    connections_.push_back(state_.session.settingsChanged.connect([this] { showSettings(); }));
    connections_.push_back(state_.session.opened.connect([this] { showSettings(); }));
    connections_.push_back(state_.outlook.changed.connect([this] { showOutlook(); }));
    showSettings();
    showOutlook();
}

void SettingsPane::setUpChoices()
{
    setChoices(size_, sizes_);
    setChoices(codec_, codecs_);
    g_signal_connect_swapped(size_, "notify::selected", G_CALLBACK(+[](SettingsPane* pane) {
                                 const auto chosen = adw_combo_row_get_selected(pane->size_);
                                 pane->change([pane, chosen](MovieSettings& settings) {
                                     settings.quality = pane->sizes_.at(chosen).quality;
                                 });
                             }),
                             this);
    g_signal_connect_swapped(
        codec_, "notify::selected", G_CALLBACK(+[](SettingsPane* pane) {
            const auto chosen = adw_combo_row_get_selected(pane->codec_);
            pane->change([pane, chosen](MovieSettings& settings) { settings.codec = pane->codecs_.at(chosen).codec; });
        }),
        this);
    g_signal_connect_swapped(
        watermark_, "notify::selected", G_CALLBACK(+[](SettingsPane* pane) {
            // The choices stand in the order of the values.
            const auto chosen = adw_combo_row_get_selected(pane->watermark_);
            pane->change([chosen](MovieSettings& settings) { settings.watermark = static_cast<Watermark>(chosen); });
        }),
        this);
}

void SettingsPane::showSettings()
{
    isShowing_ = true;
    const MovieSettings& settings = state_.session.settings();
    const std::size_t size = indexOfSize(sizes_, settings.quality);
    const std::size_t codec = indexOfCodec(codecs_, settings.codec);
    adw_combo_row_set_selected(size_, static_cast<unsigned>(size));
    adw_combo_row_set_selected(codec_, static_cast<unsigned>(codec));
    adw_action_row_set_subtitle(ADW_ACTION_ROW(size_), sizes_.at(size).explanation.c_str());
    adw_action_row_set_subtitle(ADW_ACTION_ROW(codec_), codecs_.at(codec).explanation.c_str());
    fill_->set_active(settings.reducesBorders);
    fit_->set_active(settings.fitsMusic);
    loop_->set_active(settings.loopsSounds);
    adw_combo_row_set_selected(watermark_, static_cast<unsigned>(settings.watermark));
    if (!settings.fitsMusic)
        seconds_->set_value(settings.timePerPhoto.count());
    isShowing_ = false;
}

void SettingsPane::showOutlook()
{
    isShowing_ = true;
    const bool isShared = state_.session.settings().fitsMusic && !state_.sounds.usableIDs().empty();
    const Seconds shared = state_.outlook.music().timePerPhoto;
    seconds_->set_value((isShared && shared > Seconds(0) ? shared : state_.session.settings().timePerPhoto).count());
    seconds_->set_sensitive(!isShared);
    adw_action_row_set_subtitle(secondsRow_,
                                isShared ? localized("The photos share the length of the music").c_str() : "");
    isShowing_ = false;

    const bool hasSounds = !state_.session.sounds().empty();
    fitRow_->set_visible(hasSounds);
    loopRow_->set_visible(hasSounds);
    const bool isKnown = state_.outlook.canBeMade();
    summary_->set_visible(isKnown);
    if (isKnown)
        summary_->set_text(fmt::format("{}  ·  {}  ·  {}", state_.outlook.lengthText(), state_.outlook.frameSizeText(),
                                       state_.outlook.bytesText()));
}

} // namespace stillora::window
