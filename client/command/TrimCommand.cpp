#include "client/command/TrimCommand.h"

#include <stillora/Waveform.h>

#include "client/command/SoundCommand.h"
#include "client/text/LocalizedText.h"

namespace stillora {

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
        fault = localized("--range takes the part of the sound");
    if (fault.empty() && !isNameOfM4A(options.output))
        fault = localized("-o takes the path of the M4A file to be made, which ends in \".m4a\"");
    if (!fault.empty())
        return usageError(fault, "trim");
    return options;
}

int runTrimCommand(const TrimOptions& options)
{
    SoundCommand command({.isJSON = options.isJSON, .isQuiet = options.isQuiet, .product = "sound"});
    if (command.isTaken(options.output))
        return kExitFailed;
    int status = kExitDone;
    const auto sound = command.check(options.sound, status);
    if (!sound)
        return status;
    const auto file = trimSound(*sound, options.output, command.telling(localized("Cutting the sound")));
    if (!file && file.error().code == ErrorCode::NeedsEncoding)
        return command.fail(kExitBadInput, localized("{}, which \"stillora convert\" does", file.error().message));
    return file ? command.succeed(*sound, *file) : command.fail(file.error());
}

} // namespace stillora
