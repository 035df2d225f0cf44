#pragma once

#include <string>
#include <vector>

namespace stillora {

/// `stillora doctor`: looks whether everything is there that movies need, and says what is not.
/// @return the program's exit status
int runDoctorCommand(const std::vector<std::string>& arguments);

} // namespace stillora
