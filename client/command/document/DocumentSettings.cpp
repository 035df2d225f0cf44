#include "client/command/document/DocumentSettings.h"

#include "client/command/options/CreateOptions.h"
#include "client/movie/MovieSettings.h"
#include "client/text/LocalizedText.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <optional>

namespace stillora {

namespace {

/// A setting that is on or off.
struct Switch {
    std::string_view name;
    std::string_view key;
    void (*set)(MovieSettings& settings, bool isOn);
};

constexpr std::array<Switch, 5> kSwitches{{
    {"loop", kLoopsSoundsKey, [](MovieSettings& settings, bool isOn) { settings.loopsSounds = isOn; }},
    {"fit-music", kFitsMusicKey, [](MovieSettings& settings, bool isOn) { settings.fitsMusic = isOn; }},
    {"silence", kFillsSilenceKey, [](MovieSettings& settings, bool isOn) { settings.fillsSilence = isOn; }},
    {"reduce-borders", kReducesBordersKey, [](MovieSettings& settings, bool isOn) { settings.reducesBorders = isOn; }},
    {"watermark", kDrawsWatermarkKey,
     [](MovieSettings& settings, bool isOn) { settings.watermark = isOn ? Watermark::Drawn : Watermark::Absent; }},
}};

/// A setting that is read as the option of its name.
struct Value {
    std::string_view name;
    std::string_view key;
    void (*set)(MovieSettings& settings, const MovieSettings& from);
};

constexpr std::array<Value, 4> kValues{{
    {"seconds", kSecondsPerPhotoKey,
     [](MovieSettings& settings, const MovieSettings& from) {
         settings.timePerPhoto = from.timePerPhoto;
         // Else the seconds would not be looked at.
         settings.fitsMusic = false;
     }},
    {"quality", kQualityKey,
     [](MovieSettings& settings, const MovieSettings& from) { settings.quality = from.quality; }},
    {"codec", kCodecKey, [](MovieSettings& settings, const MovieSettings& from) { settings.codec = from.codec; }},
    {"title", kTitleKey, [](MovieSettings& settings, const MovieSettings& from) { settings.title = from.title; }},
}};

} // namespace

const std::vector<std::string>& DocumentSettings::names()
{
    static const auto* const all = [] {
        auto* names = new std::vector<std::string>;
        for (const Value& value : kValues)
            names->emplace_back(value.name);
        for (const Switch& each : kSwitches)
            names->emplace_back(each.name);
        return names;
    }();
    return *all;
}

std::string DocumentSettings::read(std::string_view name, const std::string& text, MovieSettings& settings)
{
    if (const auto* each = std::ranges::find(kSwitches, name, &Switch::name); each != kSwitches.end()) {
        if (text != "on" && text != "off")
            return localized("{} takes on or off, not \"{}\"", name, text);
        each->set(settings, text == "on");
        return {};
    }
    const auto* const value = std::ranges::find(kValues, name, &Value::name);
    assert(value != kValues.end());
    CreateOptions options;
    if (std::string fault = readMovieOption(name, text, options, name); !fault.empty())
        return fault;
    value->set(settings, settingsOf(options));
    return {};
}

std::string_view DocumentSettings::key(std::string_view name)
{
    if (const auto* each = std::ranges::find(kSwitches, name, &Switch::name); each != kSwitches.end())
        return each->key;
    return std::ranges::find(kValues, name, &Value::name)->key;
}

void DocumentSettings::reset(std::string_view name, MovieSettings& settings)
{
    const MovieSettings usual;
    if (name == "watermark")
        settings.watermark = usual.watermark;
    else if (const auto* each = std::ranges::find(kSwitches, name, &Switch::name); each != kSwitches.end())
        each->set(settings, name == "silence");
    else if (name == "seconds")
        settings.timePerPhoto = usual.timePerPhoto;
    else
        std::ranges::find(kValues, name, &Value::name)->set(settings, usual);
}

} // namespace stillora
