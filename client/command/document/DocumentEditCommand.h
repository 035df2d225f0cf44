#pragma once

#include "client/command/document/DocumentEditOptions.h"

namespace stillora {

/// @name Each changes a document and saves it, in one step or not at all, or says why it cannot.
/// @return the program's exit status
/// @{
int runDocumentRemove(const DocumentRemoveOptions& options);
int runDocumentMove(const DocumentMoveOptions& options);
int runDocumentSet(const DocumentSetOptions& options);
int runDocumentSort(const DocumentSortOptions& options);
/// @}

} // namespace stillora
