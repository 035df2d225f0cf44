#pragma once

#include <string>
#include <vector>

namespace stillora {

/// `stillora document`: makes, fills, shows, checks and renders documents. The first argument says which.
/// @return the program's exit status
int runDocumentCommand(const std::vector<std::string>& arguments);

} // namespace stillora
