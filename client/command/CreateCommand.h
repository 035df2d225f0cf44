#pragma once

#include "client/command/options/CreateOptions.h"

namespace stillora {

/// `stillora create`: checks the photos, makes the movie and tells about it on standard output and standard error.
/// @return the program's exit status
int runCreateCommand(const CreateOptions& options);

} // namespace stillora
