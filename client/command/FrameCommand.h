#pragma once

#include "client/command/FrameOptions.h"

/// `stillora frame`: shows a photo as the frame of a movie, drawn by the code that draws movies, and saves it as a PNG
/// file. Its path goes to standard output, what was done to standard error.
/// @return the program's exit status
int runFrameCommand(const FrameOptions& options);
