#include "client/command/OptionTable.h"

#include <stillora/Movie.h>

#include "client/MovieSettings.h"
#include "client/command/WaveformCommand.h"
#include "video/VideoSize.h"

#include <cassert>

#include <fmt/format.h>

namespace stillora {

namespace {

std::vector<std::string> codecWords()
{
    return {kMovieCodecs.begin(), kMovieCodecs.end()};
}

std::vector<std::string> heightWords()
{
    std::vector<std::string> words;
    for (const platform::CGSize& size : VideoSize::kSizes)
        words.push_back(fmt::format("{:.0f}", size.height));
    return words;
}

/// All options that there are. One that is worded differently for another command stands here twice.
struct Options {
    const Option seconds{
        .name = "seconds",
        .value = "S",
        .help = fmt::format("show each photo for S seconds, {} to {} (default {})", kMinTimePerPhoto.count(),
                            kMaxTimePerPhoto.count(), kDefaultTimePerPhoto.count()),
    };
    const Option quality{
        .name = "quality",
        .value = "Q",
        .help =
            fmt::format("height of the movie: {}; auto, the largest that four fifths of the photos cover (default); "
                        "or smallest, the largest that the smallest photo covers",
                        fmt::join(heightWords(), ", ")),
        .more =
            "1080p and 4k are understood, too. Sizes are 320 x 240, 640 x 360, 854 x 480, 1280 x 720, 1920 x 1080, "
            "2560 x 1440 and 3840 x 2160. A "
            "photo covers a size that it is not narrower and not lower than. With auto at least four fifths of the "
            "photos cover the size, of three or four photos all but one, of two both: 14 photos of 3000 x 2000 and "
            "one of 1200 x 1600 make a movie of 2560 x 1440. The others are not enlarged and stand in black; a line "
            "on standard error names or counts them. With smallest the movie of the same 15 photos is 854 x 480.",
        .offer = Offer::Words,
        .words = qualityWords(),
    };
    const Option sort{
        .name = "sort",
        .value = "BY",
        .help = "show photos by name, by the date they were taken, or as given (default: given)",
        .more =
            "By name is natural order of the files' names, wherever they lie. By date is the moment that EXIF tells: "
            "DateTimeOriginal with its fraction of a second and its offset from UTC, or else in this computer's "
            "time zone. A photo that tells none goes by the one before it in its folder, or by the next one, in "
            "natural order of the names; if none tells, all go by the times of their files. A line on standard "
            "error says so. Photos of the same moment are in natural order of their folders and names.",
        .offer = Offer::Words,
        .words = {"name", "date", "given"},
    };
    const Option filesFrom{
        .name = "files-from",
        .value = "FILE",
        .help = "take more names from FILE, one on each line, after those of the command line; - is standard input",
        .more = "The names stand for what they would stand for as arguments, but none is an option. Relative ones are "
                "relative to the current folder. Empty lines are passed over, and a carriage return before the end of "
                "a line is no part of a name. Where standard input is read, nothing is asked.",
        .offer = Offer::Files,
    };
    const Option null{
        .name = "null",
        .letter = '0',
        .help = "names in the list of --files-from end in a zero byte, as find -print0 writes them",
    };
    const Option dryRun{
        .name = "dry-run",
        .help = "tell what the movie would be, and make none",
        .more =
            "The plan goes to standard output: length, height and why it has that, what is heard, about how large the "
            "file will be and how long it will take, and the photos in their order. For that some of the photos are "
            "made into frames and coded as the movie's would be, and a few seconds of each sound are converted, which "
            "takes about two seconds; the time is that of this computer, as busy as it is now. Photos and sounds are "
            "looked into as ever; no service is started, no movie and no folder for it made, and the exit status for a "
            "wrong command line or for bad photos is the same.",
    };
    const Option reverse{.name = "reverse", .help = "show photos the other way round, the last one first"};
    const Option recursive{
        .name = "recursive",
        .help = "take photos of folders inside folders too",
        .more = "They follow the folder's own, folder by folder in natural order of their names. Hidden folders, "
                "documents and links to folders are passed over all the same.",
    };
    const Option recursiveItems{
        .name = "recursive",
        .help = "take photos and sounds of folders inside folders too",
    };
    const Option codec{
        .name = "codec",
        .value = "NAME",
        .help = "how pictures are stored: avc1 (H.264, default), hvc1 (HEVC), jpeg, or ProRes: apcn, ap4h, apch, apcs, "
                "apco, ap4x; browsers play only avc1",
        .more = "The names h264, hevc, mjpeg and prores are understood, too. Of ProRes apcn is 422, apch 422 HQ, apcs "
                "422 LT, apco 422 Proxy, ap4h 4444 and ap4x 4444 XQ.",
        .offer = Offer::Words,
        .words = codecWords(),
    };
    const Option soundtrack{
        .name = "soundtrack",
        .value = "FILE[@START-END]",
        .help = "play FILE, or the part of it from START to END (seconds, m:ss or h:mm:ss; either may be left out); "
                "may be repeated",
        .more = "The sounds are heard one after the other. What outlasts the pictures is faded out over their last "
                "five seconds and cut; no further sound is then begun in these, and is named as left out. A file whose "
                "name itself ends like a part "
                "is given with @- after it. Sounds may be MP3, M4A (AAC or ALAC), AIFF, AIFC, CAF, WAV, FLAC, Ogg and "
                "Opus files. A line on standard error tells what will be heard before the work starts.",
        .offer = Offer::Sounds,
        .isRepeatable = true,
    };
    const Option loop{.name = "loop", .help = "repeat the music until the pictures end"};
    const Option fitMusic{
        .name = "fit-music",
        .help = "choose the seconds so that pictures and music end together",
    };
    const Option noSilence{
        .name = "no-silence",
        .help = "do not fill with silence where the music ends early, or where there is none; some players then drop "
                "the last photo",
    };
    const Option reduceBorders{
        .name = "reduce-borders",
        .help = "let photos fill the frame, cropped around faces, instead of showing them whole with black borders",
        .more =
            "Faces are found by the package stillora-faces; without it a line on standard error says so, and photos "
            "are cropped around their middle.",
    };
    const Option watermark{
        .name = "watermark",
        .help = "write the watermark, where the settings or the build leave it out",
    };
    const Option noWatermark{
        .name = "no-watermark",
        .help = "leave out the watermark",
        .more =
            "It is written on the first and the last photo, and with ten photos or more on up to nine in the middle.",
    };
    const Option web{
        .name = "web",
        .help = "show photos in their time in every browser, for a web page; without it Chromium may show them early",
        .more = "Each photo is then told of at least twice a second, by the same bytes of the file: nothing is encoded "
                "anew, and the file grows by eight bytes each time.",
    };
    const Option title{
        .name = "title",
        .value = "NAME",
        .help = "name of the movie (default: the folder that all photos lie in, else \"Slideshow\"); an existing movie "
                "is never replaced, the new one becomes NAME-2.mov",
        .more = "At most 200 bytes, no slash, no dot at the start; the extension is always .mov.",
    };
    const Option documentTitle{.name = "title", .value = "NAME", .help = "name of the movie (default: the document's)"};
    const Option save{
        .name = "save",
        .value = "FOLDER",
        .help = "put the movie there; made if it is missing (default: the chosen save folder, else ~/Movies/Stillora)",
        .more = "A folder that was made is removed again if no movie is made.",
        .offer = Offer::Folders,
    };
    const Option movie{
        .name = "output",
        .letter = 'o',
        .value = "FILE",
        .help = "the movie's path, instead of --title and --save; an existing movie is never replaced, the new one "
                "becomes FILE-2.mov",
        .offer = Offer::Files,
    };
    const Option skipBad{
        .name = "skip-bad",
        .help = "leave out photos that cannot be shown, or only in part because the end of their file is missing",
        .more = "Folders and files that cannot be read are left out, too. Without it, photos that can be shown in part "
                "are shown and named; where others cannot be used at all, who sits at a terminal is asked.",
    };
    const Option skipBadItems{
        .name = "skip-bad", .help = "leave out photos and sounds that cannot be used, and photos whose end is missing"};
    const Option events{
        .name = "json",
        .help = "write each progress update, and last the result, as a line of JSON to standard output",
    };
    const Option json{.name = "json", .help = "write the result as one line of JSON to standard output"};
    const Option jsonOfFiles{.name = "json", .help = "write a line of JSON for each file"};
    const Option quiet{.name = "quiet", .help = "write nothing but errors to standard error"};
    const Option png{
        .name = "output",
        .letter = 'o',
        .value = "OUT.png",
        .help = "the picture to be made",
        .offer = Offer::PNGPictures,
    };
    const Option m4a{
        .name = "output",
        .letter = 'o',
        .value = "OUT.m4a",
        .help = "the file to be made",
        .offer = Offer::M4AFiles,
    };
    const Option folder{
        .name = "output",
        .letter = 'o',
        .value = "FOLDER",
        .help = "where the file is put; made if it is missing",
        .offer = Offer::Folders,
    };
    const Option frameQuality{
        .name = "quality",
        .value = "Q",
        .help = fmt::format("height of the frame: {}; auto or smallest, which are the same for one photo, the largest "
                            "that it covers (default auto)",
                            fmt::join(heightWords(), ", ")),
        .offer = Offer::Words,
        .words = qualityWords(),
    };
    const Option frameBorders{
        .name = "reduce-borders",
        .help = "let the photo fill the frame, cropped around faces, instead of showing it whole with black borders",
    };
    const Option showFaces{
        .name = "show-faces",
        .help = "draw a box around each face that is found (yellow), and around all of them together (green)",
        .more = "Faces are then also looked for where they cannot change the place.",
    };
    const Option cover{
        .name = "cover",
        .value = "OUT",
        .help = "save the cover of the file, which is then the only one, as OUT: byte for byte as it is embedded, or "
                "as a PNG picture where OUT ends in .png; an existing OUT is replaced",
        .offer = Offer::Covers,
    };
    const Option size{
        .name = "size",
        .value = "WxH",
        .help =
            fmt::format("its width and height in pixels, up to {} (default 1000x200)", WaveformOptions::kMostPixels),
    };
    const Option range{
        .name = "range",
        .value = "START-END",
        .help = "only this part of the sound, in seconds or m:ss; one of the two may be left out",
    };
    const Option onWhite{.name = "on-white", .help = "on white instead of a clear ground"};
};

const Options& options()
{
    // Never torn down: threads may still run when the program ends.
    static const auto* const all = new Options;
    return *all;
}

constexpr const char* kMovieStatuses = R"(  0    the movie was made
  1    no movie was made: the job failed
  2    the command line is wrong
  3    photos, sounds or their list cannot be used; nothing was started
  4    the rendering service could not be started
  5    the movie was made, but is not what was asked for
  129, 130, 143
       stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind
)";

constexpr const char* kSoundStatuses = R"(  0    the file was made
  1    it could not be made
  2    the command line is wrong
  3    the sound cannot be used
  130  stopped by Ctrl-C; nothing is left behind
)";

CommandText create(const Options& o)
{
    return {
        .name = "create",
        .summary = "make a movie of photos",
        .about = R"(Makes a movie that shows each photo for the same time. A folder stands for the
photos in it, in natural order of their names (img2 before img10); folders in
it are passed over unless --recursive is given, hidden files and other files
always. Photos may be JPEG, PNG, WebP, HEIC, AVIF, TIFF, GIF, BMP and JPEG 2000.
A sound, or FILE@START-END for a part of it, is played before those of
--soundtrack. A document is rendered.

The movie's path is the only line on standard output. Ctrl-C stops the work and
leaves nothing behind; a second one does not wait for the service's answer.
)",
        .exitStatuses = kMovieStatuses,
        .forms = {{.operands = "PHOTO|SOUND|FOLDER...|DOCUMENT",
                   .offer = Offer::PhotosAndSounds,
                   .options = {&o.seconds,   &o.quality, &o.codec,   &o.soundtrack, &o.loop,          &o.fitMusic,
                               &o.noSilence, &o.sort,    &o.reverse, &o.recursive,  &o.reduceBorders, &o.noWatermark,
                               &o.watermark, &o.web,     &o.title,   &o.save,       &o.movie,         &o.skipBad,
                               &o.filesFrom, &o.null,    &o.dryRun,  &o.events,     &o.quiet}}},
    };
}

CommandText document(const Options& o)
{
    return {
        .name = "document",
        .summary = "keep photos, sounds and settings in a document",
        .about = R"(A document is a folder NAME.stillora that holds a slideshow: copies of its
photos and sounds, their order, and how the movie is to be made. It can be moved
and copied like any folder; the originals are not needed any more.

A folder stands for the photos and sounds in it, in natural order of their
names. A sound may be given as FILE@START-END to play a part of it; one that is
not known by its name's extension is given with --soundtrack. What new is told
of the movie is kept in the document; what render is told holds for one movie.
)",
        .exitStatuses = R"(  0    done
  1    it could not be done: a file or the movie could not be made
  2    the command line is wrong
  3    the document, or photos or sounds of it or for it, cannot be used
  4    the rendering service could not be started
  5    the movie was made, but is not what was asked for
  129, 130, 143
       stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind
)",
        .forms = {{.verb = "new",
                   .summary = "makes a document; nothing of that name may be there",
                   .operands = "NAME [PHOTO|SOUND|FOLDER]...",
                   .offer = Offer::PhotosAndSounds,
                   .startsWithDocument = true,
                   .options = {&o.seconds, &o.quality, &o.codec, &o.soundtrack, &o.loop, &o.fitMusic, &o.noSilence,
                               &o.sort, &o.reverse, &o.recursiveItems, &o.reduceBorders, &o.noWatermark, &o.watermark,
                               &o.documentTitle, &o.skipBadItems, &o.filesFrom, &o.null, &o.events, &o.quiet}},
                  {.verb = "add",
                   .summary = "adds photos and sounds at the end",
                   .operands = "DOCUMENT PHOTO|SOUND|FOLDER...",
                   .offer = Offer::PhotosAndSounds,
                   .startsWithDocument = true,
                   .options = {&o.soundtrack, &o.sort, &o.reverse, &o.recursiveItems, &o.skipBadItems, &o.filesFrom,
                               &o.null, &o.events, &o.quiet}},
                  {.verb = "list",
                   .summary = "shows what is in a document",
                   .operands = "DOCUMENT",
                   .startsWithDocument = true,
                   .options = {&o.json, &o.quiet}},
                  {.verb = "check",
                   .summary = "looks whether every photo and sound of a document can be used",
                   .operands = "DOCUMENT",
                   .startsWithDocument = true,
                   .options = {&o.json, &o.quiet}},
                  {.verb = "render",
                   .summary = "makes the movie, the same as 'stillora create' would",
                   .operands = "DOCUMENT",
                   .startsWithDocument = true,
                   .options = {&o.seconds, &o.quality, &o.codec, &o.noWatermark, &o.watermark, &o.web, &o.documentTitle,
                               &o.save, &o.movie, &o.skipBadItems, &o.dryRun, &o.events, &o.quiet}}},
    };
}

CommandText frame(const Options& o)
{
    return {
        .name = "frame",
        .summary = "save one frame of a movie as a picture",
        .about = R"(Shows what becomes of a photo in a movie: saves one finished frame as a picture.
An existing OUT.png is replaced; its path is the only line on standard output.
)",
        .exitStatuses = R"(  0    the picture was made
  1    it could not be made or saved
  2    the command line is wrong
  3    the photo cannot be used
)",
        .forms = {{.operands = "PHOTO -o OUT.png",
                   .offer = Offer::Photos,
                   .options = {&o.png, &o.frameQuality, &o.frameBorders, &o.noWatermark, &o.watermark, &o.showFaces}}},
    };
}

CommandText info(const Options& o)
{
    return {
        .name = "info",
        .summary = "tell what is known of photos, sounds and movies",
        .about = R"(Tells what is known of photos, sounds and movies: of a photo its size in pixels,
its average colour and, where EXIF tells, when, with which camera and where it
was taken; of a sound its title, artist, album, length, sample rate
and cover; of a movie what it has of both. A title that no tag tells is the name
of the file.
)",
        .exitStatuses = R"(  0    all was told
  1    the cover could not be saved
  2    the command line is wrong
  3    files cannot be used, or there is no cover; the others were told
)",
        .forms = {{.operands = "FILE...",
                   .offer = Offer::Media,
                   .options = {&o.jsonOfFiles, &o.cover, &o.filesFrom, &o.null}}},
    };
}

CommandText waveform(const Options& o)
{
    return {
        .name = "waveform",
        .summary = "draw how loud a sound is over time",
        .about = R"(Draws how loud a sound is over time: a black line for each column of pixels, on
a clear ground, the loudest as high as the picture. Where several columns are
equally loud only the first is drawn. An existing OUT.png is replaced; its path
is the only line on standard output.
)",
        .exitStatuses = R"(  0    the picture was made
  1    it could not be made or saved
  2    the command line is wrong
  3    the sound cannot be used
  130  stopped by Ctrl-C
)",
        .forms = {{.operands = "SOUND -o OUT.png",
                   .offer = Offer::Sounds,
                   .options = {&o.png, &o.size, &o.range, &o.onWhite, &o.json, &o.quiet}}},
    };
}

CommandText convert(const Options& o)
{
    return {
        .name = "convert",
        .summary = "save a sound, or a part of it, as AAC",
        .about = R"(Saves a sound as AAC in an M4A file, as movies carry it. The file has the
sound's name, with "-2", "-3" and so on where that is taken: nothing is ever
replaced. Its path is the only line on standard output.
)",
        .exitStatuses = kSoundStatuses,
        .forms = {{.operands = "SOUND -o FOLDER",
                   .offer = Offer::Sounds,
                   .options = {&o.folder, &o.range, &o.json, &o.quiet}}},
    };
}

CommandText trim(const Options& o)
{
    return {
        .name = "trim",
        .summary = "cut a part out of a sound without encoding it anew",
        .about = R"(Cuts a part out of a sound without encoding it anew, exact to the sample. The
sound must be AAC or ALAC; "stillora convert" takes every other. An existing
file is never replaced. The path of OUT.m4a is the only line on standard output.
)",
        .exitStatuses = kSoundStatuses,
        .forms = {{.operands = "SOUND --range START-END -o OUT.m4a",
                   .offer = Offer::Sounds,
                   .options = {&o.m4a, &o.range, &o.json, &o.quiet}}},
    };
}

CommandText set()
{
    const auto form = [](const char* key, const char* summary, const char* value, Offer offer) {
        return CommandForm{.verb = key, .summary = summary, .operands = value, .offer = offer};
    };
    return {
        .name = "set",
        .summary = "choose something for all movies",
        .about = R"(Keeps what "create" and "document new" take where their options say nothing;
without a value it is forgotten. The folder counts for "document render", too,
and for other programs that have movies made; so does the watermark, which
counts for "frame" as well.
)",
        .exitStatuses = R"(  0    it is kept, or forgotten
  1    the settings could not be written
  2    the command line is wrong: there is no such setting, or value
)",
        .forms = {form("save", "the folder that movies are put into, which is there", "[FOLDER]", Offer::Folders),
                  form("quality", "the height of movies, as of --quality", "[Q]", Offer::Nothing),
                  form("seconds", "how long each photo is shown, as of --seconds", "[S]", Offer::Nothing),
                  form("codec", "how pictures are stored, as of --codec", "[NAME]", Offer::Nothing),
                  form("watermark", "whether photos carry the watermark", "[on|off]", Offer::Nothing)},
    };
}

CommandText settings(const Options& o)
{
    return {
        .name = "settings",
        .summary = "list what was chosen for all movies",
        .about = R"(Lists what "stillora set" has kept. In JSON each is null where nothing was
chosen.
)",
        .exitStatuses = R"(  0    all was told
  2    the command line is wrong
)",
        .forms = {{.options = {&o.json}}},
    };
}

CommandText apps(const Options& o)
{
    return {
        .name = "apps",
        .summary = "list the applications that can open a file",
        .about = R"(Lists the applications that can open a file, by the desktop's database: for each
its name and its desktop entry, which "gio launch ENTRY FILE" starts. They are
sorted by the entry's name. In JSON they are file, and applications, each with
name, id and path.
)",
        .exitStatuses = R"(  0    there is an application
  1    there is none
  2    the command line is wrong
  3    there is no such file
)",
        .forms = {{.operands = "FILE", .offer = Offer::Files, .options = {&o.json}}},
    };
}

} // namespace

const std::vector<std::string>& qualityWords()
{
    static const auto* const words = [] {
        auto* all = new std::vector<std::string>(heightWords());
        all->insert(all->begin(), {"auto", std::string(kSmallestWord)});
        return all;
    }();
    return *words;
}

const std::vector<std::pair<std::string, PhotoSort>>& sortWords()
{
    static const auto* const words = new std::vector<std::pair<std::string, PhotoSort>>{
        {"name", PhotoSort::ByName}, {"date", PhotoSort::ByDate}, {"given", PhotoSort::AsGiven}};
    return *words;
}

const Option& helpOption()
{
    static const auto* const help = new Option{.name = "help", .letter = 'h', .help = "show this help"};
    return *help;
}

const std::vector<CommandText>& commandTexts()
{
    const Options& o = options();
    static const auto* const all = new std::vector<CommandText>{
        create(o), document(o), frame(o), info(o), waveform(o), convert(o), trim(o), set(), settings(o), apps(o)};
    return *all;
}

const CommandForm& commandForm(std::string_view name)
{
    for (const CommandText& command : commandTexts())
        for (const CommandForm& form : command.forms)
            if (name == (form.verb.empty() ? command.name : command.name + " " + form.verb))
                return form;
    assert(false);
    return commandTexts().front().forms.front();
}

} // namespace stillora
