#pragma once

#include <stillora/Error.h>

#include "client/batch/manifest/ManifestLine.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace stillora {

/// A file that a movie is made of.
struct InputFile {
    /// Relative to the manifest's folder where it lies below it.
    std::string path;
    int64_t bytes = 0;
    /// In nanoseconds since 1970.
    int64_t modified = 0;
    /// SHA-256; empty where it was not asked for.
    std::string contents = {};
};

/// The files of a movie as they are now.
struct MovieInputs {
    std::vector<InputFile> files;

    /// Of names, sizes and times.
    std::string digest() const;
    /// Of names and contents; empty where these were not asked for.
    std::string digestOfContents() const;
};

/// Finds the files of a movie: those that its photos and folders stand for and its sounds, or all of its document.
/// Opens none unless their contents are asked for.
/// @param goesOn  asked before each file whose contents are read; false stops, with `ErrorCode::Cancelled`
/// @return an error that names a file that is missing
Result<MovieInputs> inputsOf(const ManifestMovie& movie, const std::filesystem::path& folder, bool withContents,
                             const std::function<bool()>& goesOn);

/// The settings of a movie in one text, the same for the same movie.
std::string settingsText(const ManifestMovie& movie, const std::filesystem::path& folder);

/// SHA-256 of a file; empty if it cannot be read, or was not to go on.
std::string digestOfFile(const std::filesystem::path& file, const std::function<bool()>& goesOn);

/// The path as seen from a folder, if it lies below it; else as it is.
std::string pathBelow(const std::filesystem::path& path, const std::filesystem::path& folder);

} // namespace stillora
