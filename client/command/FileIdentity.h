#pragma once

#include <string>

/// Whether both paths lead to the same file, through whatever links; false where one leads to none.
bool areSameFile(const std::string& one, const std::string& other);
