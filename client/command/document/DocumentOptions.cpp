#include "client/command/document/DocumentOptions.h"

#include <stillora/Document.h>
#include <stillora/Movie.h>

#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <string_view>

#include <fmt/format.h>

namespace stillora {

namespace {

constexpr std::string_view kDotExtension = ".stillora";

CommandLineAnswer wrong(const std::string& fault)
{
    return usageError(fault, "document");
}

/// The document and the files after it.
void readOperands(const CommandArguments& arguments, std::string& document, std::vector<std::string>& files)
{
    const std::vector<std::string>& operands = arguments.operands();
    if (operands.empty())
        return;
    document = operands.front();
    files.assign(operands.begin() + 1, operands.end());
}

std::string faultOfOnlyDocument(const std::string& document, const std::vector<std::string>& others)
{
    if (document.empty())
        return localized("no document was given");
    return others.empty() ? "" : localized("one document is taken, and {} is another argument", others.front());
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
        return localized("the name \"{}\" {}", prefixOfBytes(printable(last), 60), *fault);
    name += kDotExtension;
    return {};
}

Parsed<DocumentLookOptions> parseLook(std::string_view form, const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read(form, arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    DocumentLookOptions options;
    std::vector<std::string> others;
    readOperands(given, options.document, others);
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    if (const std::string fault = faultOfOnlyDocument(options.document, others); !fault.empty())
        return wrong(fault);
    return options;
}

/// Reads what fills a document.
/// @param faultOf  what is wrong with what was read; may change it
Parsed<DocumentFillOptions> parseFill(std::string_view form, const std::vector<std::string>& arguments,
                                      std::string (*faultOf)(DocumentFillOptions& options))
{
    const auto read = CommandArguments::read(form, arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    DocumentFillOptions options;
    readOperands(given, options.document, options.files);
    std::string fault = readMovieOptions(given, options.movie);
    if (fault.empty())
        fault = faultOf(options);
    if (!fault.empty())
        return wrong(fault);
    return options;
}

} // namespace

Parsed<DocumentFillOptions> parseDocumentNew(const std::vector<std::string>& arguments)
{
    return parseFill("document new", arguments, [](DocumentFillOptions& options) -> std::string {
        return options.document.empty() ? localized("the document needs a name") : completeName(options.document);
    });
}

Parsed<DocumentFillOptions> parseDocumentAdd(const std::vector<std::string>& arguments)
{
    return parseFill("document add", arguments, [](DocumentFillOptions& options) -> std::string {
        if (options.document.empty())
            return localized("no document was given");
        return options.files.empty() && options.movie.sounds.empty() && !options.movie.list
                   ? localized("no photos or sounds were given")
                   : "";
    });
}

Parsed<DocumentLookOptions> parseDocumentList(const std::vector<std::string>& arguments)
{
    return parseLook("document list", arguments);
}

Parsed<DocumentLookOptions> parseDocumentCheck(const std::vector<std::string>& arguments)
{
    return parseLook("document check", arguments);
}

Parsed<DocumentRenderOptions> parseDocumentRender(const std::vector<std::string>& arguments)
{
    const auto read = CommandArguments::read("document render", arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    DocumentRenderOptions options;
    std::vector<std::string> others;
    readOperands(given, options.document, others);
    std::string fault = readMovieOptions(given, options.movie);
    if (fault.empty())
        fault = faultOfOnlyDocument(options.document, others);
    if (!fault.empty())
        return wrong(fault);
    return options;
}

} // namespace stillora
