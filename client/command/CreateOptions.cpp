#include "client/command/CreateOptions.h"

#include "client/MoviePlan.h"
#include "client/MovieSettings.h"
#include "client/MovieTitle.h"
#include "client/Text.h"
#include "client/command/ExitStatus.h"
#include "platform/foundation/NSURL.h"

#include <algorithm>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace {

constexpr std::string_view kExitStatuses = R"(Exit status:
  0    the movie was made
  1    no movie was made: the job failed
  2    the command line is wrong
  3    photos or sounds cannot be used; nothing was started
  4    the rendering service could not be started
  5    the movie was made, but is not what was asked for
  129, 130, 143
       stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind
)";

constexpr const char* kCreateAbout = R"(Makes a movie that shows each photo for the same time. A folder stands for the
photos in it, in natural order of their names (img2 before img10); folders in
it, hidden files and other files are passed over. Photos may be JPEG, PNG, WebP,
HEIC, AVIF, TIFF, GIF, BMP and JPEG 2000.

The movie's path is the only line on standard output. Ctrl-C stops the work and
leaves nothing behind; a second one does not wait for the service's answer.
)";

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

std::string readCodec(const std::string& text, CreateOptions& options)
{
    if (std::find(kMovieCodecs.begin(), kMovieCodecs.end(), text) == kMovieCodecs.end())
        return fmt::format("--codec takes {}, not \"{}\"", fmt::join(kMovieCodecs, ", "), text);
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

} // namespace

Parsed<CreateOptions> parseCreate(const std::vector<std::string>& arguments)
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
    if (auto answer = readArguments(app, arguments, "create", createHelp))
        return *std::move(answer);

    std::string fault;
    const auto read = [&](const CLI::Option* option, const std::string& text, auto reader) {
        if (fault.empty() && option->count() > 0)
            fault = reader(text, options);
    };
    read(secondsOption, seconds, readSeconds);
    read(qualityOption, quality,
         [](const std::string& text, CreateOptions& into) { return readQuality(text, into.quality); });
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

std::string createOptionsHelp()
{
    return fmt::format(R"(Options of create:
  --seconds S        show each photo for S seconds, {} to {} (default {})
  --quality Q        height of the movie: 240, 360, 480, 720, 1080, 1440, 2160,
                     or auto, the largest that enlarges no photo (default auto)
  --codec NAME       avc1 (H.264, default), hvc1 (HEVC), jpeg, or ProRes: apcn,
                     ap4h, apch, apcs, apco, ap4x; browsers play only avc1
  --soundtrack FILE[@START-END]
                     play FILE, or the part of it from START to END (seconds,
                     m:ss or h:mm:ss; either may be left out); may be repeated
  --loop             repeat the music until the pictures end
  --fit-music        choose the seconds so that pictures and music end together
  --no-silence       do not fill with silence where the music ends early, or
                     where there is none; some players then drop the last photo
  --reduce-borders   let photos fill the frame, cropped around faces, instead of
                     showing them whole with black borders
  --title NAME       name of the movie (default: the folder that all photos lie
                     in, else "Slideshow"); an existing movie is never replaced,
                     the new one becomes NAME-2.mov
  --save FOLDER      put the movie there; made if it is missing (default: the
                     chosen save folder, else ~/Movies/Stillora)
  --skip-bad         leave out photos that cannot be shown
  --json             write each progress update, and last the result, as a line
                     of JSON to standard output
  --quiet            write nothing but errors to standard error
  -h, --help         show this help
)",
                       kMinSecondsPerPhoto, kMaxSecondsPerPhoto, kDefaultSecondsPerPhoto);
}

std::string_view movieExitStatuses()
{
    return kExitStatuses;
}

std::string createHelp()
{
    return fmt::format("Usage: stillora create PHOTO|FOLDER... [OPTION]...\n\n{}\n{}\n{}", kCreateAbout,
                       createOptionsHelp(), kExitStatuses);
}
