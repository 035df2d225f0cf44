#pragma once

#include "client/command/Arguments.h"

#include <string>
#include <vector>

/// The command line of `stillora waveform`.
struct WaveformOptions {
    enum class Ground { Clear, White };

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

/// Its help.
std::string waveformHelp();
