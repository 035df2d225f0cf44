#pragma once

#include <stillora/Photos.h>

#include "client/command/options/Arguments.h"

#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// What the commands that change a document have in common.
struct DocumentEditOptions {
    /// As given.
    std::string document;
    bool isJSON = false;
    bool isQuiet = false;
};

/// The command line of `stillora document remove`.
struct DocumentRemoveOptions : DocumentEditOptions {
    /// As `ItemFinder` finds them.
    std::vector<std::string> items;
};

/// The command line of `stillora document move`.
struct DocumentMoveOptions : DocumentEditOptions {
    enum class Place { First, Last, Before, After };

    std::vector<std::string> items;
    Place place = Place::First;
    /// The item before or after which they are to be.
    std::string neighbour;
};

/// The command line of `stillora document set`.
struct DocumentSetOptions : DocumentEditOptions {
    /// One of `DocumentSettings::names`, or a sound.
    std::string key;
    /// Nothing takes back what was set.
    std::optional<std::string> value;
};

/// The command line of `stillora document sort`.
struct DocumentSortOptions : DocumentEditOptions {
    PhotoOrder order;
};

/// @name Each reads the arguments that follow the command's second word. Touches no file.
/// @{
Parsed<DocumentRemoveOptions> parseDocumentRemove(const std::vector<std::string>& arguments);
Parsed<DocumentMoveOptions> parseDocumentMove(const std::vector<std::string>& arguments);
Parsed<DocumentSetOptions> parseDocumentSet(const std::vector<std::string>& arguments);
Parsed<DocumentSortOptions> parseDocumentSort(const std::vector<std::string>& arguments);
/// @}

} // namespace stillora
