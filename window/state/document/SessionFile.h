#pragma once

#include <stillora/Movie.h>
#include <stillora/Sounds.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora::window {

/// A document as it is kept in the state folder: its files where they are, their order, and the settings.
struct SavedSession {
    /// Where the document has a name.
    std::optional<std::filesystem::path> document;
    std::vector<std::filesystem::path> photos;
    std::vector<SoundArgument> sounds;
    MovieSettings settings;

    friend bool operator==(const SavedSession&, const SavedSession&) = default;
};

/// A text with a line for each thing.
std::string textOfSession(const SavedSession& session);

/// @return nothing for what is no such text as a whole, or one of a newer version
std::optional<SavedSession> sessionOfText(std::string_view text);

/// @name Bytes of any value as a word of a line, and back
/// @{
std::string escapedWord(std::string_view bytes);
std::optional<std::string> unescapedWord(std::string_view word);
/// @}

} // namespace stillora::window
