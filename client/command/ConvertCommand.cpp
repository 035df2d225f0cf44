#include "client/command/ConvertCommand.h"

#include <stillora/Localization.h>

#include "audio/MORAudioWaveImage.h"
#include "client/JobFolder.h"
#include "client/Text.h"
#include "client/command/SoundCommand.h"
#include "platform/foundation/NSFileManager.h"
#include "util/MORURLCategory.h"

#include <atomic>
#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using platform::NSError;
using platform::NSURL;

/// Moves the file into the folder, under a name that is free.
std::optional<NSURL> moveIntoFolder(const NSURL& file, const NSURL& folder, NSError* error)
{
    const auto free = [&] {
        return MORURLCategory::URLForNotOverridingURL(
            folder.URLByAppendingPathComponent(file.lastPathComponent(), false));
    };
    NSURL place = free();
    if (!platform::NSFileManager::defaultManager().moveItemToFreeURL(
            file, &place, [&](const NSURL&) { return free(); }, error))
        return std::nullopt;
    return place;
}

} // namespace

Parsed<ConvertOptions> parseConvert(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("convert", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    ConvertOptions options;
    options.folder = given.value("output").value_or("");
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    std::string fault = readSound(given, options.sound);
    if (fault.empty() && options.folder.empty())
        fault = "-o takes the path of the folder for the M4A file";
    if (!fault.empty())
        return usageError(fault, "convert");
    return options;
}

int runConvertCommand(const ConvertOptions& options)
{
    SoundCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "sound"});
    int status = kExitDone;
    const auto sound = command.check(options.sound, status);
    if (!sound)
        return status;
    const NSURL folder = NSURL::fileURLWithPath(options.folder, true);
    NSError error;
    const auto job = JobFolder::create(folder, &error);
    if (!job)
        return command.fail(kExitFailed, error.localizedDescription);

    struct State {
        std::atomic<bool> isDone{false};
        std::optional<NSURL> file;
        std::optional<NSError> error;
    };
    const auto state = std::make_shared<State>();
    MORAudioWaveImage::audioAssetAtURL(NSURL::fileURLWithPath(sound->path.native()), job->temporaryURL(),
                                       timeRangeOf(*sound),
                                       [state](std::optional<NSURL> file, std::optional<NSError> failure) {
                                           state->file = std::move(file);
                                           state->error = std::move(failure);
                                           state->isDone = true;
                                       });
    const bool isWhole = command.waitFor(
        localized("Converting the sound"), [&] { return state->isDone.load(); },
        [&] { return bytesText(static_cast<double>(job->sizeOfContents())); });
    if (!isWhole)
        return command.stopped();
    if (!state->file)
        return command.fail(kExitFailed, state->error ? state->error->localizedDescription
                                                      : sound->path.native() + ": it could not be converted");

    struct stat facts = {};
    const double bytes = stat(state->file->path().c_str(), &facts) == 0 ? static_cast<double>(facts.st_size) : 0;
    const auto place = moveIntoFolder(*state->file, folder, &error);
    if (!place)
        return command.fail(kExitFailed, error.localizedDescription);
    command.note(fmt::format("{}, {}", secondsText(sound->length), bytesText(bytes)));
    return command.succeed(place->path(), command.resultOf(place->path())
                                              .add("seconds", sound->length.count())
                                              .add("bytes", static_cast<int64_t>(bytes)));
}

} // namespace stillora
