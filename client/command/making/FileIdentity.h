#pragma once

#include <string>

namespace stillora {

/// Whether both paths lead to the same file, through whatever links; false where one leads to none.
bool areSameFile(const std::string& one, const std::string& other);

} // namespace stillora
