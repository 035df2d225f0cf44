#include "client/command/WaveformOptions.h"

#include "client/command/SoundArguments.h"

#include <charconv>
#include <optional>
#include <string_view>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace {

/// Of an edge of a picture.
constexpr int kMostPixels = 16384;

constexpr const char* kWaveformHelp = R"(Usage: stillora waveform SOUND -o OUT.png [OPTION]...

Draws how loud a sound is over time: a black line for each column of pixels, on
a clear ground, the loudest as high as the picture. Where several columns are
equally loud only the first is drawn. An existing OUT.png is replaced; its path
is the only line on standard output.

Options of waveform:
  -o, --output OUT.png
                     the picture to be made
  --size WxH         its width and height in pixels, up to 16384 (default
                     1000x200)
  --range START-END  only this part of the sound, in seconds or m:ss; one of the
                     two may be left out
  --on-white         on white instead of a clear ground
  --json             write the result as one line of JSON
  --quiet            errors alone on standard error
  -h, --help         show this help

Exit status:
  0    the picture was made
  1    it could not be made or saved
  2    the command line is wrong
  3    the sound cannot be used
  130  stopped by Ctrl-C
)";

std::optional<int> pixelsOf(std::string_view text)
{
    int pixels = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), pixels);
    if (failure != std::errc() || end != text.data() + text.size() || pixels < 1 || pixels > kMostPixels)
        return std::nullopt;
    return pixels;
}

std::string readSize(const std::string& text, WaveformOptions& options)
{
    const size_t cross = text.find('x');
    const auto width = pixelsOf(std::string_view(text).substr(0, cross));
    const auto height = cross == std::string::npos ? std::nullopt : pixelsOf(std::string_view(text).substr(cross + 1));
    if (!width || !height)
        return fmt::format("--size takes WIDTHxHEIGHT, each from 1 to {}, not \"{}\"", kMostPixels, text);
    options.width = *width;
    options.height = *height;
    return {};
}

} // namespace

Parsed<WaveformOptions> parseWaveform(const std::vector<std::string>& arguments)
{
    WaveformOptions options;
    std::string size;
    std::string range;
    bool isOnWhite = false;
    CLI::App app;
    app.add_option("sound", options.sound.path);
    app.add_option("-o,--output", options.output);
    CLI::Option* const sizeOption = app.add_option("--size", size);
    CLI::Option* const rangeOption = app.add_option("--range", range);
    app.add_flag("--on-white", isOnWhite);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
    if (auto answer = readArguments(app, arguments, "waveform", waveformHelp))
        return *std::move(answer);

    std::string fault;
    if (sizeOption->count() > 0)
        fault = readSize(size, options);
    if (fault.empty() && rangeOption->count() > 0)
        fault = readRange(range, options.sound);
    if (fault.empty() && options.sound.path.empty())
        fault = "no sound was given";
    if (fault.empty() && options.output.empty())
        fault = "-o takes the path of the PNG file to be made";
    if (!fault.empty())
        return usageError(fault, "waveform");
    options.ground = isOnWhite ? WaveformOptions::Ground::White : WaveformOptions::Ground::Clear;
    return options;
}

std::string waveformHelp()
{
    return kWaveformHelp;
}
