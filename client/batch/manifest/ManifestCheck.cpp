#include "client/batch/manifest/ManifestCheck.h"

#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"

#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

constexpr size_t kLinesBetweenQuestions = 256;

/// Nothing where there is none.
std::optional<ManifestMovie> look(const ManifestReader::Line& line, const std::filesystem::path& folder,
                                  NamedFiles files, std::vector<ManifestFault>& faults)
{
    if (!line.text) {
        faults.push_back({line.number, {}, localized("a line has at most {} bytes", ManifestReader::kLongestLine)});
        return std::nullopt;
    }
    if (line.isBlank())
        return std::nullopt;
    auto movie = readManifestLine(*line.text, folder, line.number, faults);
    if (movie && files == NamedFiles::Found)
        findMissingFiles(*movie, faults);
    return movie;
}

} // namespace

Result<CheckedManifest> checkManifest(const std::filesystem::path& manifest, NamedFiles files,
                                      platform::FileDescriptor file,
                                      const std::function<void(const ManifestFault&)>& tell,
                                      const std::function<bool(size_t line)>& goesOn, std::optional<LineIndex>& index)
{
    auto reader = ManifestReader::open(manifest);
    if (!reader)
        return reader.error();
    CheckedManifest checked;
    index.emplace(std::move(file), reader->stamp());
    std::vector<ManifestFault> faults;
    while (const auto line = reader->next()) {
        if (line->number % kLinesBetweenQuestions == 1 && !goesOn(line->number)) {
            checked.isCancelled = true;
            return checked;
        }
        const auto movie = look(*line, manifest.parent_path(), files, faults);
        index->add(line->offset, movie ? movie->key : std::string(), movie ? movie->split : 1);
        for (const ManifestFault& fault : std::exchange(faults, {})) {
            ++checked.faults;
            tell(fault);
        }
    }
    checked.movies = index->movieCount();
    const auto failed = [&](int reason) {
        return Error{ErrorCode::Failed, manifest, fmt::format("{}: {}", manifest.native(), reasonOfErrno(reason))};
    };
    if (reader->failure() != 0)
        return failed(reader->failure());
    if (const int reason = index->finish(); reason != 0)
        return failed(reason);
    index->forEachDuplicate([&](size_t line, size_t earlier) {
        ++checked.faults;
        tell({line, "id", localized("line {} has the same id, or without one the same sources and names", earlier)});
    });
    return checked;
}

} // namespace stillora
