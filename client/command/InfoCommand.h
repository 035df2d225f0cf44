#pragma once

#include "client/command/InfoOptions.h"

/// `stillora info`: tells what is known of files on standard output, and which cannot be used on standard error.
/// @return the program's exit status
int runInfoCommand(const InfoOptions& options);
