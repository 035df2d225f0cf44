#include "client/command/SettingsCommand.h"

#include "client/command/making/RememberedSettings.h"
#include "client/command/options/Arguments.h"
#include "client/command/options/HelpText.h"
#include "client/command/options/Suggestion.h"
#include "client/command/terminal/CommandOutput.h"
#include "client/command/terminal/ExitStatus.h"
#include "client/text/JSONWriter.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/LocaleEncoding.h"

#include <algorithm>

#include <fmt/format.h>

namespace stillora {

namespace {

std::string keyFault(const std::string& given)
{
    return withSuggestion(
        localized("there is no setting {}: they are {}", given, fmt::join(RememberedSettings::names(), ", ")), given,
        RememberedSettings::names());
}

JSONWriter settingsAsJSON()
{
    JSONWriter json;
    for (const std::string& name : RememberedSettings::names()) {
        const auto value = RememberedSettings::value(name);
        const auto number = value && name == "seconds" ? numberOf(*value) : std::nullopt;
        if (!value)
            json.addNull(name);
        else if (name == "watermark")
            json.add(name, *value == "on");
        else if (number)
            json.add(name, *number);
        else
            json.add(name, *value);
    }
    return json;
}

std::string settingsAsText()
{
    std::string text;
    for (const std::string& name : RememberedSettings::names())
        text +=
            fmt::format("{:<10} {}\n", name, printable(RememberedSettings::value(name).value_or(localized("not set"))));
    return text;
}

} // namespace

int runSetCommand(const std::vector<std::string>& arguments)
{
    if (arguments.empty())
        return give(usageError(fmt::format("set {}?", fmt::join(RememberedSettings::names(), ", ")), "set"));
    const std::string& name = arguments.front();
    if (name == "--help" || name == "-h" || name == "help")
        return give({helpOf("set", helpColumns()), kExitDone});
    if (std::ranges::count(RememberedSettings::names(), name) == 0)
        return give(usageError(keyFault(name), "set"));
    const auto read = CommandArguments::read("set " + name, {arguments.begin() + 1, arguments.end()});
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return give(*answer);
    const std::vector<std::string>& values = std::get<CommandArguments>(read).operands();
    if (values.size() > 1)
        return give(usageError(localized("one value is taken, and {} is another argument", values[1]), "set"));

    CommandOutput output({});
    if (values.empty())
        return RememberedSettings::forget(name)
                   ? kExitDone
                   : output.fail(kExitFailed, localized("the settings could not be written"));
    std::string reason;
    switch (RememberedSettings::keep(name, values.front(), reason)) {
    case RememberedSettings::Outcome::Kept:
        break;
    case RememberedSettings::Outcome::Refused:
        return give(usageError(reason, "set"));
    case RememberedSettings::Outcome::NotWritten:
        return output.fail(kExitFailed, reason);
    }
    return kExitDone;
}

int runSettingsCommand(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("settings", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return give(*answer);
    const auto& given = std::get<CommandArguments>(read);
    if (!given.operands().empty())
        return give(usageError(localized("no argument is taken, and {} is one", given.operands().front()), "settings"));
    return CommandOutput({}).give(given.has("json") ? settingsAsJSON().text() + "\n"
                                                    : platform::encodedForLocale(settingsAsText()),
                                  localized("the settings could not be written to standard output"));
}

} // namespace stillora
