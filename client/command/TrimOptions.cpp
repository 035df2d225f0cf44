#include "client/command/TrimOptions.h"

#include "client/command/SoundArguments.h"
#include "platform/foundation/NSString.h"
#include "platform/foundation/NSURL.h"

#include <CLI/CLI.hpp>

namespace {

constexpr const char* kTrimHelp = R"(Usage: stillora trim SOUND --range START-END -o OUT.m4a [OPTION]...

Cuts a part out of a sound without encoding it anew, exact to the sample. The
sound must be AAC or ALAC; "stillora convert" takes every other. An existing
file is never replaced. The path of OUT.m4a is the only line on standard output.

Options of trim:
  -o, --output OUT.m4a
                     the file to be made
  --range START-END  the part, in seconds or m:ss; one of the two may be left
                     out
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

bool isNameOfM4A(const std::string& path)
{
    return platform::lowercaseASCII(platform::pathExtension(path)) == "m4a";
}

} // namespace

Parsed<TrimOptions> parseTrim(const std::vector<std::string>& arguments)
{
    TrimOptions options;
    std::string range;
    CLI::App app;
    app.add_option("sound", options.sound.path);
    app.add_option("-o,--output", options.output);
    CLI::Option* const rangeOption = app.add_option("--range", range);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
    if (auto answer = readArguments(app, arguments, "trim", trimHelp))
        return *std::move(answer);

    std::string fault;
    if (options.sound.path.empty())
        fault = "no sound was given";
    if (fault.empty())
        fault = rangeOption->count() > 0 ? readRange(range, options.sound) : "--range takes the part of the sound";
    if (fault.empty() && !isNameOfM4A(options.output))
        fault = "-o takes the path of the M4A file to be made, which ends in \".m4a\"";
    if (!fault.empty())
        return usageError(fault, "trim");
    return options;
}

std::string trimHelp()
{
    return kTrimHelp;
}
