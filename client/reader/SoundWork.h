#pragma once

#include <chrono>
#include <filesystem>

namespace stillora {

/// How much of the processor's time looking at a sound file is worth: a second and a half, and more for what it really
/// holds. A file of a few kilobytes may claim any length, and gigabytes of nothing may follow them.
std::chrono::milliseconds workForSound(const std::filesystem::path& file);

/// The same of decoding all of it.
std::chrono::milliseconds workForSamples(const std::filesystem::path& file);

} // namespace stillora
