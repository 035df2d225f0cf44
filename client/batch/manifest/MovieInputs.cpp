#include "client/batch/manifest/MovieInputs.h"

#include "client/command/making/MoviePreparation.h"
#include "client/service/WatermarkChoice.h"
#include "client/text/FileReason.h"
#include "client/text/JSONWriter.h"
#include "client/text/LocalizedText.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/system/SHA256.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

Result<MovieInputs> missing(const std::filesystem::path& file, int reason)
{
    return Error{ErrorCode::FileNotFound, file, fmt::format("{}: {}", file.native(), reasonOfErrno(reason))};
}

/// @return whether all could be listed
bool listDocument(const std::filesystem::path& document, std::vector<std::filesystem::path>& files)
{
    std::error_code failure;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(document, failure))
        if (!entry.is_directory(failure))
            files.push_back(entry.path());
    std::ranges::sort(files);
    return !failure;
}

std::string digestOf(const std::vector<InputFile>& files, std::string (*textOf)(const InputFile&))
{
    platform::SHA256 hash;
    for (const InputFile& file : files) {
        hash.add(file.path);
        hash.add(std::string_view("\0", 1));
        hash.add(textOf(file));
        hash.add(std::string_view("\0", 1));
    }
    return hash.digest();
}

} // namespace

std::string MovieInputs::digest() const
{
    return digestOf(files, [](const InputFile& file) { return fmt::format("{} {}", file.bytes, file.modified); });
}

std::string MovieInputs::digestOfContents() const
{
    if (std::ranges::any_of(files, [](const InputFile& file) { return file.contents.empty(); }))
        return {};
    return digestOf(files, [](const InputFile& file) { return file.contents; });
}

std::string pathBelow(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    const std::string& text = path.native();
    const std::string start = folder == "/" ? "/" : folder.native() + "/";
    return text.starts_with(start) && text.size() > start.size() ? text.substr(start.size()) : text;
}

std::string digestOfFile(const std::filesystem::path& file, const std::function<bool()>& goesOn)
{
    constexpr size_t kPieceBytes = 1 << 20;
    const platform::FileDescriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor)
        return {};
    platform::SHA256 hash;
    std::vector<std::byte> piece(kPieceBytes);
    while (goesOn()) {
        const ssize_t count = read(descriptor.get(), piece.data(), piece.size());
        if (count == 0)
            return hash.digest();
        if (count < 0 && errno != EINTR)
            return {};
        hash.add(std::span(piece).first(static_cast<size_t>(std::max<ssize_t>(count, 0))));
    }
    return {};
}

Result<MovieInputs> inputsOf(const ManifestMovie& movie, const std::filesystem::path& folder, bool withContents,
                             const std::function<bool()>& goesOn)
{
    std::vector<std::filesystem::path> paths;
    if (movie.document) {
        if (!listDocument(*movie.document, paths))
            return missing(*movie.document, ENOENT);
    } else {
        CreateOptions options = movie.options;
        takeOutSounds(options);
        const PhotoListing listing = listPhotos(options.photos, FolderSounds::PassedOver, options.innerFolders);
        if (!listing.bad.empty() && !options.skipsBad)
            return Error{ErrorCode::FileNotFound, listing.bad.front().path,
                         fmt::format("{}: {}", listing.bad.front().path.native(), listing.bad.front().reason)};
        for (const PhotoCandidate& candidate : listing.candidates)
            paths.push_back(candidate.path);
        for (const SoundArgument& sound : options.sounds)
            paths.push_back(sound.path);
    }
    MovieInputs inputs;
    for (const std::filesystem::path& path : paths) {
        struct stat status = {};
        if (stat(path.c_str(), &status) != 0)
            return missing(path, errno);
        InputFile file{pathBelow(path, folder), status.st_size,
                       status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
        if (withContents) {
            file.contents = digestOfFile(path, goesOn);
            if (!goesOn())
                return Error{ErrorCode::Cancelled, {}, localized("stopped")};
            if (file.contents.empty())
                return missing(path, EIO);
        }
        inputs.files.push_back(std::move(file));
    }
    return inputs;
}

std::string settingsText(const ManifestMovie& movie, const std::filesystem::path& folder)
{
    const CreateOptions& options = movie.options;
    JSONWriter json;
    json.add("seconds", options.seconds.value_or(kDefaultTimePerPhoto).count())
        .add("hasSeconds", options.seconds.has_value())
        .add("quality", options.quality)
        .add("hasQuality", options.isQualityGiven)
        .add("codec", options.codec)
        .add("hasCodec", options.isCodecGiven)
        .add("loop", options.loopsSounds)
        .add("fitMusic", options.fitsMusic)
        .add("silence", options.fillsSilence)
        .add("sort", static_cast<int>(options.order.sort))
        .add("reverse", options.order.isReversed)
        .add("recursive", options.innerFolders == InnerFolders::Listed)
        .add("reduceBorders", options.reducesBorders)
        .add("watermark", drawsWatermark(options.watermark))
        .add("web", options.use == MovieUse::Web)
        .add("skipBad", options.skipsBad);
    options.title ? json.add("title", *options.title) : json.addNull("title");
    const std::filesystem::path save = options.saveFolder.value_or(usualSaveFolder());
    json.add("save", pathBelow(save, folder));
    std::vector<std::string> sounds;
    for (const SoundArgument& sound : options.sounds)
        sounds.push_back(fmt::format("{}@{}-{}", pathBelow(sound.path, folder),
                                     sound.start.value_or(Seconds(0)).count(), sound.end.value_or(Seconds(0)).count()));
    return json.add("sounds", sounds).text();
}

} // namespace stillora
