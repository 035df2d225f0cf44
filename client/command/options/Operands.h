#pragma once

#include <stillora/Sounds.h>

#include <filesystem>
#include <optional>
#include <string>

namespace stillora {

/// @name What an argument that is no option stands for
/// @{

/// The sound, or the part of it; nothing for a photo or a folder. A sound is known by the extension of its name, or by
/// the part of it that is given.
std::optional<SoundArgument> soundOperand(const std::string& argument);

/// The document; nothing for what is none.
std::optional<std::filesystem::path> documentOperand(const std::string& argument);
/// @}

} // namespace stillora
