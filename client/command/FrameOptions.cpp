#include "client/command/FrameOptions.h"

#include <CLI/CLI.hpp>

namespace {

constexpr const char* kFrameHelp = R"(Usage: stillora frame PHOTO -o OUT.png [OPTION]...

Shows what becomes of a photo in a movie: saves one finished frame as a picture.
An existing OUT.png is replaced; its path is the only line on standard output.

Options of frame:
  -o, --output OUT.png
                     the picture to be made
  --quality Q        height of the frame: 240, 360, 480, 720, 1080, 1440, 2160,
                     or auto, the largest that does not enlarge the photo
                     (default auto)
  --reduce-borders   let the photo fill the frame, cropped around faces, instead
                     of showing it whole with black borders
  --show-faces       draw a box around each face that is found (yellow), and
                     around all of them together (green)
  -h, --help         show this help

Exit status:
  0    the picture was made
  1    it could not be made or saved
  2    the command line is wrong
  3    the photo cannot be used
)";

} // namespace

Parsed<FrameOptions> parseFrame(const std::vector<std::string>& arguments)
{
    FrameOptions options;
    std::string quality;
    CLI::App app;
    CLI::Option* const photoOption = app.add_option("photo", options.photo);
    CLI::Option* const outputOption = app.add_option("-o,--output", options.output);
    CLI::Option* const qualityOption = app.add_option("--quality", quality);
    app.add_flag("--reduce-borders", options.reducesBorders);
    app.add_flag("--show-faces", options.showsFaces);
    if (auto answer = readArguments(app, arguments, "frame", frameHelp))
        return *std::move(answer);

    std::string fault;
    if (qualityOption->count() > 0)
        fault = readQuality(quality, options.quality);
    if (fault.empty() && (photoOption->count() == 0 || options.photo.empty()))
        fault = "no photo was given";
    if (fault.empty() && (outputOption->count() == 0 || options.output.empty()))
        fault = "-o takes the path of the PNG file to be made";
    if (!fault.empty())
        return usageError(fault, "frame");
    return options;
}

std::string frameHelp()
{
    return kFrameHelp;
}
