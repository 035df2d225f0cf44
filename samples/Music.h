#pragma once

#include <filesystem>

/// Writes half a minute of plucked strings over a soft pad, made to go with the sample photos: 48 kHz, stereo, 16 bits.
/// @return false if the file could not be written
[[nodiscard]] bool writeMusic(const std::filesystem::path& file);
