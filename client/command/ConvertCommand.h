#pragma once

#include "client/command/ConvertOptions.h"

/// `stillora convert`: saves a sound as an M4A file.
/// @return the program's exit status
int runConvertCommand(const ConvertOptions& options);
