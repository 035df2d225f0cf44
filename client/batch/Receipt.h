#pragma once

#include "client/batch/manifest/ManifestReader.h"
#include "client/batch/manifest/MovieInputs.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What was made for a line, of what, by whom and how long it took.
struct Receipt {
    std::string id;
    size_t line = 0;
    /// Of the movie; relative to the manifest's folder where it lies below it. Of a delivery, where it is wanted.
    std::string movie;
    FileStamp movieStamp;
    /// SHA-256 of the movie.
    std::string checksum;
    /// As `settingsText` has it.
    std::string settings;
    std::string inputDigest;
    /// Empty where contents were not asked for.
    std::string contentDigest;
    std::vector<InputFile> inputs;
    /// Of the worker.
    std::string worker;
    std::string machine;
    /// Which it took.
    double seconds = 0;
    int64_t peakBytes = 0;
    /// ISO 8601, in UTC.
    std::string made;

    /// @name Of a delivery: a movie that is whole and waits for its place
    /// @{
    /// Absolute; empty where it is in its place.
    std::string waitsAt = {};
    /// The movie of an older receipt, whose place it takes as long as that is as it was; empty for a place of its own.
    std::string replaced = {};
    FileStamp replacedStamp = {};
    /// @}

    std::string text() const;
    /// @return nothing for what is no receipt
    static std::optional<Receipt> read(const std::filesystem::path& file);
};

} // namespace stillora
