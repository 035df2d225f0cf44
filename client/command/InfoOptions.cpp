#include "client/command/InfoOptions.h"

#include <algorithm>

#include <CLI/CLI.hpp>

namespace {

constexpr const char* kInfoHelp = R"(Usage: stillora info FILE... [OPTION]...

Tells what is known of photos, sounds and movies: of a photo its size in pixels
and its average colour; of a sound its title, artist, album, length, sample rate
and cover; of a movie what it has of both. A title that no tag tells is the name
of the file.

Options of info:
  --json             write a line of JSON for each file
  --cover OUT        save the cover of the file, which is then the only one, as
                     OUT: byte for byte as it is embedded, or as a PNG picture
                     where OUT ends in .png; an existing OUT is replaced
  -h, --help         show this help

Exit status:
  0    all was told
  1    the cover could not be saved
  2    the command line is wrong
  3    files cannot be used, or there is no cover; the others were told
)";

} // namespace

Parsed<InfoOptions> parseInfo(const std::vector<std::string>& arguments)
{
    InfoOptions options;
    std::string cover;
    CLI::App app;
    app.add_option("files", options.files);
    app.add_flag("--json", options.isJSON);
    CLI::Option* const coverOption = app.add_option("--cover", cover);
    if (auto answer = readArguments(app, arguments, "info", infoHelp))
        return *std::move(answer);

    std::string fault;
    if (options.files.empty() ||
        std::any_of(options.files.begin(), options.files.end(), [](const std::string& file) { return file.empty(); }))
        fault = "no file was given";
    if (coverOption->count() > 0) {
        if (fault.empty() && cover.empty())
            fault = "--cover takes the path of the picture to be made";
        if (fault.empty() && options.files.size() > 1)
            fault = "--cover takes one file alone";
        options.cover = cover;
    }
    if (!fault.empty())
        return usageError(fault, "info");
    return options;
}

std::string infoHelp()
{
    return kInfoHelp;
}
