#include "client/command/DocumentOptions.h"

#include "client/Document.h"
#include "client/MovieTitle.h"
#include "client/Text.h"
#include "client/command/ExitStatus.h"
#include "platform/foundation/NSURL.h"

#include <algorithm>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace {

constexpr const char* kDocumentHelp =
    R"(Usage: stillora document new NAME [PHOTO|SOUND|FOLDER]... [OPTION]...
       stillora document add DOCUMENT PHOTO|SOUND|FOLDER... [OPTION]...
       stillora document list DOCUMENT [--json]
       stillora document check DOCUMENT [--json] [--quiet]
       stillora document render DOCUMENT [OPTION]...

A document is a folder NAME.stillora that holds a slideshow: copies of its
photos and sounds, their order, and how the movie is to be made. It can be moved
and copied like any folder; the originals are not needed any more.

  new      makes a document; nothing of that name may be there
  add      adds photos and sounds at the end
  list     shows what is in a document
  check    looks whether every photo and sound of a document can be used
  render   makes the movie, the same as 'stillora create' would

A folder stands for the photos and sounds in it, in natural order of their
names. A sound may be given as FILE@START-END to play a part of it.

Options of new:
  --seconds, --quality, --codec, --soundtrack, --loop, --fit-music,
  --no-silence, --reduce-borders, --title
                     as for 'stillora create'; kept in the document
Options of new and add:
  --soundtrack FILE[@START-END]
                     a sound that is not known by its name's extension
  --skip-bad         leave out photos and sounds that cannot be used
Options of render:
  --save FOLDER      put the movie there (default: the chosen save folder, else
                     ~/Movies/Stillora)
  --title NAME       name of the movie (default: the document's)
  --seconds S, --quality Q, --codec NAME
                     for this movie, instead of what the document says
  --skip-bad         leave out photos and sounds that cannot be used
Options of all:
  --json             write the result as a line of JSON to standard output
  --quiet            write nothing but errors to standard error
  -h, --help         show this help

Exit status:
  0    done
  1    it could not be done: a file or the movie could not be made
  2    the command line is wrong
  3    the document, or photos or sounds of it or for it, cannot be used
  4    the rendering service could not be started
  5    the movie was made, but is not what was asked for
  129, 130, 143
       stopped by SIGHUP, SIGINT (Ctrl-C) or SIGTERM; nothing was left behind
)";

constexpr std::string_view kDotExtension = ".stillora";

CommandLineAnswer wrong(const std::string& fault)
{
    return usageError(fault, "document");
}

std::optional<CommandLineAnswer> readDocumentArguments(CLI::App& app, const std::vector<std::string>& arguments)
{
    return readArguments(app, arguments, "document", documentHelp);
}

void addCommonOptions(CLI::App& app, CreateOptions& options)
{
    app.add_flag("--skip-bad", options.skipsBad);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
}

/// Gives the name its extension. Returns what is wrong, or nothing.
std::string completeName(std::string& name)
{
    while (name.size() > 1 && name.ends_with('/'))
        name.pop_back();
    if (name.ends_with(kDotExtension))
        name.resize(name.size() - kDotExtension.size());
    const std::string last = name.substr(name.rfind('/') + 1);
    if (const auto fault = faultOfTitle(last))
        return fmt::format("the name \"{}\" {}", prefixOfBytes(printable(last), 60), *fault);
    name += kDotExtension;
    return {};
}

Parsed<DocumentLookOptions> parseLook(const std::vector<std::string>& arguments)
{
    DocumentLookOptions options;
    CLI::App app;
    app.add_option("document", options.document);
    app.add_flag("--json", options.isJSON);
    app.add_flag("--quiet", options.isQuiet);
    if (auto answer = readDocumentArguments(app, arguments))
        return *std::move(answer);
    if (options.document.empty())
        return wrong("no document was given");
    return options;
}

} // namespace

Parsed<DocumentFillOptions> parseDocumentNew(const std::vector<std::string>& arguments)
{
    DocumentFillOptions options;
    CLI::App app;
    app.add_option("name", options.document);
    app.add_option("files", options.files);
    MovieOptionReader reader;
    reader.addPictures(app);
    reader.addSoundtracks(app);
    reader.addFitting(app);
    addCommonOptions(app, options.movie);
    if (auto answer = readDocumentArguments(app, arguments))
        return *std::move(answer);
    std::string fault = reader.read(options.movie);
    if (fault.empty() && options.document.empty())
        fault = "the document needs a name";
    if (fault.empty())
        fault = completeName(options.document);
    if (!fault.empty())
        return wrong(fault);
    return options;
}

Parsed<DocumentFillOptions> parseDocumentAdd(const std::vector<std::string>& arguments)
{
    DocumentFillOptions options;
    CLI::App app;
    app.add_option("document", options.document);
    app.add_option("files", options.files);
    MovieOptionReader reader;
    reader.addSoundtracks(app);
    addCommonOptions(app, options.movie);
    if (auto answer = readDocumentArguments(app, arguments))
        return *std::move(answer);
    std::string fault = reader.read(options.movie);
    if (fault.empty() && options.document.empty())
        fault = "no document was given";
    if (fault.empty() && options.files.empty() && options.movie.sounds.empty())
        fault = "no photos or sounds were given";
    if (!fault.empty())
        return wrong(fault);
    return options;
}

Parsed<DocumentLookOptions> parseDocumentList(const std::vector<std::string>& arguments)
{
    return parseLook(arguments);
}

Parsed<DocumentLookOptions> parseDocumentCheck(const std::vector<std::string>& arguments)
{
    return parseLook(arguments);
}

Parsed<DocumentRenderOptions> parseDocumentRender(const std::vector<std::string>& arguments)
{
    DocumentRenderOptions options;
    std::string saveFolder;
    CLI::App app;
    app.add_option("document", options.document);
    MovieOptionReader reader;
    reader.addPictures(app);
    CLI::Option* const saveOption = app.add_option("--save", saveFolder);
    addCommonOptions(app, options.movie);
    if (auto answer = readDocumentArguments(app, arguments))
        return *std::move(answer);
    std::string fault = reader.read(options.movie);
    if (saveOption->count() > 0) {
        if (saveFolder.empty() && fault.empty())
            fault = "--save takes the path of a folder";
        options.movie.saveFolder = saveFolder;
    }
    if (fault.empty() && options.document.empty())
        fault = "no document was given";
    if (!fault.empty())
        return wrong(fault);
    return options;
}

std::string documentHelp()
{
    return kDocumentHelp;
}
