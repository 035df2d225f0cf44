#include "client/command/Help.h"

#include "client/MoviePlan.h"

#include <fmt/format.h>

#ifndef STILLORA_VERSION
#error "the build gives the version"
#endif

namespace {

constexpr const char* kExitStatuses = R"(Exit status:
  0    the movie was made
  1    no movie was made: the job failed
  2    the command line is wrong
  3    photos or sounds cannot be used; nothing was started
  4    the rendering service could not be started
  5    the movie was made, but is not what was asked for
  129, 130, 143
       stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind
)";

constexpr const char* kCreateUsage = R"(Usage: stillora create PHOTO|FOLDER... [OPTION]...
)";

std::string createOptions()
{
    return fmt::format(R"(Options of create:
  --seconds S        show each photo for S seconds, {} to {} (default {})
  --quality Q        height of the movie: 240, 360, 480, 720, 1080, 1440, 2160,
                     or auto, the largest that enlarges no photo (default auto)
  --codec NAME       avc1 (H.264, default), hvc1 (HEVC), jpeg, or ProRes: apcn,
                     ap4h, apch, apcs, apco, ap4x; browsers play only avc1
  --soundtrack FILE[@START-END]
                     play FILE, or the part of it from START to END (seconds,
                     m:ss or h:mm:ss; either may be left out); may be repeated
  --loop             repeat the music until the pictures end
  --fit-music        choose the seconds so that pictures and music end together
  --no-silence       do not fill with silence where the music ends early, or
                     where there is none; some players then drop the last photo
  --reduce-borders   let photos fill the frame, cropped around faces, instead of
                     showing them whole with black borders
  --title NAME       name of the movie (default: the folder that all photos lie
                     in, else "Slideshow"); an existing movie is never replaced,
                     the new one becomes NAME-2.mov
  --save FOLDER      put the movie there; made if it is missing (default: the
                     chosen save folder, else ~/Movies/Stillora)
  --skip-bad         leave out photos that cannot be shown
  --json             write each progress update, and last the result, as a line
                     of JSON to standard output
  --quiet            write nothing but errors to standard error
  -h, --help         show this help
)",
                       kMinSecondsPerPhoto, kMaxSecondsPerPhoto, kDefaultSecondsPerPhoto);
}

constexpr const char* kCreateAbout = R"(Makes a movie that shows each photo for the same time. A folder stands for the
photos in it, in natural order of their names (img2 before img10); folders in
it, hidden files and other files are passed over. Photos may be JPEG, PNG, WebP,
HEIC, AVIF, TIFF, GIF, BMP and JPEG 2000.

The movie's path is the only line on standard output. Ctrl-C stops the work and
leaves nothing behind; a second one does not wait for the service's answer.
)";

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

std::string generalHelp()
{
    return std::string(R"(Usage: stillora create PHOTO|FOLDER... [OPTION]...
       stillora frame PHOTO -o OUT.png [OPTION]...
       stillora --help | --version

Makes movies of photos.

Commands:
  create             make a movie of photos
  frame              save one frame of a movie as a picture

)") + createOptions() +
           "\n" + kExitStatuses + "\nMore: stillora create --help, stillora frame --help, man stillora\n";
}

std::string createHelp()
{
    return std::string(kCreateUsage) + "\n" + kCreateAbout + "\n" + createOptions() + "\n" + kExitStatuses;
}

std::string frameHelp()
{
    return kFrameHelp;
}

std::string versionText()
{
    return "stillora " STILLORA_VERSION "\n";
}
