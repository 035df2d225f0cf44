#pragma once

#include <stillora/Error.h>

#include "client/batch/manifest/LineIndex.h"
#include "client/batch/manifest/ManifestLine.h"

#include <cstddef>
#include <filesystem>
#include <functional>

namespace stillora {

/// Whether a look at a manifest asks for the files that it names, too.
enum class NamedFiles { Found, Unasked };

/// What a look at every line of a manifest found.
struct CheckedManifest {
    size_t movies = 0;
    size_t faults = 0;
    bool isCancelled = false;
};

/// Reads a whole manifest, however long, and tells what is wrong with its lines, files that are missing included.
///
/// @param manifest  absolute
/// @param file      empty, open for reading and writing: the index is written there
/// @param tell      called for each fault as it is found; of ids that stand twice, after all others
/// @param goesOn    asked now and then with the line that is looked at; false stops
/// @param index     out: of all lines; complete only where nothing was stopped
/// @return an error if the manifest cannot be read, or the index not written
Result<CheckedManifest> checkManifest(const std::filesystem::path& manifest, NamedFiles files,
                                      platform::FileDescriptor file,
                                      const std::function<void(const ManifestFault&)>& tell,
                                      const std::function<bool(size_t line)>& goesOn, std::optional<LineIndex>& index);

} // namespace stillora
