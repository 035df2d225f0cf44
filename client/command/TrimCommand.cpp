#include "client/command/TrimCommand.h"

#include <stillora/Localization.h>

#include "audio/MORAudioWaveImage.h"
#include "client/JobFolder.h"
#include "client/Text.h"
#include "client/command/SoundCommand.h"
#include "platform/foundation/NSFileManager.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSURL.h"
#include "platform/media/AVURLAsset.h"

#include <memory>
#include <optional>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using platform::NSError;
using platform::NSURL;

std::string existsAlready(const std::string& path)
{
    return path + " exists already, and is not replaced";
}

bool isNameOfM4A(const std::string& path)
{
    return platform::lowercaseASCII(platform::pathExtension(path)) == "m4a";
}

} // namespace

Parsed<TrimOptions> parseTrim(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("trim", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    TrimOptions options;
    options.output = given.value("output").value_or("");
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    std::string fault = readSound(given, options.sound);
    if (fault.empty() && !given.has("range"))
        fault = "--range takes the part of the sound";
    if (fault.empty() && !isNameOfM4A(options.output))
        fault = "-o takes the path of the M4A file to be made, which ends in \".m4a\"";
    if (!fault.empty())
        return usageError(fault, "trim");
    return options;
}

int runTrimCommand(const TrimOptions& options)
{
    SoundCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "sound"});
    struct stat facts = {};
    if (lstat(options.output.c_str(), &facts) == 0)
        return command.fail(kExitFailed, existsAlready(options.output));
    int status = kExitDone;
    const auto sound = command.check(options.sound, status);
    if (!sound)
        return status;
    const NSURL output = NSURL::fileURLWithPath(options.output);
    NSError error;
    // The file grows in a hidden folder beside its place, of which nothing is left if the user stops this.
    const auto job = JobFolder::create(output.URLByDeletingLastPathComponent(), &error);
    if (!job)
        return command.fail(kExitFailed, error.localizedDescription);
    const NSURL growing = job->temporaryURL().URLByAppendingPathComponent(output.lastPathComponent(), false);

    struct State {
        bool isDone = false;
        bool hasFile = false;
        std::optional<NSError> error;
    };
    const auto state = std::make_shared<State>();
    const auto asset =
        std::make_shared<platform::AVURLAsset>(NSURL::fileURLWithPath(sound->path.native()),
                                               platform::AVURLAsset::Options{.preferPreciseDurationAndTiming = true});
    MORAudioWaveImage::trimAssetAsynchronouslyWithTimeRange(
        asset, timeRangeOf(*sound), growing,
        [state](const platform::AVURLAssetPtr& trimmed, std::optional<NSError> failure) {
            state->hasFile = trimmed != nullptr;
            state->error = std::move(failure);
            state->isDone = true;
        });
    const bool isWhole = command.waitFor(
        localized("Cutting the sound"), [&] { return state->isDone; },
        [&] { return bytesText(static_cast<double>(job->sizeOfContents())); });
    if (!isWhole)
        return command.stopped();
    if (!state->hasFile) {
        if (state->error && state->error->code == platform::kAVErrorOperationNotSupportedForAsset)
            return command.fail(kExitBadInput, sound->path.native() +
                                                   ": its sound cannot be cut without encoding it anew, which "
                                                   "\"stillora convert\" does");
        return command.fail(kExitFailed, state->error ? state->error->localizedDescription
                                                      : sound->path.native() + ": it could not be cut");
    }
    const double bytes = stat(growing.path().c_str(), &facts) == 0 ? static_cast<double>(facts.st_size) : 0;
    if (!platform::NSFileManager::defaultManager().moveItemAtURL(growing, output, &error))
        return command.fail(kExitFailed, error.code == platform::kNSFileWriteFileExistsError
                                             ? existsAlready(options.output)
                                             : error.localizedDescription);
    command.note(fmt::format("{}, {}", secondsText(sound->length), bytesText(bytes)));
    return command.succeed(options.output, command.resultOf(options.output)
                                               .add("seconds", sound->length.count())
                                               .add("bytes", static_cast<int64_t>(bytes)));
}

} // namespace stillora
