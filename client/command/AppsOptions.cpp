#include "client/command/AppsOptions.h"

#include <CLI/CLI.hpp>

namespace {

constexpr const char* kAppsHelp = R"(Usage: stillora apps FILE [OPTION]...

Lists the applications that can open a file, by the desktop's database: for each
its name and its desktop entry, which "gio launch ENTRY FILE" starts. They are
sorted by the entry's name.

Options of apps:
  --json             write one line of JSON: file, and applications, each with
                     name, id and path
  -h, --help         show this help

Exit status:
  0    there is an application
  1    there is none
  2    the command line is wrong
  3    there is no such file
)";

} // namespace

Parsed<AppsOptions> parseApps(const std::vector<std::string>& arguments)
{
    AppsOptions options;
    CLI::App app;
    CLI::Option* const fileOption = app.add_option("file", options.file);
    app.add_flag("--json", options.isJSON);
    if (auto answer = readArguments(app, arguments, "apps", appsHelp))
        return *std::move(answer);
    if (fileOption->count() == 0 || options.file.empty())
        return usageError("no file was given", "apps");
    return options;
}

std::string appsHelp()
{
    return kAppsHelp;
}
