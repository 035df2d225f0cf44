#pragma once

#include "client/command/AppsOptions.h"

/// `stillora apps`: lists the applications that can open a file.
/// @return the program's exit status
int runAppsCommand(const AppsOptions& options);
