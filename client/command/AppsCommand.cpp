#include "client/command/AppsCommand.h"

#include <stillora/Files.h>

#include "client/command/terminal/CommandOutput.h"
#include "client/text/FileReason.h"
#include "client/text/JSONWriter.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/LocaleEncoding.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

std::string jsonOf(const std::string& file, const std::vector<Application>& entries)
{
    std::vector<JSONWriter> applications;
    for (const Application& entry : entries)
        applications.push_back(
            JSONWriter().add("name", entry.name).add("id", entry.identifier).add("path", entry.path.native()));
    return JSONWriter().add("file", file).add("applications", applications).text() + "\n";
}

/// A line for each, the paths below one another.
std::string tableOf(const std::vector<Application>& entries)
{
    int width = 0;
    for (const Application& entry : entries)
        width = std::max(width, displayWidth(printable(entry.name)));
    std::string text;
    for (const Application& entry : entries) {
        const std::string name = printable(entry.name);
        text += name + std::string(static_cast<size_t>(width - displayWidth(name)) + 2, ' ') +
                printable(entry.path.native()) + "\n";
    }
    return text;
}

} // namespace

Parsed<AppsOptions> parseApps(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("apps", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    AppsOptions options;
    const std::string fault = readOnly(given, OnlyOperand::File, options.file);
    options.isJSON = given.has("json");
    if (!fault.empty())
        return usageError(fault, "apps");
    return options;
}

int runAppsCommand(const AppsOptions& options)
{
    CommandOutput output({});
    struct stat status = {};
    if (stat(options.file.c_str(), &status) != 0)
        return output.fail(kExitBadInput, options.file + ": " + reasonOfErrno(errno));

    const std::vector<Application> entries = applicationsFor(options.file);
    const std::string text =
        options.isJSON ? jsonOf(options.file, entries) : platform::encodedForLocale(tableOf(entries));
    const int written = output.give(text, localized("the applications could not be written to standard output"));
    if (written == kExitDone && entries.empty())
        return output.fail(kExitFailed, localized("{}: the desktop knows no application that opens it", options.file));
    return written;
}

} // namespace stillora
