#pragma once

#include "client/command/TrimOptions.h"

/// `stillora trim`: cuts a part out of a sound without encoding it anew.
/// @return the program's exit status
int runTrimCommand(const TrimOptions& options);
