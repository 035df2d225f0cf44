#include "client/command/document/DocumentListing.h"

#include "client/command/document/ItemFinder.h"
#include "client/questions/FileReader.h"
#include "client/questions/Questions.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSURL.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace stillora {

namespace {

/// Longer names of files are cut, so that the columns behind them stay on the screen.
constexpr int kMaxNameColumns = 32;

std::string nameOf(const std::string& path)
{
    return platform::lastPathComponent(path);
}

/// "#4080ff"; nothing where no colour is known.
std::optional<std::string> colorText(const DocumentPhoto& photo)
{
    const auto& color = photo.averageColor;
    if (!color)
        return std::nullopt;
    const auto byte = [](double component) { return std::lround(std::clamp(component, 0.0, 1.0) * 255); };
    return fmt::format("#{:02x}{:02x}{:02x}", byte(color->red), byte(color->green), byte(color->blue));
}

struct SoundFactsOfList {
    /// Of the file; nothing where it cannot be told.
    std::optional<Seconds> fileLength;
    /// What is played of it.
    Seconds start{0};
    std::optional<Seconds> end;
    bool isWhole = true;

    std::optional<Seconds> length() const { return end ? std::optional(*end - start) : std::nullopt; }
};

std::optional<Seconds> lengthOfSound(const std::filesystem::path& path)
{
    const auto measure = FileReader::shared().ask(SoundQuestion{.file = path, .isExact = false});
    return measure && measure->fault.empty() ? std::optional(measure->length) : std::nullopt;
}

SoundFactsOfList factsOf(const DocumentSoundtrack& soundtrack)
{
    SoundFactsOfList facts;
    if (soundtrack.state == DocumentItem::State::Good)
        facts.fileLength = lengthOfSound(soundtrack.path);
    facts.isWhole = !soundtrack.selection;
    facts.start = soundtrack.selection ? soundtrack.selection->start : Seconds(0);
    facts.end = soundtrack.selection ? std::optional(soundtrack.selection->end) : facts.fileLength;
    return facts;
}

std::string padded(const std::string& text, int columns)
{
    return text + std::string(static_cast<size_t>(std::max(columns - displayWidth(text), 0)), ' ');
}

template <typename Entry>
std::string shownName(const Entry& entry)
{
    const std::string& path = entry.path.native();
    return cutToWidth(path.empty() ? "?" : printable(nameOf(path)), kMaxNameColumns, "...");
}

template <typename Entry>
int nameColumns(const std::vector<Entry>& entries)
{
    int columns = 0;
    for (const Entry& entry : entries)
        columns = std::max(columns, displayWidth(shownName(entry)));
    return columns;
}

std::string sizeText(Size size)
{
    return fmt::format("{:.0f} x {:.0f}", size.width, size.height);
}

std::string soundText(const DocumentSoundtrack& soundtrack)
{
    const SoundFactsOfList facts = factsOf(soundtrack);
    std::string length = facts.length() ? secondsText(*facts.length()) : "?";
    if (facts.isWhole)
        return length;
    return localized("{}, from {} to {}", length, secondsText(facts.start), secondsText(*facts.end));
}

template <typename Entry>
std::string linesOf(const std::string& title, BadItem::Kind kind, const std::vector<Entry>& entries,
                    const std::function<std::string(const Entry&)>& details)
{
    std::string text = title + "\n";
    const int columns = nameColumns(entries);
    for (size_t i = 0; i < entries.size(); ++i) {
        const Entry& entry = entries[i];
        std::string line = fmt::format("  {:>5}  {}", numberOf({kind, i}), padded(shownName(entry), columns));
        if (entry.state != DocumentItem::State::Damaged)
            if (const std::string more = details(entry); !more.empty())
                line += "  " + more;
        if (!entry.fault.empty())
            line += "  " + printable(entry.fault);
        text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
    }
    return text;
}

std::string settingsText(const Document& document)
{
    const MovieSettings& settings = document.settings();
    std::vector<std::string> parts;
    parts.push_back(settings.fitsMusic ? localized("photos share the length of the music")
                                       : localized("{} a photo", secondsText(settings.timePerPhoto)));
    parts.push_back(settings.quality > 0                    ? localized("quality {}", settings.quality)
                    : settings.quality == kAutomaticQuality ? localized("automatic quality")
                                                            : localized("quality of the smallest photo"));
    parts.push_back(localized("codec {}", settings.codec));
    if (settings.loopsSounds)
        parts.push_back(localized("music repeats"));
    if (!settings.fillsSilence)
        parts.push_back(localized("no silence added"));
    if (settings.reducesBorders)
        parts.push_back(localized("borders reduced"));
    if (settings.watermark != Watermark::Usual)
        parts.push_back(settings.watermark == Watermark::Drawn ? localized("watermark") : localized("no watermark"));
    if (settings.title)
        parts.push_back(localized("title \"{}\"", printable(*settings.title)));
    std::string text = fmt::format("{}\n  {}\n", localized("Settings:"), fmt::join(parts, ", "));
    for (const std::string& fault : document.settingFaults())
        text += fmt::format("  {}\n", fault);
    return text;
}

JSONWriter photoAsJSON(const DocumentPhoto& photo)
{
    JSONWriter json;
    if (photo.state == DocumentItem::State::Damaged)
        return json.add("state", "damaged").add("reason", photo.fault).addNull("path");
    const bool isGood = photo.state == DocumentPhoto::State::Good;
    json.add("state", isGood ? "good" : "missing");
    if (isGood)
        json.addNull("reason");
    else
        json.add("reason", photo.fault);
    json.add("path", photo.path.native()).add("title", photo.title);
    json.add("width", photo.size.width).add("height", photo.size.height);
    json.add("bytes", photo.fileSize);
    if (const auto color = colorText(photo))
        json.add("color", *color);
    else
        json.addNull("color");
    if (photo.created)
        json.add("created", photo.created->time_since_epoch().count());
    else
        json.addNull("created");
    return json.add("featured", photo.isFeatured);
}

JSONWriter soundtrackAsJSON(const DocumentSoundtrack& soundtrack)
{
    JSONWriter json;
    if (soundtrack.state == DocumentItem::State::Damaged)
        return json.add("state", "damaged").add("reason", soundtrack.fault).addNull("path");
    const bool isGood = soundtrack.state == DocumentSoundtrack::State::Good;
    json.add("state", isGood ? "good" : "missing");
    if (isGood)
        json.addNull("reason");
    else
        json.add("reason", soundtrack.fault);
    const auto addTime = [&json](std::string_view key, std::optional<Seconds> time) {
        if (time)
            json.add(key, time->count());
        else
            json.addNull(key);
    };
    const SoundFactsOfList facts = factsOf(soundtrack);
    json.add("path", soundtrack.path.native());
    json.add("originalPath", soundtrack.originalPath ? soundtrack.originalPath->native() : "");
    json.add("whole", facts.isWhole).add("start", facts.start.count());
    addTime("end", facts.end);
    addTime("seconds", facts.length());
    addTime("fileSeconds", facts.fileLength);
    return json;
}

} // namespace

std::string listingOf(const Document& document)
{
    const std::vector<DocumentPhoto> photos = document.photos();
    const std::vector<DocumentSoundtrack> soundtracks = document.soundtracks();
    const auto factsOfPhoto = [](const DocumentPhoto& photo) {
        return fmt::format("{:>11}  {:>8}  {}", sizeText(photo.size), bytesText(static_cast<double>(photo.fileSize)),
                           colorText(photo).value_or(""));
    };
    return linesOf<DocumentPhoto>(photos.empty() ? localized("Photos: none") : localized("Photos:"),
                                  BadItem::Kind::Photo, photos, factsOfPhoto) +
           linesOf<DocumentSoundtrack>(soundtracks.empty() ? localized("Soundtracks: none") : localized("Soundtracks:"),
                                       BadItem::Kind::Soundtrack, soundtracks, soundText) +
           settingsText(document);
}

JSONWriter listingAsJSON(const Document& document)
{
    std::vector<JSONWriter> photos;
    for (const DocumentPhoto& photo : document.photos())
        photos.push_back(photoAsJSON(photo).add("item", numberOf({BadItem::Kind::Photo, photos.size()})));
    std::vector<JSONWriter> soundtracks;
    for (const DocumentSoundtrack& soundtrack : document.soundtracks())
        soundtracks.push_back(
            soundtrackAsJSON(soundtrack).add("item", numberOf({BadItem::Kind::Soundtrack, soundtracks.size()})));
    JSONWriter json;
    json.add("document", document.location().native()).add("photos", photos).add("soundtracks", soundtracks);
    return json.add("settings", settingsAsJSON(document.settings())).add("settingFaults", document.settingFaults());
}

JSONWriter settingsAsJSON(const MovieSettings& settings)
{
    JSONWriter kept;
    kept.add("secondsPerPhoto", settings.timePerPhoto.count()).add("quality", settings.quality);
    kept.add("codec", settings.codec).add("loopsSoundtracks", settings.loopsSounds);
    kept.add("fitsMusic", settings.fitsMusic).add("fillsSilence", settings.fillsSilence);
    kept.add("reducesBorders", settings.reducesBorders);
    if (settings.title)
        kept.add("title", *settings.title);
    else
        kept.addNull("title");
    if (settings.watermark == Watermark::Usual)
        kept.addNull("drawsWatermark");
    else
        kept.add("drawsWatermark", settings.watermark == Watermark::Drawn);
    return kept;
}

} // namespace stillora
