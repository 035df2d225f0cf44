#pragma once

#include "client/command/WaveformOptions.h"

/// `stillora waveform`: draws how loud a sound is over time, and saves the picture.
/// @return the program's exit status
int runWaveformCommand(const WaveformOptions& options);
