#include "client/command/AppsCommand.h"

#include "client/FileReason.h"
#include "client/JSONWriter.h"
#include "client/Text.h"
#include "client/command/CommandOutput.h"
#include "platform/system/LaunchServices.h"
#include "util/MORPalvineCommons.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using platform::LaunchServices;
using platform::NSURL;

struct Entry {
    LaunchServices::Application application;
    std::string path;
};

std::vector<Entry> entriesFor(const std::string& file)
{
    std::vector<Entry> entries;
    const auto urls = MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(NSURL::fileURLWithPath(file));
    if (!urls)
        return entries;
    for (const NSURL& url : *urls)
        // One that was removed in this moment has no name any more.
        if (auto application = LaunchServices::desktop().applicationAtURL(url))
            entries.push_back({*std::move(application), url.path()});
    return entries;
}

std::string jsonOf(const std::string& file, const std::vector<Entry>& entries)
{
    std::vector<JSONWriter> applications;
    for (const Entry& entry : entries)
        applications.push_back(JSONWriter()
                                   .add("name", entry.application.name)
                                   .add("id", entry.application.identifier)
                                   .add("path", entry.path));
    return JSONWriter().add("file", file).add("applications", applications).text() + "\n";
}

/// A line for each, the paths below one another.
std::string tableOf(const std::vector<Entry>& entries)
{
    int width = 0;
    for (const Entry& entry : entries)
        width = std::max(width, displayWidth(printable(entry.application.name)));
    std::string text;
    for (const Entry& entry : entries) {
        const std::string name = printable(entry.application.name);
        text +=
            name + std::string(static_cast<size_t>(width - displayWidth(name)) + 2, ' ') + printable(entry.path) + "\n";
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
    const std::string fault = readOnly(given, "file", options.file);
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

    const std::vector<Entry> entries = entriesFor(options.file);
    const std::string text = options.isJSON ? jsonOf(options.file, entries) : tableOf(entries);
    const int written = output.give(text, "the applications");
    if (written == kExitDone && entries.empty())
        return output.fail(kExitFailed, options.file + ": the desktop knows no application that opens it");
    return written;
}

} // namespace stillora
