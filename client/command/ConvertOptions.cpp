#include "client/command/ConvertOptions.h"

#include "client/command/SoundArguments.h"

#include <CLI/CLI.hpp>

namespace {

constexpr const char* kConvertHelp = R"(Usage: stillora convert SOUND -o FOLDER [OPTION]...

Saves a sound as AAC in an M4A file, as movies carry it. The file has the
sound's name, with "-2", "-3" and so on where that is taken: nothing is ever
replaced. Its path is the only line on standard output.

Options of convert:
  -o, --output FOLDER
                     where the file is put; made if it is missing
  --range START-END  only this part of the sound, in seconds or m:ss; one of the
                     two may be left out
  --json             write the result as one line of JSON
  --quiet            errors alone on standard error
  -h, --help         show this help

Exit status:
  0    the file was made
  1    it could not be made
  2    the command line is wrong
  3    the sound cannot be used
  130  stopped by Ctrl-C; nothing is left behind
)";

} // namespace

Parsed<ConvertOptions> parseConvert(const std::vector<std::string>& arguments)
{
    ConvertOptions options;
    std::string range;
    CLI::App app;
    app.add_option("sound", options.sound.path);
    app.add_option("-o,--output", options.folder);
    CLI::Option* const rangeOption = app.add_option("--range", range);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
    if (auto answer = readArguments(app, arguments, "convert", convertHelp))
        return *std::move(answer);

    std::string fault;
    if (rangeOption->count() > 0)
        fault = readRange(range, options.sound);
    if (fault.empty() && options.sound.path.empty())
        fault = "no sound was given";
    if (fault.empty() && options.folder.empty())
        fault = "-o takes the path of the folder for the M4A file";
    if (!fault.empty())
        return usageError(fault, "convert");
    return options;
}

std::string convertHelp()
{
    return kConvertHelp;
}
