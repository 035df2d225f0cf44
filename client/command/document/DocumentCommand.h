#pragma once

#include "client/command/document/DocumentOptions.h"

#include <string>
#include <vector>

namespace stillora {

/// `stillora document`: makes, fills, shows, checks and renders documents. The first argument says which.
/// @return the program's exit status
int runDocumentCommand(const std::vector<std::string>& arguments);

/// `stillora document render`, and `stillora create` of a document.
/// @return the program's exit status
int runDocumentRender(const DocumentRenderOptions& options);

} // namespace stillora
