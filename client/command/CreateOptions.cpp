#include "client/command/CreateOptions.h"

#include "client/MoviePlan.h"
#include "client/MovieSettings.h"
#include "client/MovieTitle.h"
#include "client/Text.h"
#include "client/command/ExitStatus.h"
#include "platform/foundation/NSString.h"
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
    options.isCodecGiven = true;
    return {};
}

std::string readTitle(std::string text, CreateOptions& options)
{
    // The extension is added anyway.
    if (platform::lowercaseASCII(platform::pathExtension(text)) == "mov")
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
    return {};
}

} // namespace

void MovieOptionReader::addPictures(CLI::App& app)
{
    seconds_ = app.add_option("--seconds", secondsText_);
    quality_ = app.add_option("--quality", qualityText_);
    codec_ = app.add_option("--codec", codecText_);
    title_ = app.add_option("--title", titleText_);
}

void MovieOptionReader::addSoundtracks(CLI::App& app)
{
    // One value each, so that photos may follow.
    app.add_option("--soundtrack", sounds_)->allow_extra_args(false);
}

void MovieOptionReader::addFitting(CLI::App& app)
{
    app.add_flag("--loop", loopsSounds_);
    app.add_flag("--fit-music", fitsMusic_);
    app.add_flag("--no-silence", isSilenceLeftOut_);
    app.add_flag("--reduce-borders", reducesBorders_);
}

std::string MovieOptionReader::read(CreateOptions& options) const
{
    std::string fault;
    const auto readOne = [&](const CLI::Option* option, const std::string& text, auto reader) {
        if (fault.empty() && option && option->count() > 0)
            fault = reader(text, options);
    };
    readOne(seconds_, secondsText_, readSeconds);
    readOne(quality_, qualityText_, [](const std::string& text, CreateOptions& into) {
        into.isQualityGiven = true;
        return readQuality(text, into.quality);
    });
    readOne(codec_, codecText_, readCodec);
    readOne(title_, titleText_, readTitle);
    options.loopsSounds = loopsSounds_;
    options.fitsMusic = fitsMusic_;
    options.fillsSilence = !isSilenceLeftOut_;
    options.reducesBorders = reducesBorders_;
    if (fault.empty())
        fault = readSounds(sounds_, options);
    if (fault.empty() && options.fitsMusic && options.loopsSounds)
        fault = "--fit-music leaves nothing to --loop";
    if (fault.empty() && options.fitsMusic && options.seconds)
        fault = "--fit-music chooses the seconds itself, without --seconds";
    return fault;
}

MovieSettings settingsOf(const CreateOptions& options)
{
    MovieSettings settings;
    settings.secondsPerPhoto = options.seconds.value_or(kDefaultSecondsPerPhoto);
    settings.quality = options.quality;
    settings.codec = options.codec;
    settings.loopsSounds = options.loopsSounds;
    settings.fitsMusic = options.fitsMusic;
    settings.fillsSilence = options.fillsSilence;
    settings.reducesBorders = options.reducesBorders;
    settings.title = options.title;
    return settings;
}

Parsed<CreateOptions> parseCreate(const std::vector<std::string>& arguments)
{
    CreateOptions options;
    std::string saveFolder;
    CLI::App app;
    app.add_option("photos", options.photos);
    MovieOptionReader reader;
    reader.addPictures(app);
    reader.addSoundtracks(app);
    reader.addFitting(app);
    CLI::Option* const saveOption = app.add_option("--save", saveFolder);
    app.add_flag("--skip-bad", options.skipsBad);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
    if (auto answer = readArguments(app, arguments, "create", createHelp))
        return *std::move(answer);

    std::string fault = reader.read(options);
    if (saveOption->count() > 0) {
        if (saveFolder.empty() && fault.empty())
            fault = "--save takes the path of a folder";
        options.saveFolder = saveFolder;
    }
    if (fault.empty() && options.sounds.empty() && (options.loopsSounds || options.fitsMusic))
        fault = fmt::format("{} needs a --soundtrack", options.loopsSounds ? "--loop" : "--fit-music");
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
