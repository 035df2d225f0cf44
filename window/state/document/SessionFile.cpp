#include "window/state/document/SessionFile.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace stillora::window {

namespace {

constexpr std::string_view kFirstLine = "stillora-session 1";

/// Whether a byte of a value stands in a word by its number.
bool isEscaped(char byte)
{
    const auto value = static_cast<uint8_t>(byte);
    return value <= 0x20 || value == 0x7f || byte == '%';
}

std::string selectionText(const SoundArgument& sound)
{
    const auto time = [](std::optional<Seconds> seconds) {
        return seconds ? fmt::format("{}", seconds->count()) : std::string("-");
    };
    return fmt::format("sound {} {} {}\n", escapedWord(sound.path.native()), time(sound.start), time(sound.end));
}

std::vector<std::string_view> wordsOf(std::string_view line)
{
    std::vector<std::string_view> words;
    for (;;) {
        const size_t end = line.find(' ');
        words.push_back(line.substr(0, end));
        if (end == std::string_view::npos)
            return words;
        line.remove_prefix(end + 1);
    }
}

template <typename Number>
bool readNumber(std::string_view word, Number& number)
{
    const auto [end, failure] = std::from_chars(word.data(), word.data() + word.size(), number);
    return failure == std::errc() && end == word.data() + word.size();
}

bool readTime(std::string_view word, std::optional<Seconds>& time)
{
    double seconds = 0;
    if (word == "-")
        return true;
    if (!readNumber(word, seconds) || !std::isfinite(seconds) || seconds < 0)
        return false;
    time = Seconds(seconds);
    return true;
}

bool readSwitch(std::string_view word, bool& isOn)
{
    isOn = word == "yes";
    return isOn || word == "no";
}

bool readSetting(std::string_view key, std::string_view word, MovieSettings& settings)
{
    if (key == "seconds") {
        double seconds = 0;
        if (!readNumber(word, seconds))
            return false;
        settings.timePerPhoto = Seconds(seconds);
        return settings.timePerPhoto >= kMinTimePerPhoto && settings.timePerPhoto <= kMaxTimePerPhoto;
    }
    if (key == "quality")
        return readNumber(word, settings.quality);
    if (key == "codec") {
        settings.codec = word;
        return std::ranges::find(kMovieCodecs, word) != kMovieCodecs.end();
    }
    if (key == "loops")
        return readSwitch(word, settings.loopsSounds);
    if (key == "fits")
        return readSwitch(word, settings.fitsMusic);
    if (key == "fills-silence")
        return readSwitch(word, settings.fillsSilence);
    if (key == "reduces-borders")
        return readSwitch(word, settings.reducesBorders);
    if (key == "title") {
        settings.title = unescapedWord(word);
        return settings.title && !faultOfTitle(*settings.title);
    }
    if (key == "watermark") {
        bool isDrawn = false;
        if (!readSwitch(word, isDrawn))
            return false;
        settings.watermark = isDrawn ? Watermark::Drawn : Watermark::Absent;
        return true;
    }
    return false;
}

bool readLine(const std::vector<std::string_view>& words, SavedSession& session)
{
    const auto path = words.size() > 1 ? unescapedWord(words[1]) : std::nullopt;
    if (!path)
        return false;
    if (words[0] == "photo" && words.size() == 2) {
        session.photos.emplace_back(*path);
        return true;
    }
    if (words[0] == "document" && words.size() == 2) {
        session.document = *path;
        return true;
    }
    if (words[0] == "sound" && words.size() == 4) {
        auto& sound = session.sounds.emplace_back(SoundArgument{*path, std::nullopt, std::nullopt});
        return readTime(words[2], sound.start) && readTime(words[3], sound.end);
    }
    return words.size() == 2 && readSetting(words[0], words[1], session.settings);
}

} // namespace

std::string escapedWord(std::string_view bytes)
{
    std::string word;
    for (const char byte : bytes) {
        if (isEscaped(byte))
            word += fmt::format("%{:02X}", static_cast<uint8_t>(byte));
        else
            word += byte;
    }
    return word;
}

std::optional<std::string> unescapedWord(std::string_view word)
{
    std::string bytes;
    for (size_t i = 0; i < word.size(); ++i) {
        if (isEscaped(word[i]) && word[i] != '%')
            return std::nullopt;
        if (word[i] != '%') {
            bytes += word[i];
            continue;
        }
        uint8_t value = 0;
        const auto digits = word.substr(i + 1, 2);
        const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (digits.size() != 2 || failure != std::errc() || end != digits.data() + 2 || value == 0)
            return std::nullopt;
        bytes += static_cast<char>(value);
        i += 2;
    }
    return bytes;
}

std::string textOfSession(const SavedSession& session)
{
    const auto word = [](bool isOn) { return isOn ? "yes" : "no"; };
    const MovieSettings& settings = session.settings;
    std::string text = fmt::format("{}\n", kFirstLine);
    if (session.document)
        text += fmt::format("document {}\n", escapedWord(session.document->native()));
    text += fmt::format("seconds {}\nquality {}\ncodec {}\nloops {}\nfits {}\nfills-silence {}\nreduces-borders {}\n",
                        settings.timePerPhoto.count(), settings.quality, settings.codec, word(settings.loopsSounds),
                        word(settings.fitsMusic), word(settings.fillsSilence), word(settings.reducesBorders));
    if (settings.title)
        text += fmt::format("title {}\n", escapedWord(*settings.title));
    if (settings.watermark != Watermark::Usual)
        text += fmt::format("watermark {}\n", word(settings.watermark == Watermark::Drawn));
    for (const auto& photo : session.photos)
        text += fmt::format("photo {}\n", escapedWord(photo.native()));
    for (const SoundArgument& sound : session.sounds)
        text += selectionText(sound);
    // By it a text that was cut off is known.
    text += "end\n";
    return text;
}

std::optional<SavedSession> sessionOfText(std::string_view text)
{
    SavedSession session;
    bool isFirst = true;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        if (end == std::string_view::npos)
            return std::nullopt;
        const std::string_view line = text.substr(0, end);
        text.remove_prefix(end + 1);
        if (isFirst ? line != kFirstLine : line != "end" && !readLine(wordsOf(line), session))
            return std::nullopt;
        isFirst = false;
        if (line == "end")
            return text.empty() ? std::optional(session) : std::nullopt;
    }
    return std::nullopt;
}

} // namespace stillora::window
