#pragma once

#include "client/command/Arguments.h"

#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora waveform`.
struct WaveformOptions {
    enum class Ground { Clear, White };

    /// Of an edge of the picture.
    static constexpr int kMostPixels = 16384;

    SoundArgument sound;
    std::string output;
    /// Pixels.
    int width = 1000;
    int height = 200;
    Ground ground = Ground::Clear;
    bool isJSON = false;
    bool isQuiet = false;
};

/// Reads the arguments of `stillora waveform`. Touches no file.
Parsed<WaveformOptions> parseWaveform(const std::vector<std::string>& arguments);

/// `stillora waveform`: draws how loud a sound is over time, and saves the picture.
/// @return the program's exit status
int runWaveformCommand(const WaveformOptions& options);

} // namespace stillora
