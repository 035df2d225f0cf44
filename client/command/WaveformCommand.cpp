#include "client/command/WaveformCommand.h"

#include "client/command/SoundCommand.h"
#include "client/command/making/FileIdentity.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <charconv>
#include <string_view>

#include <fmt/format.h>

namespace stillora {

namespace {

std::optional<int> pixelsOf(std::string_view text)
{
    int pixels = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), pixels);
    if (failure != std::errc() || end != text.data() + text.size() || pixels < 1 ||
        pixels > WaveformOptions::kMostPixels)
        return std::nullopt;
    return pixels;
}

std::string readSize(const std::string& text, WaveformOptions& options)
{
    const size_t cross = text.find('x');
    const auto width = pixelsOf(std::string_view(text).substr(0, cross));
    const auto height = cross == std::string::npos ? std::nullopt : pixelsOf(std::string_view(text).substr(cross + 1));
    if (!width || !height)
        return localized("--size takes WIDTHxHEIGHT, each from 1 to {}, not \"{}\"", WaveformOptions::kMostPixels,
                         text);
    options.width = *width;
    options.height = *height;
    return {};
}

} // namespace

Parsed<WaveformOptions> parseWaveform(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("waveform", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    WaveformOptions options;
    options.ground = given.has("on-white") ? WaveformOptions::Ground::White : WaveformOptions::Ground::Clear;
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    std::string fault;
    if (const auto size = given.value("size"))
        fault = readSize(*size, options);
    if (fault.empty())
        fault = readSound(given, options.sound);
    if (fault.empty())
        fault = readPNG(given.value("output").value_or(""), options.output);
    if (!fault.empty())
        return usageError(fault, "waveform");
    return options;
}

int runWaveformCommand(const WaveformOptions& options)
{
    SoundCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "waveform"});
    if (areSameFile(options.sound.path.native(), options.output))
        return command.fail(kExitUsage,
                            localized("the picture would replace the sound {}", options.sound.path.native()));
    int status = kExitDone;
    const auto sound = command.check(options.sound, status);
    if (!sound)
        return status;

    const auto picture = drawWaveform(*sound, options, command.telling(localized("Drawing the sound")));
    if (!picture)
        return command.fail(picture.error(),
                            picture.error().code == ErrorCode::Unsupported ? kExitBadInput : kExitFailed);
    command.clearProgress();
    if (const std::string fault = CommandOutput::save(*picture, options.output); !fault.empty())
        return command.fail(kExitFailed, fault);
    command.note(fmt::format("{} x {}, {}", options.width, options.height, secondsText(sound->length)));
    return command.succeed(options.output, command.resultOf(options.output)
                                               .add("width", options.width)
                                               .add("height", options.height)
                                               .add("seconds", sound->length.count()));
}

} // namespace stillora
