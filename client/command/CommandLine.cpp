#include "client/command/CommandLine.h"

#include "client/command/options/HelpText.h"
#include "client/command/options/Suggestion.h"
#include "client/command/terminal/ExitStatus.h"
#include "client/text/LocalizedText.h"

#include <algorithm>

#include <fmt/format.h>

#ifndef STILLORA_VERSION
#error "the build gives the version"
#endif

namespace stillora {

Parsed<CommandCall> parseCommandLine(const std::vector<std::string>& arguments)
{
    if (arguments.empty())
        return usageError(localized("a command is missing"));
    const std::string& name = arguments.front();
    if (name == "--help" || name == "-h" || name == "help")
        return CommandLineAnswer{generalHelp(helpColumns()), kExitDone};
    if (name == "--version")
        return CommandLineAnswer{"stillora " STILLORA_VERSION "\n", kExitDone};
    const auto command =
        std::find_if(commands().begin(), commands().end(), [&](const Command& each) { return each.name == name; });
    if (command == commands().end()) {
        if (name.starts_with('-'))
            return usageError(localized("there is no option {}", name));
        std::vector<std::string> names;
        for (const Command& each : commands())
            names.emplace_back(each.name);
        return usageError(withSuggestion(localized("there is no command {}", name), name, names));
    }
    // Each command reads its own, so that a photo may have the name of a command.
    return CommandCall{&*command, {arguments.begin() + 1, arguments.end()}};
}

} // namespace stillora
