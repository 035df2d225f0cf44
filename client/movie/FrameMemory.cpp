#include "client/movie/FrameMemory.h"

#include "client/service/WatermarkChoice.h"
#include "platform/bytes/ByteSource.h"
#include "platform/faces/CIDetectorModule.h"
#include "platform/files/NSFileManager.h"
#include "platform/system/SHA256.h"
#include "platform/system/UserFolders.h"
#include "video/FramePlacement.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

namespace stillora {

namespace {

using platform::FileState;
using platform::NSURL;

/// What a file begins with that is one of the memory's; changed with its form.
constexpr std::string_view kMark = "stillora frames 1";

/// So many movies are remembered.
constexpr size_t kMostMovies = 40;

/// Larger ones are none of ours: a key for each frame of the longest movie takes less.
constexpr uint64_t kLargestRecord = 64 << 20;

/// Of a digest, in digits: as unlikely to meet as two that are whole.
constexpr size_t kKeyLength = 32;

/// Less than Linux takes as one argument, 128 KiB.
constexpr size_t kLongestArgument = 120'000;

std::string textOf(const FileState& state)
{
    return fmt::format("{} {} {} {}.{:09}", state.device, state.number, state.size, state.seconds, state.nanoseconds);
}

/// Whether the file is as it was looked at.
bool isUnchanged(const PhotoFacts& photo)
{
    const FileState state = FileState::ofFile(photo.path.native());
    const auto modified = std::chrono::seconds(state.seconds) + std::chrono::nanoseconds(state.nanoseconds);
    return state.size == photo.fileSize && modified == photo.modified.time_since_epoch();
}

/// What all frames of a request have in common.
std::string styleOf(const MovieRequest& request, const std::string& program)
{
    const Size frame = frameSizeForQuality(request.quality, request.photos);
    const bool findsFaces =
        request.reducesBorders && !platform::CIDetectorModule::missingFile(platform::CIDetectorModule::standardPaths());
    return fmt::format("{}x{} {} {} {} {}", frame.width, frame.height, request.codec, request.reducesBorders,
                       findsFaces, textOf(FileState::ofFile(program)));
}

/// A record of the memory.
struct Record {
    std::string movie;
    std::string state;
    std::vector<std::string_view> keys;
};

/// @param contents  outlives the record; each part of it ends with a zero
std::optional<Record> recordOf(std::string_view contents)
{
    const auto take = [&] {
        const std::string_view part = contents.substr(0, contents.find('\0'));
        contents.remove_prefix(std::min(contents.size(), part.size() + 1));
        return part;
    };
    if (take() != kMark)
        return std::nullopt;
    Record record;
    record.movie = take();
    record.state = take();
    while (!contents.empty())
        record.keys.push_back(take());
    return record;
}

struct StoredRecord {
    std::filesystem::path file;
    std::filesystem::file_time_type time;
};

/// The newest first.
std::vector<StoredRecord> recordsIn(const std::filesystem::path& folder)
{
    std::vector<StoredRecord> records;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(folder, failure))
        if (entry.is_regular_file(failure))
            records.push_back({entry.path(), entry.last_write_time(failure)});
    std::ranges::sort(records, std::ranges::greater(), &StoredRecord::time);
    return records;
}

} // namespace

FrameKeys::FrameKeys(const MovieRequest& request, const std::string& program)
    : photos_(request.photos), framesPerPhoto_(request.plan.framesPerPhoto)
{
    const std::string style = styleOf(request, program);
    const size_t count = request.plan.frameCount(photos_.size());
    const bool hasWatermark = drawsWatermark(request.watermark);
    for (size_t place = 0; place < count; ++place) {
        const PhotoFacts& photo = photos_[place / framesPerPhoto_];
        platform::SHA256 hash;
        hash.add(fmt::format("{} {} {} {} {}", photo.fileSize, photo.modified.time_since_epoch().count(),
                             photo.fingerprint, style, hasWatermark && carriesWatermark(place, count)));
        keys_.push_back(photo.fingerprint.empty() ? std::string() : hash.digest().substr(0, kKeyLength));
    }
    forgetChangedPhotos();
}

void FrameKeys::forgetChangedPhotos()
{
    for (size_t i = 0; i < photos_.size(); ++i)
        if (!isUnchanged(photos_[i]))
            std::fill_n(keys_.begin() + static_cast<std::ptrdiff_t>(i * framesPerPhoto_), framesPerPhoto_,
                        std::string());
}

FrameMemory FrameMemory::ofUser()
{
    return FrameMemory(std::filesystem::path(platform::cacheFolder()) / "stillora" / "frames");
}

FrameMemory::FrameMemory(std::filesystem::path folder) : folder_(std::move(folder)) {}

std::optional<FrameSource> FrameMemory::find(const std::vector<std::string>& keys) const
{
    std::optional<FrameSource> best;
    for (const StoredRecord& stored : recordsIn(folder_)) {
        const auto contents = platform::NSFileManager::defaultManager().contentsAtURL(
            NSURL::fileURLWithPath(stored.file.native(), false), kLargestRecord);
        if (!contents)
            continue;
        const auto record = recordOf({reinterpret_cast<const char*>(contents->data()), contents->size()});
        if (!record)
            continue;
        std::unordered_map<std::string_view, size_t> places;
        for (size_t i = 0; i < record->keys.size(); ++i)
            if (!record->keys[i].empty())
                places.emplace(record->keys[i], i);
        std::map<size_t, size_t> frames;
        for (size_t i = 0; i < keys.size(); ++i)
            if (const auto place = places.find(keys[i]); place != places.end())
                frames.emplace(i, place->second);
        if (frames.size() <= (best ? best->frames.size() : 0) ||
            textOf(FileState::ofFile(record->movie)) != record->state)
            continue;
        best = FrameSource{NSURL::fileURLWithPath(record->movie, false), std::move(frames)};
        if (best->frames.size() == keys.size())
            break;
    }
    if (best && argumentOf(*best).size() > kLongestArgument)
        best.reset();
    return best;
}

void FrameMemory::remember(const std::filesystem::path& movie, const std::vector<std::string>& keys) const
{
    std::error_code failure;
    std::filesystem::create_directories(folder_, failure);
    std::filesystem::permissions(folder_, std::filesystem::perms::owner_all, failure);
    const std::string end(1, '\0');
    std::string text =
        fmt::format("{}{}{}{}{}{}", kMark, end, movie.native(), end, textOf(FileState::ofFile(movie.native())), end);
    for (const std::string& key : keys)
        text += key + end;
    platform::SHA256 name;
    name.add(movie.native());
    (void)platform::NSFileManager::defaultManager().writeContents(
        platform::NSData(text.begin(), text.end()),
        NSURL::fileURLWithPath((folder_ / name.digest().substr(0, kKeyLength)).native(), false), nullptr,
        platform::NSFileManager::NewFile::Private);
    const auto records = recordsIn(folder_);
    for (size_t i = kMostMovies; i < records.size(); ++i)
        std::filesystem::remove(records[i].file, failure);
}

std::string argumentOf(const FrameSource& source)
{
    std::string runs;
    for (auto next = source.frames.begin(); next != source.frames.end();) {
        const auto [first, place] = *next;
        size_t count = 0;
        while (next != source.frames.end() && next->first == first + count && next->second == place + count) {
            ++next;
            ++count;
        }
        runs += fmt::format("{}{}+{}@{}", runs.empty() ? "" : ",", first, count, place);
    }
    return runs + ":" + source.movie.path();
}

} // namespace stillora
