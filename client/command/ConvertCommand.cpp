#include "client/command/ConvertCommand.h"

#include <stillora/Waveform.h>

#include "client/LocalizedText.h"
#include "client/Text.h"
#include "client/command/SoundCommand.h"

#include <fmt/format.h>

namespace stillora {

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
        fault = localized("-o takes the path of the folder for the M4A file");
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
    const auto file = convertSound(*sound, options.folder, command.telling(localized("Converting the sound")));
    if (!file)
        return command.fail(file.error());
    command.note(fmt::format("{}, {}", secondsText(sound->length), bytesText(static_cast<double>(file->bytes))));
    return command.succeed(file->path.native(), command.resultOf(file->path.native())
                                                    .add("seconds", sound->length.count())
                                                    .add("bytes", static_cast<int64_t>(file->bytes)));
}

} // namespace stillora
