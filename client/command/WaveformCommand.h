#pragma once

#include <stillora/Waveform.h>

#include "client/command/options/Arguments.h"

#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora waveform`.
struct WaveformOptions : WaveformStyle {
    SoundArgument sound;
    std::string output;
    bool isJSON = false;
    bool isQuiet = false;
};

/// Reads the arguments of `stillora waveform`. Touches no file.
Parsed<WaveformOptions> parseWaveform(const std::vector<std::string>& arguments);

/// `stillora waveform`: draws how loud a sound is over time, and saves the picture.
/// @return the program's exit status
int runWaveformCommand(const WaveformOptions& options);

} // namespace stillora
