#pragma once

#include "client/command/options/CreateOptions.h"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What is wrong with a line of a manifest.
struct ManifestFault {
    /// Counted from 1.
    std::size_t line = 0;
    /// Empty where it is the whole line.
    std::string field;
    /// One sentence, in the user's language.
    std::string reason;
};

/// A movie that a line of a manifest asks for.
struct ManifestMovie {
    /// Counted from 1.
    std::size_t line = 0;
    /// The user's own name for it; empty where the line gives none.
    std::string id;
    /// By which the movie is found again: 32 hexadecimal digits, of the id or else of the sources and the names.
    std::string key;
    /// All paths are absolute.
    CreateOptions options;
    /// The document that is rendered, if it is one: then also the only one of the photos.
    std::optional<std::filesystem::path> document;
    /// In how many pieces it is to be made.
    std::size_t split = 1;
    /// The number of the piece that it is itself; 0 for a whole movie.
    std::size_t piece = 0;

    /// For sentences: the id, or else "line 12".
    std::string name() const;
};

/// A field of a line, said once: reading, documentation and schema are held together by it.
struct ManifestField {
    enum class Kind { Text, Number, NumberOrText, Flag, Texts };

    std::string_view name;
    Kind kind;
};

/// Every field that a line may have.
const std::vector<ManifestField>& manifestFields();

/// Reads one line. Opens no file.
/// @param text    without its end
/// @param folder  that of the manifest, absolute: relative paths are relative to it
/// @param line    its number
/// @param faults  out: everything that is wrong is added
/// @return nothing if something is wrong
std::optional<ManifestMovie> readManifestLine(std::string_view text, const std::filesystem::path& folder,
                                              std::size_t line, std::vector<ManifestFault>& faults);

/// Looks whether the files and folders that a line names are there.
/// @param faults  out: those that are not
void findMissingFiles(const ManifestMovie& movie, std::vector<ManifestFault>& faults);

} // namespace stillora
