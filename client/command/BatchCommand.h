#pragma once

#include "client/command/options/BatchOptions.h"

namespace stillora {

/// Makes all movies of a manifest, or tells what is wrong with it.
/// @return the program's exit status
int runBatchCommand(const BatchOptions& options);

} // namespace stillora
