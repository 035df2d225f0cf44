#pragma once

#include "client/command/options/Arguments.h"
#include "client/command/options/CreateOptions.h"

#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora document new` and `stillora document add`.
struct DocumentFillOptions {
    /// As given; of a new one with its extension.
    std::string document;
    /// Photos, sounds and folders with them, as given.
    std::vector<std::string> files;
    /// All but photos and the save folder.
    CreateOptions movie;
};

/// The command line of `stillora document list` and `stillora document check`.
struct DocumentLookOptions {
    std::string document;
    bool isJSON = false;
    bool isQuiet = false;
};

/// The command line of `stillora document render`.
struct DocumentRenderOptions {
    std::string document;
    /// What is given differs from the document's settings for this movie alone.
    CreateOptions movie;
};

/// @name Each reads the arguments that follow the command's second word. Touches no file.
/// @{
Parsed<DocumentFillOptions> parseDocumentNew(const std::vector<std::string>& arguments);
Parsed<DocumentFillOptions> parseDocumentAdd(const std::vector<std::string>& arguments);
Parsed<DocumentLookOptions> parseDocumentList(const std::vector<std::string>& arguments);
Parsed<DocumentRenderOptions> parseDocumentRender(const std::vector<std::string>& arguments);
Parsed<DocumentLookOptions> parseDocumentCheck(const std::vector<std::string>& arguments);
/// @}

} // namespace stillora
