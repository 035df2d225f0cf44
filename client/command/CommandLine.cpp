#include "client/command/CommandLine.h"

#include "client/MoviePlan.h"
#include "client/MovieTitle.h"
#include "client/Text.h"
#include "client/command/ExitStatus.h"
#include "client/command/Help.h"
#include "platform/foundation/NSURL.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace {

constexpr std::array<std::string_view, 9> kCodecs{"avc1", "hvc1", "jpeg", "apcn", "ap4h",
                                                  "apch", "apcs", "apco", "ap4x"};

constexpr std::array<int64_t, 7> kQualities{240, 360, 480, 720, 1080, 1440, 2160};

CommandLineAnswer usageError(const std::string& reason, const std::string& command = "")
{
    return {fmt::format("stillora: {}\nTry 'stillora {}--help'.\n", printable(reason),
                        command.empty() ? "" : command + " "),
            kExitUsage};
}

/// The whole text as a number, in the C locale.
std::optional<double> numberOf(std::string_view text)
{
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        return std::nullopt;
    return number;
}

/// Reads what CLI11 leaves as text, so that the program says itself what is wrong. Returns that, or nothing.
std::string readSeconds(const std::string& text, CreateOptions& options)
{
    const auto seconds = numberOf(text);
    if (!seconds || *seconds < kMinSecondsPerPhoto || *seconds > kMaxSecondsPerPhoto)
        return fmt::format("--seconds takes a number from {} to {}, not \"{}\"", kMinSecondsPerPhoto,
                           kMaxSecondsPerPhoto, text);
    options.seconds = seconds;
    return {};
}

template <typename Options>
std::string readQuality(const std::string& text, Options& options)
{
    if (text == "auto") {
        options.quality = CreateOptions::kAutomaticQuality;
        return {};
    }
    for (const int64_t quality : kQualities)
        if (text == std::to_string(quality)) {
            options.quality = quality;
            return {};
        }
    return fmt::format("--quality takes auto, {}, not \"{}\"", fmt::join(kQualities, ", "), text);
}

std::string readCodec(const std::string& text, CreateOptions& options)
{
    if (std::find(kCodecs.begin(), kCodecs.end(), text) == kCodecs.end())
        return fmt::format("--codec takes {}, not \"{}\"", fmt::join(kCodecs, ", "), text);
    options.codec = text;
    return {};
}

std::string readTitle(std::string text, CreateOptions& options)
{
    // The extension is added anyway.
    std::string extension = platform::pathExtension(text);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    if (extension == "mov")
        text = text.substr(0, text.size() - std::string_view(".mov").size());
    if (const auto fault = faultOfTitle(text))
        return fmt::format("the title \"{}\" {}", prefixOfBytes(printable(text), 60), *fault);
    options.title = std::move(text);
    return {};
}

/// "83", "1:23" or "1:02:03.5" in seconds; nothing for other texts.
std::optional<double> timeOf(std::string_view text)
{
    double seconds = 0;
    bool isFirst = true;
    for (int part = 0; part < 3; ++part) {
        const size_t colon = text.find(':');
        const std::string_view number = text.substr(0, colon);
        const bool isWhole = number.find_first_not_of("0123456789") == std::string_view::npos;
        const auto value = number.empty() || number[0] == '-' ? std::nullopt : numberOf(number);
        // Only the last part may have a fraction, and only the first may be 60 or more.
        if (!value || *value < 0 || (colon != std::string_view::npos && !isWhole) || (!isFirst && *value >= 60))
            return std::nullopt;
        seconds = seconds * 60 + *value;
        if (colon == std::string_view::npos)
            return seconds;
        text.remove_prefix(colon + 1);
        isFirst = false;
    }
    return std::nullopt;
}

/// "FILE" or "FILE@START-END", where start and end may be left out. What does not read as times belongs to the name.
SoundArgument soundOf(const std::string& text)
{
    const size_t at = text.rfind('@');
    const size_t hyphen = at == std::string::npos ? at : text.find('-', at);
    if (hyphen == std::string::npos)
        return {text, std::nullopt, std::nullopt};
    const std::string_view start = std::string_view(text).substr(at + 1, hyphen - at - 1);
    const std::string_view end = std::string_view(text).substr(hyphen + 1);
    const auto startTime = timeOf(start);
    const auto endTime = timeOf(end);
    if ((!start.empty() && !startTime) || (!end.empty() && !endTime))
        return {text, std::nullopt, std::nullopt};
    return {text.substr(0, at), startTime, endTime};
}

std::string readSounds(const std::vector<std::string>& texts, CreateOptions& options)
{
    for (const std::string& text : texts) {
        SoundArgument sound = soundOf(text);
        if (sound.path.empty())
            return "--soundtrack takes the path of a sound file";
        if (sound.end && *sound.end <= sound.start.value_or(0))
            return fmt::format("the selection of \"{}\" ends before it starts", text);
        options.sounds.push_back(std::move(sound));
    }
    if (options.sounds.empty() && (options.loopsSounds || options.fitsMusic))
        return fmt::format("{} needs a --soundtrack", options.loopsSounds ? "--loop" : "--fit-music");
    if (options.fitsMusic && options.loopsSounds)
        return "--fit-music leaves nothing to --loop";
    if (options.fitsMusic && options.seconds)
        return "--fit-music chooses the seconds itself, without --seconds";
    return {};
}

ParsedCommandLine parseCreate(const std::vector<std::string>& arguments)
{
    CreateOptions options;
    std::string seconds;
    std::string quality;
    std::string codec;
    std::string title;
    std::string saveFolder;
    CLI::App app;
    app.add_option("photos", options.photos);
    CLI::Option* const secondsOption = app.add_option("--seconds", seconds);
    CLI::Option* const qualityOption = app.add_option("--quality", quality);
    CLI::Option* const codecOption = app.add_option("--codec", codec);
    CLI::Option* const titleOption = app.add_option("--title", title);
    CLI::Option* const saveOption = app.add_option("--save", saveFolder);
    std::vector<std::string> sounds;
    bool isSilenceLeftOut = false;
    // One value each, so that photos may follow.
    app.add_option("--soundtrack", sounds)->allow_extra_args(false);
    app.add_flag("--loop", options.loopsSounds);
    app.add_flag("--fit-music", options.fitsMusic);
    app.add_flag("--no-silence", isSilenceLeftOut);
    app.add_flag("--reduce-borders", options.reducesBorders);
    app.add_flag("--skip-bad", options.skipsBad);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
    try {
        // CLI11 takes them from the end.
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        return CommandLineAnswer{createHelp(), kExitDone};
    } catch (const CLI::ParseError& failure) {
        return usageError(failure.what(), "create");
    }

    std::string fault;
    const auto read = [&](const CLI::Option* option, const std::string& text, auto reader) {
        if (fault.empty() && option->count() > 0)
            fault = reader(text, options);
    };
    read(secondsOption, seconds, readSeconds);
    read(qualityOption, quality, readQuality<CreateOptions>);
    read(codecOption, codec, readCodec);
    read(titleOption, title, readTitle);
    if (saveOption->count() > 0) {
        if (saveFolder.empty() && fault.empty())
            fault = "--save takes the path of a folder";
        options.saveFolder = saveFolder;
    }
    options.fillsSilence = !isSilenceLeftOut;
    if (fault.empty())
        fault = readSounds(sounds, options);
    if (fault.empty() && options.photos.empty())
        fault = "no photos were given";
    if (!fault.empty())
        return usageError(fault, "create");
    return options;
}

ParsedCommandLine parseFrame(const std::vector<std::string>& arguments)
{
    FrameOptions options;
    std::string quality;
    CLI::App app;
    CLI::Option* const photoOption = app.add_option("photo", options.photo);
    CLI::Option* const outputOption = app.add_option("-o,--output", options.output);
    CLI::Option* const qualityOption = app.add_option("--quality", quality);
    app.add_flag("--reduce-borders", options.reducesBorders);
    app.add_flag("--show-faces", options.showsFaces);
    try {
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        return CommandLineAnswer{frameHelp(), kExitDone};
    } catch (const CLI::ParseError& failure) {
        return usageError(failure.what(), "frame");
    }

    std::string fault;
    if (qualityOption->count() > 0)
        fault = readQuality(quality, options);
    if (fault.empty() && (photoOption->count() == 0 || options.photo.empty()))
        fault = "no photo was given";
    if (fault.empty() && (outputOption->count() == 0 || options.output.empty()))
        fault = "-o takes the path of the PNG file to be made";
    if (!fault.empty())
        return usageError(fault, "frame");
    return options;
}

} // namespace

ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments)
{
    if (arguments.empty())
        return usageError("a command is missing");
    const std::string& command = arguments.front();
    if (command == "--help" || command == "-h" || command == "help")
        return CommandLineAnswer{generalHelp(), kExitDone};
    if (command == "--version")
        return CommandLineAnswer{versionText(), kExitDone};
    // Each command is parsed on its own, so that a photo may have the name of a command.
    if (command == "create")
        return parseCreate({arguments.begin() + 1, arguments.end()});
    if (command == "frame")
        return parseFrame({arguments.begin() + 1, arguments.end()});
    return usageError(fmt::format("there is no {} {}", command.starts_with('-') ? "option" : "command", command));
}
