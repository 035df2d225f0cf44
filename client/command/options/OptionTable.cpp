#include "client/command/options/OptionTable.h"

#include <stillora/Movie.h>
#include <stillora/Waveform.h>

#include "client/movie/MovieSettings.h"
#include "client/text/LocalizedText.h"

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
        .value = localized("S"),
        .help = localized("show each photo for S seconds, {} to {} (default {})", kMinTimePerPhoto.count(),
                          kMaxTimePerPhoto.count(), kDefaultTimePerPhoto.count()),
    };
    const Option quality{
        .name = "quality",
        .value = localized("Q"),
        .help = localized("height of the movie: {}; auto, the largest that suits four fifths of the photos (default); "
                          "or smallest, the largest that the smallest photo covers",
                          fmt::join(heightWords(), ", ")),
        .more = localized(
            "1080p and 4k are understood, too. Sizes are 320 x 240, 640 x 360, 854 x 480, 1280 x 720, 1920 x 1080, "
            "2560 x 1440 and 3840 x 2160. A photo covers a size that it is not narrower and not lower than. With auto "
            "the size suits at least four fifths of the photos, of three or four photos all but one, of two both. It "
            "suits a photo that covers it and, up to 1920 x 1080, an upright or square one that is as high. So 14 "
            "photos of 3000 x 2000 and one of 1200 x 1600 make a movie of 2560 x 1440. No photo is enlarged: smaller "
            "ones stand in black, and a line on standard error names or counts them. With smallest the movie of the "
            "same 15 photos is 854 x 480."),
        .offer = Offer::Words,
        .words = qualityWords(),
    };
    const Option sort{
        .name = "sort",
        .value = localized("BY"),
        .help = localized("show photos by name, by the date they were taken, or as given (default: given)"),
        .more = localized(
            "By name is natural order of the files' names, wherever they lie. By date is the moment that EXIF tells: "
            "DateTimeOriginal with its fraction of a second and its offset from UTC, or else in this computer's "
            "time zone. A photo that tells none goes by the one before it in its folder, or by the next one, in "
            "natural order of the names; if none tells, all go by the times of their files. A line on standard "
            "error says so. Photos of the same moment are in natural order of their folders and names."),
        .offer = Offer::Words,
        .words = {"name", "date", "given"},
    };
    const Option filesFrom{
        .name = "files-from",
        .value = localized("FILE"),
        .help = localized(
            "take more names from FILE, one on each line, after those of the command line; - is standard input"),
        .more = localized(
            "The names stand for what they would stand for as arguments, but none is an option. Relative ones are "
            "relative to the current folder. Empty lines are passed over, and a carriage return before the end of "
            "a line is no part of a name. Where standard input is read, nothing is asked."),
        .offer = Offer::Files,
    };
    const Option null{
        .name = "null",
        .letter = '0',
        .help = localized("names in the list of --files-from end in a zero byte, as find -print0 writes them"),
    };
    const Option by{
        .name = "by",
        .value = localized("BY"),
        .help = localized(
            "by name, by the date they were taken, or as they are (given), which can be reversed (default: name)"),
        .more = localized("The rules are those of --sort of \"stillora create\"."),
        .offer = Offer::Words,
        .words = {"name", "date", "given"},
    };
    const Option first{.name = "first", .help = localized("to the start of the list")};
    const Option last{.name = "last", .help = localized("to the end of the list")};
    const Option before{.name = "before", .value = localized("ITEM"), .help = localized("to the place before ITEM")};
    const Option after{.name = "after", .value = localized("ITEM"), .help = localized("to the place after ITEM")};
    const Option dryRun{
        .name = "dry-run",
        .help = localized("tell what the movie would be, and make none"),
        .more = localized(
            "The plan goes to standard output: length, height and why it has that, what is heard, about how large the "
            "file will be and how long it will take, and the photos in their order. For that some of the photos are "
            "made into frames and coded as the movie's would be, and a few seconds of each sound are converted, which "
            "takes about two seconds; the time is that of this computer, as busy as it is now. Photos and sounds are "
            "looked into as ever; no service is started, no movie and no folder for it made, and the exit status for a "
            "wrong command line or for bad photos is the same."),
    };
    const Option contactSheet{
        .name = "contact-sheet",
        .value = localized("OUT.png"),
        .help = localized("with --dry-run: draw all frames as they will be, numbered, as one picture"),
        .more = localized("Up to 10000 frames in up to 40 columns. An existing OUT.png is replaced."),
        .offer = Offer::PNGPictures,
    };
    const Option reverse{.name = "reverse", .help = localized("show photos the other way round, the last one first")};
    const Option recursive{
        .name = "recursive",
        .help = localized("take photos of folders inside folders too"),
        .more =
            localized("They follow the folder's own, folder by folder in natural order of their names. Hidden folders, "
                      "documents and links to folders are passed over all the same."),
    };
    const Option recursiveItems{
        .name = "recursive",
        .help = localized("take photos and sounds of folders inside folders too"),
    };
    const Option codec{
        .name = "codec",
        .value = localized("NAME"),
        .help = localized(
            "how pictures are stored: avc1 (H.264, default), hvc1 (HEVC), jpeg, or ProRes: apcn, ap4h, apch, apcs, "
            "apco, ap4x; browsers play only avc1"),
        .more = localized(
            "The names h264, hevc, mjpeg and prores are understood, too. Of ProRes apcn is 422, apch 422 HQ, apcs "
            "422 LT, apco 422 Proxy, ap4h 4444 and ap4x 4444 XQ."),
        .offer = Offer::Words,
        .words = codecWords(),
    };
    const Option soundtrack{
        .name = "soundtrack",
        .value = localized("FILE[@START-END]"),
        .help = localized(
            "play FILE, or the part of it from START to END (seconds, m:ss or h:mm:ss; either may be left out); "
            "may be repeated"),
        .more = localized(
            "The sounds are heard one after the other. What outlasts the pictures is faded out over their last "
            "five seconds and cut; no further sound is then begun in these, and is named as left out. A file whose "
            "name itself ends like a part "
            "is given with @- after it. Sounds may be MP3, M4A (AAC or ALAC), AIFF, AIFC, CAF, WAV, FLAC, Ogg and "
            "Opus files. A line on standard error tells what will be heard before the work starts."),
        .offer = Offer::Sounds,
        .isRepeatable = true,
    };
    const Option loop{.name = "loop", .help = localized("repeat the music until the pictures end")};
    const Option fitMusic{
        .name = "fit-music",
        .help = localized("choose the seconds so that pictures and music end together"),
    };
    const Option noSilence{
        .name = "no-silence",
        .help = localized(
            "do not fill with silence where the music ends early, or where there is none; some players then drop "
            "the last photo"),
    };
    const Option reduceBorders{
        .name = "reduce-borders",
        .help = localized(
            "let photos fill the frame, cropped around faces, instead of showing them whole with black borders"),
        .more = localized(
            "Faces are found by the package stillora-faces; without it a line on standard error says so, and photos "
            "are cropped around their middle."),
    };
    const Option watermark{
        .name = "watermark",
        .help = localized("write the watermark, where the settings or the build leave it out"),
    };
    const Option noWatermark{
        .name = "no-watermark",
        .help = localized("leave out the watermark"),
        .more = localized(
            "It is written on the first and the last photo, and with ten photos or more on up to nine in the middle."),
    };
    const Option web{
        .name = "web",
        .help = localized(
            "show photos in their time in every browser, for a web page; without it Chromium may show them early"),
        .more = localized(
            "Each photo is then told of at least twice a second, by the same bytes of the file: nothing is encoded "
            "anew, and the file grows by eight bytes each time."),
    };
    const Option fresh{
        .name = "fresh",
        .help = localized("make every frame anew; without it, frames that a movie made lately has are copied from it"),
        .more = localized("A frame is copied only if it would come out the same, and the movie is still there as it "
                          "was made. A photo "
                          "that has changed is found by its size, its time and its bytes. Which frames the last movies "
                          "have is kept in "
                          "$XDG_CACHE_HOME/stillora/frames."),
    };
    const Option title{
        .name = "title",
        .value = localized("NAME"),
        .help = localized(
            "name of the movie (default: the folder that all photos lie in, else \"Slideshow\"); an existing movie "
            "is never replaced, the new one becomes NAME-2.mov"),
        .more = localized("At most 200 bytes, no slash, no dot at the start; the extension is always .mov."),
    };
    const Option documentTitle{
        .name = "title", .value = localized("NAME"), .help = localized("name of the movie (default: the document's)")};
    const Option save{
        .name = "save",
        .value = localized("FOLDER"),
        .help = localized("put the movie there; made if it is missing (default: the chosen save folder, else Stillora "
                          "in the desktop's folder for videos, or ~/Movies/Stillora)"),
        .more = localized("A folder that was made is removed again if no movie is made."),
        .offer = Offer::Folders,
    };
    const Option movie{
        .name = "output",
        .letter = 'o',
        .value = localized("FILE"),
        .help = localized(
            "the movie's path, instead of --title and --save; an existing movie is never replaced, the new one "
            "becomes FILE-2.mov"),
        .offer = Offer::Files,
    };
    const Option skipBad{
        .name = "skip-bad",
        .help = localized(
            "leave out photos that cannot be shown, or only in part because the end of their file is missing"),
        .more = localized(
            "Folders and files that cannot be read are left out, too. Without it, photos that can be shown in part "
            "are shown and named; where others cannot be used at all, who sits at a terminal is asked."),
    };
    const Option skipBadItems{
        .name = "skip-bad",
        .help = localized("leave out photos and sounds that cannot be used, and photos whose end is missing")};
    const Option events{
        .name = "json",
        .help = localized("write each progress update, and last the result, as a line of JSON to standard output"),
    };
    const Option json{.name = "json", .help = localized("write the result as one line of JSON to standard output")};
    const Option jsonOfFiles{.name = "json", .help = localized("write a line of JSON for each file")};
    const Option progress{
        .name = "progress",
        .value = localized("HOW"),
        .help = localized(
            "tell how far the work is by a bar, by lines that stay, or not at all: bar (default), lines or none"),
        .more = localized(
            "With lines each stage has a line, and so has every ten per cent of it or every ten seconds, without any "
            "movement of the cursor: for screen readers and logs. A bar is drawn on a terminal alone; one that cannot "
            "draw over a line (TERM is dumb) gets lines instead. --quiet and --json leave out both."),
        .offer = Offer::Words,
        .words = {"bar", "lines", "none"},
    };
    const Option check{
        .name = "check",
        .help = localized("look at every line, name all that is wrong with any, and make nothing"),
    };
    const Option jobs{
        .name = "jobs",
        .letter = 'j',
        .value = localized("N"),
        .help =
            localized("make N movies at a time (default: one more as long as processors are idle and memory is free)"),
    };
    const Option keepGoing{
        .name = "keep-going",
        .letter = 'k',
        .help = localized("make the other movies even where lines are wrong; one that fails never stops the others"),
    };
    const Option stopAtFailure{
        .name = "stop",
        .help = localized("begin no more movies after the first that fails; those that were begun are finished"),
    };
    const Option compareContents{
        .name = "hash",
        .help = localized("tell by their contents whether files have changed, not by size and time"),
        .more = localized("Contents are kept in the receipts and looked at where an earlier run has kept them."),
    };
    const Option makeAgain{
        .name = "again",
        .help = localized("make movies again that were moved away or changed by somebody; no file is replaced"),
    };
    const Option lineIndex{
        .name = "index",
        .value = localized("I"),
        .help = localized("make the movie of line I alone, or with --tasks those of the I-th task"),
        .more = localized(
            "Without it, SLURM_ARRAY_TASK_ID, PBS_ARRAY_INDEX, PBS_ARRAYID, LSB_JOBINDEX or SGE_TASK_ID is taken, by "
            "which a scheduler tells a task of an array which one it is."),
    };
    const Option tasks{
        .name = "tasks",
        .value = localized("N"),
        .help = localized("share the lines out over N tasks, with --index or --slurm"),
    };
    const Option status{
        .name = "status",
        .help = localized("tell how far the batch is, from its state folder alone"),
    };
    const Option slurm{
        .name = "slurm",
        .help = localized("have Slurm make the movies: submit an array of jobs, and one that sums up"),
        .more = localized("What follows -- is given to sbatch, for both."),
    };
    const Option wait{.name = "wait",
                      .help = localized("with --slurm: wait until all is done, and tell how far it is")};
    const Option sumUp{
        .name = "sum-up",
        .help = localized("write the counts into the state folder, as the last job of --slurm does"),
    };
    const Option lease{
        .name = "lease",
        .value = localized("S"),
        .help =
            localized("take over from a worker of another computer that has been silent for S seconds (default 120)"),
    };
    const Option quiet{.name = "quiet", .help = localized("write nothing but errors to standard error")};
    const Option png{
        .name = "output",
        .letter = 'o',
        .value = localized("OUT.png"),
        .help = localized("the picture to be made"),
        .offer = Offer::PNGPictures,
    };
    const Option m4a{
        .name = "output",
        .letter = 'o',
        .value = localized("OUT.m4a"),
        .help = localized("the file to be made"),
        .offer = Offer::M4AFiles,
    };
    const Option convertedFile{
        .name = "output",
        .letter = 'o',
        .value = localized("OUT"),
        .help =
            localized("the file to be made, if OUT ends in .m4a; else the folder that it is put into, made if it is "
                      "missing"),
        .offer = Offer::M4AFiles,
    };
    const Option frameQuality{
        .name = "quality",
        .value = localized("Q"),
        .help = localized("height of the frame: {}; auto, the largest that suits the photo in a movie (default); or "
                          "smallest, the largest that it covers",
                          fmt::join(heightWords(), ", ")),
        .offer = Offer::Words,
        .words = qualityWords(),
    };
    const Option frameBorders{
        .name = "reduce-borders",
        .help = localized(
            "let the photo fill the frame, cropped around faces, instead of showing it whole with black borders"),
    };
    const Option showFaces{
        .name = "show-faces",
        .help =
            localized("draw a box around each face that is found (yellow), and around all of them together (green)"),
        .more = localized("Faces are then also looked for where they cannot change the place."),
    };
    const Option cover{
        .name = "cover",
        .value = localized("OUT"),
        .help = localized(
            "save the cover of the file, which is then the only one, as OUT: byte for byte as it is embedded, or "
            "as a PNG picture where OUT ends in .png; an existing OUT is replaced"),
        .offer = Offer::Covers,
    };
    const Option size{
        .name = "size",
        .value = localized("WxH"),
        .help = localized("its width and height in pixels, up to {} (default 1000x200)", WaveformStyle::kMostPixels),
    };
    const Option range{
        .name = "range",
        .value = localized("START-END"),
        .help = localized("only this part of the sound, in seconds or m:ss; one of the two may be left out"),
    };
    const Option onWhite{.name = "on-white", .help = localized("on white instead of a clear ground")};
};

const Options& options()
{
    // Never torn down: threads may still run when the program ends.
    static const auto* const all = new Options;
    return *all;
}

ExitStatuses movieStatuses()
{
    return {{"0", localized("the movie was made")},
            {"1", localized("no movie was made: the job failed")},
            {"2", localized("the command line is wrong")},
            {"3", localized("photos, sounds or their list cannot be used; nothing was started")},
            {"4", localized("the rendering service could not be started")},
            {"5", localized("the movie was made, but is not what was asked for")},
            {"129, 130, 143", localized("stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind")}};
}

ExitStatuses soundStatuses()
{
    return {{"0", localized("the file was made")},
            {"1", localized("it could not be made")},
            {"2", localized("the command line is wrong")},
            {"3", localized("the sound cannot be used")},
            {"130", localized("stopped by Ctrl-C; nothing is left behind")}};
}

CommandText create(const Options& o)
{
    return {
        .name = "create",
        .summary = localized("make a movie of photos"),
        .about = {localized(
                      "Makes a movie that shows each photo for the same time. A folder stands for the photos in it, in "
                      "natural order of their names (img2 before img10); folders in it are passed over unless "
                      "--recursive is given, hidden files and other files always. Photos may be JPEG, PNG, WebP, HEIC, "
                      "AVIF, TIFF, GIF, BMP and JPEG 2000. A sound, or FILE@START-END for a part of it, is played "
                      "before those of --soundtrack. A document is rendered."),
                  localized(
                      "The movie's path is the only line on standard output. Ctrl-C stops the work and leaves nothing "
                      "behind; a second one does not wait for the service's answer.")},
        .exitStatuses = movieStatuses(),
        .forms = {{.operands = localized("PHOTO|SOUND|FOLDER...|DOCUMENT"),
                   .offer = Offer::PhotosAndSounds,
                   .options = {&o.seconds,   &o.quality, &o.codec,   &o.soundtrack, &o.loop,          &o.fitMusic,
                               &o.noSilence, &o.sort,    &o.reverse, &o.recursive,  &o.reduceBorders, &o.noWatermark,
                               &o.watermark, &o.web,     &o.title,   &o.save,       &o.movie,         &o.skipBad,
                               &o.filesFrom, &o.null,    &o.fresh,   &o.dryRun,     &o.contactSheet,  &o.events,
                               &o.progress,  &o.quiet}}},
    };
}

CommandText document(const Options& o)
{
    return {
        .name = "document",
        .summary = localized("keep photos, sounds and settings in a document"),
        .about =
            {localized("A document is a folder NAME.stillora that holds a slideshow: copies of its photos and sounds, "
                       "their order, and how the movie is to be made. It can be moved and copied like any folder; the "
                       "originals are not needed any more."),
             localized(
                 "A folder stands for the photos and sounds in it, in natural order of their names. A sound may be "
                 "given as FILE@START-END to play a part of it; one that is not known by its name's extension is "
                 "given with --soundtrack. What new is told of the movie is kept in the document; what render is "
                 "told holds for one movie."),
             localized(
                 "An ITEM is a number that list shows (p3 for a photo, s1 for a sound), a range (p3-5), or the name of "
                 "a "
                 "file in the document. The keys of set are seconds, quality, codec, title, loop, fit-music, silence, "
                 "reduce-borders and watermark; the last five are on or off. A sound takes START-END. Without a value "
                 "they are as in a new document.")},
        .exitStatuses = {{"0", localized("done")},
                         {"1", localized("it could not be done: a file or the movie could not be made")},
                         {"2", localized("the command line is wrong")},
                         {"3", localized("the document, or photos or sounds of it or for it, cannot be used")},
                         {"4", localized("the rendering service could not be started")},
                         {"5", localized("the movie was made, but is not what was asked for")},
                         {"129, 130, 143",
                          localized("stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind")}},
        .forms = {{.verb = "new",
                   .summary = localized("makes a document; nothing of that name may be there"),
                   .operands = localized("NAME [PHOTO|SOUND|FOLDER]..."),
                   .offer = Offer::PhotosAndSounds,
                   .startsWithDocument = true,
                   .options = {&o.seconds,       &o.quality,     &o.codec,     &o.soundtrack,    &o.loop,
                               &o.fitMusic,      &o.noSilence,   &o.sort,      &o.reverse,       &o.recursiveItems,
                               &o.reduceBorders, &o.noWatermark, &o.watermark, &o.documentTitle, &o.skipBadItems,
                               &o.filesFrom,     &o.null,        &o.events,    &o.progress,      &o.quiet}},
                  {.verb = "add",
                   .summary = localized("adds photos and sounds at the end"),
                   .operands = localized("DOCUMENT PHOTO|SOUND|FOLDER..."),
                   .offer = Offer::PhotosAndSounds,
                   .startsWithDocument = true,
                   .options = {&o.soundtrack, &o.sort, &o.reverse, &o.recursiveItems, &o.skipBadItems, &o.filesFrom,
                               &o.null, &o.events, &o.progress, &o.quiet}},
                  {.verb = "remove",
                   .summary = localized("takes photos and sounds out"),
                   .operands = localized("DOCUMENT ITEM..."),
                   .startsWithDocument = true,
                   .options = {&o.json, &o.quiet}},
                  {.verb = "move",
                   .summary = localized("gives photos, or sounds, another place in the order"),
                   .operands = localized("DOCUMENT ITEM... --before ITEM"),
                   .startsWithDocument = true,
                   .options = {&o.before, &o.after, &o.first, &o.last, &o.json, &o.quiet}},
                  {.verb = "sort",
                   .summary = localized("puts the photos in order"),
                   .operands = localized("DOCUMENT"),
                   .startsWithDocument = true,
                   .options = {&o.by, &o.reverse, &o.events, &o.quiet}},
                  {.verb = "set",
                   .summary = localized("changes a setting, or the part of a sound that is played"),
                   .operands = localized("DOCUMENT KEY|SOUND [VALUE]"),
                   .startsWithDocument = true,
                   .options = {&o.json, &o.quiet}},
                  {.verb = "list",
                   .summary = localized("shows what is in a document"),
                   .operands = localized("DOCUMENT"),
                   .startsWithDocument = true,
                   .options = {&o.json, &o.quiet}},
                  {.verb = "check",
                   .summary = localized("looks whether every photo and sound of a document can be used"),
                   .operands = localized("DOCUMENT"),
                   .startsWithDocument = true,
                   .options = {&o.json, &o.quiet}},
                  {.verb = "render",
                   .summary = localized("makes the movie, the same as 'stillora create' would"),
                   .operands = localized("DOCUMENT"),
                   .startsWithDocument = true,
                   .options = {&o.seconds, &o.quality, &o.codec, &o.noWatermark, &o.watermark, &o.web, &o.documentTitle,
                               &o.save, &o.movie, &o.skipBadItems, &o.fresh, &o.dryRun, &o.contactSheet, &o.events,
                               &o.progress, &o.quiet}}},
    };
}

CommandText batch(const Options& o)
{
    return {
        .name = "batch",
        .summary = localized("make all movies of a list"),
        .about = {localized("A manifest is a text file, each line of which is a JSON object that stands for one movie: "
                            "its photos, or a document, and what else \"create\" takes. docs/batch.md describes every "
                            "field. Relative paths are relative to the manifest's folder."),
                  localized(
                      "Each movie is made once, whatever is stopped or killed: beside the manifest, in the folder "
                      "MANIFEST.state, stands a receipt of each. Run again, only what is missing, has failed or has "
                      "changed is made; a movie that was moved away or changed by somebody is told.")},
        .exitStatuses = {{"0", localized("all was done")},
                         {"1", localized("some of the movies could not be made")},
                         {"2", localized("the command line is wrong")},
                         {"3", localized("the manifest, or lines of it, cannot be used; nothing was started")},
                         {"129, 130, 143",
                          localized("stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind")}},
        .forms = {{.operands = localized("MANIFEST [-- SBATCH OPTION...]"),
                   .offer = Offer::Files,
                   .options = {&o.check, &o.jobs, &o.keepGoing, &o.stopAtFailure, &o.compareContents, &o.makeAgain,
                               &o.lineIndex, &o.tasks, &o.status, &o.slurm, &o.wait, &o.sumUp, &o.lease, &o.events,
                               &o.progress, &o.quiet}}},
    };
}

CommandText frame(const Options& o)
{
    return {
        .name = "frame",
        .summary = localized("save one frame of a movie as a picture"),
        .about = {localized(
            "Shows what becomes of a photo in a movie: saves one finished frame as a picture. An existing "
            "OUT.png is replaced; its path is the only line on standard output.")},
        .exitStatuses = {{"0", localized("the picture was made")},
                         {"1", localized("it could not be made or saved")},
                         {"2", localized("the command line is wrong")},
                         {"3", localized("the photo cannot be used")}},
        .forms = {{.operands = localized("PHOTO -o OUT.png"),
                   .offer = Offer::Photos,
                   .options = {&o.png, &o.frameQuality, &o.frameBorders, &o.noWatermark, &o.watermark, &o.showFaces}}},
    };
}

CommandText info(const Options& o)
{
    return {
        .name = "info",
        .summary = localized("tell what is known of photos, sounds and movies"),
        .about = {localized(
            "Tells what is known of photos, sounds and movies: of a photo its size in pixels, its average "
            "colour and, where EXIF tells, when, with which camera and where it was taken; of a sound its "
            "title, artist, album, length, sample rate and cover; of a movie what it has of both. A title "
            "that no tag tells is the name of the file.")},
        .exitStatuses = {{"0", localized("all was told")},
                         {"1", localized("the cover could not be saved")},
                         {"2", localized("the command line is wrong")},
                         {"3", localized("files cannot be used, or there is no cover; the others were told")}},
        .forms = {{.operands = localized("FILE..."),
                   .offer = Offer::Media,
                   .options = {&o.jsonOfFiles, &o.cover, &o.filesFrom, &o.null}}},
    };
}

CommandText waveform(const Options& o)
{
    return {
        .name = "waveform",
        .summary = localized("draw how loud a sound is over time"),
        .about = {localized(
            "Draws how loud a sound is over time: a black line for each column of pixels, on a clear ground, "
            "the loudest as high as the picture. Where several columns are equally loud only the first is "
            "drawn. An existing OUT.png is replaced; its path is the only line on standard output.")},
        .exitStatuses = {{"0", localized("the picture was made")},
                         {"1", localized("it could not be made or saved")},
                         {"2", localized("the command line is wrong")},
                         {"3", localized("the sound cannot be used")},
                         {"130", localized("stopped by Ctrl-C")}},
        .forms = {{.operands = localized("SOUND -o OUT.png"),
                   .offer = Offer::Sounds,
                   .options = {&o.png, &o.size, &o.range, &o.onWhite, &o.json, &o.quiet}}},
    };
}

CommandText convert(const Options& o)
{
    return {
        .name = "convert",
        .summary = localized("save a sound, or a part of it, as AAC"),
        .about = {localized("Saves a sound as AAC in an M4A file, as movies carry it. In a folder it has the sound's "
                            "name, with \"-2\", "
                            "\"-3\" and so on where that is taken; a file that is named and exists already is an "
                            "error. Nothing is ever "
                            "replaced. The file's path is the only line on standard output.")},
        .exitStatuses = soundStatuses(),
        .forms = {{.operands = localized("SOUND -o OUT.m4a|FOLDER"),
                   .offer = Offer::Sounds,
                   .options = {&o.convertedFile, &o.range, &o.json, &o.quiet}}},
    };
}

CommandText trim(const Options& o)
{
    return {
        .name = "trim",
        .summary = localized("cut a part out of a sound without encoding it anew"),
        .about = {localized(
            "Cuts a part out of a sound without encoding it anew, exact to the sample. The sound must be AAC "
            "or ALAC; \"stillora convert\" takes every other. An existing file is never replaced. The path of "
            "OUT.m4a is the only line on standard output.")},
        .exitStatuses = soundStatuses(),
        .forms = {{.operands = localized("SOUND --range START-END -o OUT.m4a"),
                   .offer = Offer::Sounds,
                   .options = {&o.m4a, &o.range, &o.json, &o.quiet}}},
    };
}

CommandText set()
{
    const auto form = [](const char* key, const std::string& summary, const std::string& value, Offer offer) {
        return CommandForm{.verb = key, .summary = summary, .operands = value, .offer = offer};
    };
    return {
        .name = "set",
        .summary = localized("choose something for all movies"),
        .about = {localized(
            "Keeps what \"create\" and \"document new\" take where their options say nothing; without a value "
            "it is forgotten. The folder counts for \"document render\", too, and for other programs that "
            "have movies made; so does the watermark, which counts for \"frame\" as well.")},
        .exitStatuses = {{"0", localized("it is kept, or forgotten")},
                         {"1", localized("the settings could not be written")},
                         {"2", localized("the command line is wrong: there is no such setting, or value")}},
        .forms = {form("save", localized("the folder that movies are put into, which is there"), localized("[FOLDER]"),
                       Offer::Folders),
                  form("quality", localized("the height of movies, as of --quality"), localized("[Q]"), Offer::Nothing),
                  form("seconds", localized("how long each photo is shown, as of --seconds"), localized("[S]"),
                       Offer::Nothing),
                  form("codec", localized("how pictures are stored, as of --codec"), localized("[NAME]"),
                       Offer::Nothing),
                  form("watermark", localized("whether photos carry the watermark"), localized("[on|off]"),
                       Offer::Nothing),
                  form("language", localized("the language of texts and of the names of movies"), "[de|en|fr]",
                       Offer::Nothing)},
    };
}

CommandText settings(const Options& o)
{
    return {
        .name = "settings",
        .summary = localized("list what was chosen for all movies"),
        .about = {localized("Lists what \"stillora set\" has kept. In JSON each is null where nothing was chosen.")},
        .exitStatuses = {{"0", localized("all was told")}, {"2", localized("the command line is wrong")}},
        .forms = {{.options = {&o.json}}},
    };
}

CommandText doctor(const Options& o)
{
    return {
        .name = "doctor",
        .summary = localized("look whether everything is there that movies need"),
        .about = {localized("Looks whether everything is there that movies need: the rendering service and the program "
                            "that reads files, which are started and greeted, whether the kernel can keep the latter "
                            "from all else, encoders and decoders, which are tried out with a small picture of each "
                            "format, the watermark's font, the face detector, folders and rights, disk space, and "
                            "what the desktop and systemd bring. Each line says ok; missing, with the Debian package "
                            "that brings it; or broken, with the reason. Nothing is left behind.")},
        .exitStatuses = {{"0", localized("all is there that every movie needs")},
                         {"1", localized("something of it is missing or broken")},
                         {"2", localized("the command line is wrong")}},
        .forms = {{.options = {&o.json}}},
    };
}

CommandText apps(const Options& o)
{
    return {
        .name = "apps",
        .summary = localized("list the applications that can open a file"),
        .about = {localized(
            "Lists the applications that can open a file, by the desktop's database: for each its name and "
            "its desktop entry, which \"gio launch ENTRY FILE\" starts. They are sorted by the entry's name. "
            "In JSON they are file, and applications, each with name, id and path.")},
        .exitStatuses = {{"0", localized("there is an application")},
                         {"1", localized("there is none")},
                         {"2", localized("the command line is wrong")},
                         {"3", localized("there is no such file")}},
        .forms = {{.operands = localized("FILE"), .offer = Offer::Files, .options = {&o.json}}},
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

const std::vector<std::pair<std::string, ProgressStyle>>& progressWords()
{
    static const auto* const words = new std::vector<std::pair<std::string, ProgressStyle>>{
        {"bar", ProgressStyle::Bar}, {"lines", ProgressStyle::Lines}, {"none", ProgressStyle::None}};
    return *words;
}

const Option& helpOption()
{
    static const auto* const help = new Option{.name = "help", .letter = 'h', .help = localized("show this help")};
    return *help;
}

const std::vector<CommandText>& commandTexts()
{
    const Options& o = options();
    static const auto* const all =
        new std::vector<CommandText>{create(o),  document(o), batch(o), frame(o),    info(o),   waveform(o),
                                     convert(o), trim(o),     set(),    settings(o), doctor(o), apps(o)};
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
