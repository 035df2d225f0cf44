#include "client/command/ConvertCommand.h"

#include <stillora/Waveform.h>

#include "client/command/SoundCommand.h"
#include "client/text/LocalizedText.h"

namespace stillora {

Parsed<ConvertOptions> parseConvert(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("convert", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    ConvertOptions options;
    options.output = given.value("output").value_or("");
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    std::string fault = readSound(given, options.sound);
    if (fault.empty() && options.output.empty())
        fault = localized("-o takes the path of the M4A file to be made, or of a folder for it");
    if (!fault.empty())
        return usageError(fault, "convert");
    return options;
}

int runConvertCommand(const ConvertOptions& options)
{
    SoundCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "sound"});
    const bool isFile = isNameOfM4A(options.output) && !options.output.ends_with('/');
    if (isFile && command.isTaken(options.output))
        return kExitFailed;
    int status = kExitDone;
    const auto sound = command.check(options.sound, status);
    if (!sound)
        return status;
    const WorkProgress progress = command.telling(localized("Converting the sound"));
    const auto file =
        isFile ? convertSoundToFile(*sound, options.output, progress) : convertSound(*sound, options.output, progress);
    return file ? command.succeed(*sound, *file) : command.fail(file.error());
}

} // namespace stillora
