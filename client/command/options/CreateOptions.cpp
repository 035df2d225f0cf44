#include "client/command/options/CreateOptions.h"

#include <stillora/Movie.h>

#include "client/command/options/Suggestion.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace stillora {

namespace {

/// @name Each reads the value of one option. Returns what is wrong, or nothing.
/// @{
std::string readSeconds(std::string_view name, const std::string& text, CreateOptions& options)
{
    // "4s" is four seconds, too.
    const bool hasUnit = text.size() > 1 && text.ends_with('s');
    const auto seconds = numberOf(std::string_view(text).substr(0, text.size() - (hasUnit ? 1 : 0)));
    if (!seconds || *seconds < kMinTimePerPhoto.count() || *seconds > kMaxTimePerPhoto.count())
        return localized("{} takes a number from {} to {}, not \"{}\"", name, kMinTimePerPhoto.count(),
                         kMaxTimePerPhoto.count(), text);
    options.seconds = Seconds(*seconds);
    return {};
}

/// What people call a codec, and its own name.
constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kCodecSynonyms{{
    {"h264", "avc1"},
    {"h.264", "avc1"},
    {"avc", "avc1"},
    {"h265", "hvc1"},
    {"h.265", "hvc1"},
    {"hevc", "hvc1"},
    {"mjpeg", "jpeg"},
    {"prores", "apcn"},
    {"proreshq", "apch"},
}};

std::string codecOf(const std::string& typed)
{
    const std::string text = platform::lowercaseASCII(typed);
    for (const auto& [synonym, codec] : kCodecSynonyms)
        if (text == synonym)
            return std::string(codec);
    return typed;
}

std::string readCodec(std::string_view name, const std::string& typed, CreateOptions& options)
{
    const std::string text = codecOf(typed);
    if (std::find(kMovieCodecs.begin(), kMovieCodecs.end(), text) == kMovieCodecs.end())
        return withSuggestion(localized("{} takes {}, not \"{}\"", name, fmt::join(kMovieCodecs, ", "), typed), typed,
                              {kMovieCodecs.begin(), kMovieCodecs.end()});
    options.codec = text;
    options.isCodecGiven = true;
    return {};
}

std::string readTitle(std::string_view, const std::string& given, CreateOptions& options)
{
    std::string text = given;
    // The extension is added anyway.
    if (platform::lowercaseASCII(platform::pathExtension(text)) == "mov")
        text = text.substr(0, text.size() - std::string_view(".mov").size());
    if (const auto fault = faultOfTitle(text))
        return localized("the title \"{}\" {}", prefixOfBytes(printable(text), 60), *fault);
    options.title = std::move(text);
    return {};
}

std::string readSound(std::string_view, const std::string& text, CreateOptions& options)
{
    SoundArgument sound = soundOf(text);
    if (sound.path.empty())
        return localized("--soundtrack takes the path of a sound file");
    if (sound.end && *sound.end <= sound.start.value_or(Seconds(0)))
        return localized("the selection of \"{}\" ends before it starts", text);
    options.sounds.push_back(std::move(sound));
    return {};
}

std::string readSaveFolder(std::string_view, const std::string& text, CreateOptions& options)
{
    if (text.empty())
        return localized("--save takes the path of a folder");
    options.saveFolder = text;
    return {};
}

std::string readOutput(std::string_view, const std::string& text, CreateOptions& options)
{
    constexpr std::array<std::string_view, 6> kOtherMovies = {"avi", "gif", "m4v", "mkv", "mp4", "webm"};
    const std::string extension = platform::lowercaseASCII(platform::pathExtension(text));
    if (std::ranges::count(kOtherMovies, extension) > 0)
        return localized("-o takes the path of a .mov file, not of a .{} file", extension);
    const std::filesystem::path path = text;
    if (!path.has_filename())
        return localized("-o takes the path of the movie; in \"{}\" its name is empty", text);
    options.saveFolder = path.has_parent_path() ? path.parent_path() : ".";
    return readTitle({}, path.filename().native(), options);
}

std::string readHeight(std::string_view name, const std::string& text, CreateOptions& options)
{
    options.isQualityGiven = true;
    return readQuality(text, options.quality, name);
}

/// The words that an option takes, from their table.
template <typename Meaning>
std::string wordsOf(const std::vector<std::pair<std::string, Meaning>>& table)
{
    std::string words;
    for (const auto& [word, meaning] : table)
        words += (words.empty() ? "" : ", ") + word;
    return words;
}

std::string readSort(std::string_view name, const std::string& text, CreateOptions& options)
{
    const auto& words = sortWords();
    const auto word = std::ranges::find(words, text, &std::pair<std::string, PhotoSort>::first);
    if (word == words.end())
        return localized("{} takes {}, not \"{}\"", name, wordsOf(words), text);
    options.order.sort = word->second;
    return {};
}

std::string readProgress(std::string_view, const std::string& text, CreateOptions& options)
{
    const auto& words = progressWords();
    const auto word = std::ranges::find(words, text, &std::pair<std::string, ProgressStyle>::first);
    if (word == words.end())
        return localized("--progress takes {}, not \"{}\"", wordsOf(words), text);
    options.progress = word->second;
    return {};
}
/// @}

struct ValueReader {
    std::string_view option;
    std::string (*read)(std::string_view name, const std::string& text, CreateOptions& options);
};

constexpr std::array<ValueReader, 9> kValueReaders{{
    {"seconds", readSeconds},
    {"quality", readHeight},
    {"codec", readCodec},
    {"title", readTitle},
    {"soundtrack", readSound},
    {"save", readSaveFolder},
    {"sort", readSort},
    {"progress", readProgress},
    {"output", readOutput},
}};

} // namespace

std::string readMovieOption(std::string_view option, const std::string& text, CreateOptions& options,
                            std::string_view name)
{
    const auto* const reader = std::ranges::find(kValueReaders, option, &ValueReader::option);
    assert(reader != kValueReaders.end());
    return reader->read(name, text, options);
}

std::string readMovieOptions(const CommandArguments& arguments, CreateOptions& options)
{
    if (arguments.has("output") && (arguments.has("title") || arguments.has("save")))
        return localized("-o names the movie and its folder, without {}",
                         arguments.has("title") ? "--title" : "--save");
    for (const ValueReader& reader : kValueReaders)
        for (const std::string& text : arguments.values(reader.option))
            if (std::string fault = reader.read(fmt::format("--{}", reader.option), text, options); !fault.empty())
                return fault;
    if (std::string fault = readNameListOptions(arguments, options.list); !fault.empty())
        return fault;
    options.loopsSounds = arguments.has("loop");
    options.fitsMusic = arguments.has("fit-music");
    options.fillsSilence = !arguments.has("no-silence");
    options.reducesBorders = arguments.has("reduce-borders");
    if (std::string fault = readWatermark(arguments, options.watermark); !fault.empty())
        return fault;
    options.use = arguments.has("web") ? MovieUse::Web : MovieUse::Anywhere;
    options.isFresh = arguments.has("fresh");
    options.skipsBad = arguments.has("skip-bad");
    options.isJSON = arguments.has("json");
    options.isQuiet = arguments.has("quiet");
    options.plansOnly = arguments.has("dry-run");
    if (const auto sheet = arguments.value("contact-sheet")) {
        if (!options.plansOnly)
            return localized("--contact-sheet goes with --dry-run");
        std::string path;
        if (std::string fault = readPNG(*sheet, path, "--contact-sheet"); !fault.empty())
            return fault;
        options.contactSheet = path;
    }
    options.order.isReversed = arguments.has("reverse");
    if (arguments.has("recursive"))
        options.innerFolders = InnerFolders::Listed;
    return faultOfFitting(options, {"--fit-music", "--loop", "--seconds"});
}

std::string faultOfFitting(const CreateOptions& options, const FittingNames& names)
{
    if (options.fitsMusic && options.loopsSounds)
        return localized("{} leaves nothing to {}", names.fitMusic, names.loop);
    if (options.fitsMusic && options.seconds)
        return localized("{} chooses the seconds itself, without {}", names.fitMusic, names.seconds);
    return {};
}

MovieSettings settingsOf(const CreateOptions& options)
{
    MovieSettings settings;
    settings.timePerPhoto = options.seconds.value_or(kDefaultTimePerPhoto);
    settings.quality = options.quality;
    settings.codec = options.codec;
    settings.loopsSounds = options.loopsSounds;
    settings.fitsMusic = options.fitsMusic;
    settings.fillsSilence = options.fillsSilence;
    settings.reducesBorders = options.reducesBorders;
    settings.title = options.title;
    settings.watermark = options.watermark;
    return settings;
}

std::string faultOfMissingSound(const CreateOptions& options, const FittingNames& names)
{
    return localized("{} needs a sound", options.loopsSounds ? names.loop : names.fitMusic);
}

Parsed<CreateOptions> parseCreate(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("create", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    CreateOptions options;
    options.photos.assign(given.operands().begin(), given.operands().end());
    std::string fault = readMovieOptions(given, options);
    if (fault.empty() && options.photos.empty() && !options.list)
        fault = localized("no photos were given");
    if (!fault.empty())
        return usageError(fault, "create");
    return options;
}

} // namespace stillora
