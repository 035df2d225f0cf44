#include "client/command/document/DocumentEditOptions.h"

#include "client/command/document/DocumentSettings.h"
#include "client/command/document/ItemFinder.h"
#include "client/command/options/CreateOptions.h"
#include "client/command/options/Suggestion.h"
#include "client/text/LocalizedText.h"
#include "platform/files/NSURL.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace stillora {

namespace {

/// Reads a command line of which `more` tells what is wrong with the rest.
/// @param rest  of the operands, those after the document
template <typename Options, typename More>
Parsed<Options> parsed(std::string_view form, const std::vector<std::string>& arguments, More&& more)
{
    const auto read = CommandArguments::read(form, arguments);
    if (const auto* answer = std::get_if<CommandLineAnswer>(&read))
        return *answer;
    const auto& given = std::get<CommandArguments>(read);
    Options options;
    options.isJSON = given.has("json");
    options.isQuiet = given.has("quiet");
    const std::vector<std::string>& operands = given.operands();
    if (operands.empty() || operands.front().empty())
        return usageError(localized("no document was given"), "document");
    options.document = operands.front();
    const std::vector<std::string> rest(operands.begin() + 1, operands.end());
    if (const std::string fault = more(given, rest, options); !fault.empty())
        return usageError(fault, "document");
    return options;
}

std::string readItems(const std::vector<std::string>& rest, std::vector<std::string>& items)
{
    items = rest;
    return items.empty() ? localized("no photos or sounds were given") : "";
}

std::string readPlace(const CommandArguments& given, DocumentMoveOptions& options)
{
    using Place = DocumentMoveOptions::Place;
    constexpr std::array<std::pair<std::string_view, Place>, 4> kPlaces{
        {{"first", Place::First}, {"last", Place::Last}, {"before", Place::Before}, {"after", Place::After}}};
    size_t count = 0;
    for (const auto& [name, place] : kPlaces) {
        if (!given.has(name))
            continue;
        ++count;
        options.place = place;
        options.neighbour = *given.value(name);
    }
    return count == 1 ? "" : localized("move needs one of --before, --after, --first and --last");
}

std::string faultOfKey(const std::string& key)
{
    const std::vector<std::string>& names = DocumentSettings::names();
    if (std::ranges::count(names, key) > 0 || readsAsSoundNumber(key) || isSoundExtension(platform::pathExtension(key)))
        return {};
    return withSuggestion(
        localized("there is no setting {}: they are {}, and s1 and so on for the parts of sounds that are played", key,
                  fmt::join(names, ", ")),
        key, names);
}

std::string faultOfValue(const DocumentSetOptions& options)
{
    if (!options.value)
        return {};
    if (std::ranges::count(DocumentSettings::names(), options.key) == 0) {
        SoundArgument sound;
        return readRange(*options.value, sound, options.key);
    }
    MovieSettings tried;
    return DocumentSettings::read(options.key, *options.value, tried);
}

} // namespace

Parsed<DocumentRemoveOptions> parseDocumentRemove(const std::vector<std::string>& arguments)
{
    return parsed<DocumentRemoveOptions>("document remove", arguments,
                                         [](const CommandArguments&, const std::vector<std::string>& rest,
                                            DocumentRemoveOptions& options) { return readItems(rest, options.items); });
}

Parsed<DocumentMoveOptions> parseDocumentMove(const std::vector<std::string>& arguments)
{
    return parsed<DocumentMoveOptions>(
        "document move", arguments,
        [](const CommandArguments& given, const std::vector<std::string>& rest, DocumentMoveOptions& options) {
            const std::string fault = readItems(rest, options.items);
            return fault.empty() ? readPlace(given, options) : fault;
        });
}

Parsed<DocumentSetOptions> parseDocumentSet(const std::vector<std::string>& arguments)
{
    return parsed<DocumentSetOptions>(
        "document set", arguments,
        [](const CommandArguments&, const std::vector<std::string>& rest, DocumentSetOptions& options) {
            if (rest.empty())
                return localized("no setting was given: they are {}", fmt::join(DocumentSettings::names(), ", "));
            if (rest.size() > 2)
                return localized("one value is taken, and {} is another argument", rest[2]);
            options.key = rest.front();
            if (rest.size() == 2)
                options.value = rest.back();
            const std::string fault = faultOfKey(options.key);
            return fault.empty() ? faultOfValue(options) : fault;
        });
}

Parsed<DocumentSortOptions> parseDocumentSort(const std::vector<std::string>& arguments)
{
    return parsed<DocumentSortOptions>(
        "document sort", arguments,
        [](const CommandArguments& given, const std::vector<std::string>& rest, DocumentSortOptions& options) {
            if (!rest.empty())
                return localized("one document is taken, and {} is another argument", rest.front());
            CreateOptions read;
            const std::string fault = readMovieOption("sort", given.value("by").value_or("name"), read, "--by");
            options.order = {read.order.sort, given.has("reverse")};
            return fault;
        });
}

} // namespace stillora
