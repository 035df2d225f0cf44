#include "platform/movie/RepeatedPictures.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/bytes/GivenFile.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/movie/SampleTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace platform {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kIndex = fourCharacterCode("moov");
constexpr uint32_t kFree = fourCharacterCode("free");

/// An index of 4 million samples. Also what keeps a new one below the sizes that 32 bits hold.
constexpr int64_t kMaxIndexBytes = int64_t{1} << 26;
/// Between two questions whether to go on.
constexpr size_t kPieceBytes = size_t{1} << 20;

/// A stretch of the file.
struct Stretch {
    int64_t begin = 0;
    int64_t end = 0;
};

/// One run of the rewriting; `why` says what is wrong with the movie, as the end of a sentence.
class Rewriting final {
public:
    explicit Rewriting(const NSURL& movie) : bytes_(movie.path()), file_(bytes_) {}

    bool readIndex(std::string& why);
    /// @return how many samples came to those that were there
    std::optional<size_t> repeat(CMTime longest, std::string& why);

    const Stretch& oldIndex() const { return oldIndex_; }
    Bytes newIndex() const;
    const FileBytes& bytes() const { return bytes_; }

private:
    bool findIndex(std::string& why);
    bool checkTrack(const IndexBox& track, std::string& why) const;
    bool checkPlaces(const SampleTable& table, std::string& why) const;
    bool moveSamples(std::string& why);
    uint64_t moved(uint64_t offset) const
    {
        return offset < static_cast<uint64_t>(oldIndex_.end) ? offset : offset + static_cast<uint64_t>(distance_);
    }

    const FileBytes bytes_;
    const BoxWalker file_;
    /// From the start of its header, and with the free room behind it.
    Stretch oldIndex_;
    Stretch indexContent_;
    /// Of "moov".
    std::vector<IndexBox> boxes_;
    /// By how much what stands behind the index moves.
    int64_t distance_ = 0;
};

/// The places in the movie of all that stands in the same box of each track.
constexpr uint32_t kPathToSamples[] = {fourCharacterCode("mdia"), fourCharacterCode("minf"), fourCharacterCode("stbl")};

template <typename Box>
Box* sampleBoxOf(Box& track)
{
    Box* box = &track;
    for (const uint32_t type : kPathToSamples)
        if (box)
            box = box->child(type);
    return box;
}

std::string handlerOf(const IndexBox& track)
{
    const IndexBox* const media = track.child(fourCharacterCode("mdia"));
    const IndexBox* const handler = media ? media->child(fourCharacterCode("hdlr")) : nullptr;
    if (!handler || handler->content.size() < 12)
        return {};
    return {handler->content.begin() + 8, handler->content.begin() + 12};
}

/// 0 if it is not to be read.
uint32_t timescaleOf(const IndexBox& track)
{
    const IndexBox* const media = track.child(fourCharacterCode("mdia"));
    const IndexBox* const header = media ? media->child(fourCharacterCode("mdhd")) : nullptr;
    if (!header || header->content.empty())
        return 0;
    const size_t at = header->content[0] == 1 ? 20 : 12;
    if (header->content.size() < at + 4)
        return 0;
    return static_cast<uint32_t>(bigEndianNumber(std::span<const uint8_t>(header->content).subspan(at, 4)));
}

/// Whether all of the track's samples lie in this file.
bool isSelfContained(const IndexBox& track)
{
    const IndexBox* const media = track.child(fourCharacterCode("mdia"));
    const IndexBox* const information = media ? media->child(fourCharacterCode("minf")) : nullptr;
    const IndexBox* const data = information ? information->child(fourCharacterCode("dinf")) : nullptr;
    if (!data)
        return false;
    // "dinf" holds "dref": header, version and flags, count, then for each file a box that starts with version and
    // flags.
    constexpr size_t kEntriesAt = 8 + 4 + 4;
    const std::span<const uint8_t> bytes(data->content);
    if (bytes.size() < kEntriesAt + 12 || bigEndianNumber(bytes.subspan(4, 4)) != fourCharacterCode("dref"))
        return false;
    const bool isAlone = bigEndianNumber(bytes.subspan(12, 4)) == 1;
    return isAlone && bigEndianNumber(bytes.subspan(kEntriesAt + 8, 4)) == 1;
}

bool Rewriting::findIndex(std::string& why)
{
    constexpr std::array kKnown{fourCharacterCode("ftyp"),
                                fourCharacterCode("mdat"),
                                fourCharacterCode("skip"),
                                fourCharacterCode("wide"),
                                kFree,
                                kIndex};
    int64_t begin = 0;
    size_t count = 0;
    file_.forEachBox(0, file_.size(), [&](const Box& box) {
        if (std::find(kKnown.begin(), kKnown.end(), box.type) == kKnown.end() && why.empty())
            why = localized("it has parts that are neither index nor media");
        if (box.type == kIndex) {
            oldIndex_ = {begin, box.end};
            indexContent_ = {box.begin, box.end};
            ++count;
        } else if (box.type == kFree && count > 0 && begin == oldIndex_.end) {
            oldIndex_.end = box.end;
        }
        begin = box.end;
    });
    if (why.empty() && (count != 1 || begin != file_.size()))
        why = localized("it is not one whole movie");
    return why.empty();
}

bool Rewriting::readIndex(std::string& why)
{
    if (!findIndex(why))
        return false;
    const int64_t size = indexContent_.end - indexContent_.begin;
    if (size > kMaxIndexBytes) {
        why = localized("its index is too large");
        return false;
    }
    Bytes bytes(static_cast<size_t>(size));
    auto boxes = file_.read(indexContent_.begin, bytes) ? readIndexBoxes(bytes) : std::nullopt;
    if (!boxes) {
        why = localized("its index is broken");
        return false;
    }
    boxes_ = std::move(*boxes);
    for (const IndexBox& box : boxes_) {
        if (box.type == fourCharacterCode("mvex") || box.type == fourCharacterCode("cmov")) {
            why = localized("its index comes in pieces, or compressed");
            return false;
        }
        if (box.type == fourCharacterCode("trak") && !checkTrack(box, why))
            return false;
    }
    return true;
}

bool Rewriting::checkTrack(const IndexBox& track, std::string& why) const
{
    const IndexBox* const samples = sampleBoxOf(track);
    if (!samples || !isSelfContained(track))
        why = localized("a track's media is not to be found in it");
    else if (samples->child(fourCharacterCode("saio")))
        why = localized("it is encrypted");
    return why.empty();
}

bool Rewriting::checkPlaces(const SampleTable& table, std::string& why) const
{
    const auto size = static_cast<uint64_t>(file_.size());
    const bool areFine = std::ranges::all_of(table.samples(), [&](const SampleTable::Sample& sample) {
        const bool isInside = sample.offset < size && sample.size <= size - sample.offset;
        const bool isBehind = sample.offset >= static_cast<uint64_t>(oldIndex_.end);
        return isInside && (isBehind || sample.offset + sample.size <= static_cast<uint64_t>(oldIndex_.begin));
    });
    if (!areFine)
        why = localized("a picture lies where there is none");
    return areFine;
}

std::optional<size_t> Rewriting::repeat(CMTime longest, std::string& why)
{
    std::vector<IndexBox*> tracks;
    for (IndexBox& box : boxes_)
        if (box.type == fourCharacterCode("trak") && handlerOf(box) == "vide")
            tracks.push_back(&box);
    if (tracks.size() != 1) {
        why = localized("it has {} picture tracks", {std::to_string(tracks.size())});
        return std::nullopt;
    }
    const uint32_t timescale = timescaleOf(*tracks[0]);
    const int64_t ticks =
        timescale > 0 && timescale <= INT32_MAX
            ? CMTimeConvertScale(longest, static_cast<int32_t>(timescale), CMTimeRoundingMethod::RoundHalfAwayFromZero)
                  .value
            : 0;
    if (ticks <= 0 || ticks > UINT32_MAX) {
        why = localized("its times are too coarse");
        return std::nullopt;
    }
    IndexBox& samples = *sampleBoxOf(*tracks[0]);
    auto table = SampleTable::read(samples, why);
    if (!table || !checkPlaces(*table, why))
        return std::nullopt;
    const size_t before = table->samples().size();
    if (!table->repeatLongSamples(static_cast<uint32_t>(ticks), why))
        return std::nullopt;
    // With room for places of any size, unless it is clear that short ones do.
    table->write(samples, file_.size() + kMaxIndexBytes > int64_t{UINT32_MAX});
    if (!moveSamples(why))
        return std::nullopt;
    return table->samples().size() - before;
}

/// What stands behind the index moves as the index grows.
bool Rewriting::moveSamples(std::string& why)
{
    distance_ = static_cast<int64_t>(newIndex().size()) - (oldIndex_.end - oldIndex_.begin);
    for (IndexBox& track : boxes_) {
        if (track.type != fourCharacterCode("trak"))
            continue;
        for (IndexBox& box : sampleBoxOf(track)->children) {
            const bool isLong = box.type == fourCharacterCode("co64");
            if (!isLong && box.type != fourCharacterCode("stco"))
                continue;
            auto offsets = readChunkOffsets(box);
            if (!offsets) {
                why = localized("its index is broken");
                return false;
            }
            for (uint64_t& offset : *offsets)
                offset = moved(offset);
            if (!isLong && std::ranges::any_of(*offsets, [](uint64_t offset) { return offset > UINT32_MAX; })) {
                why = localized("it would be too large for the places in its index");
                return false;
            }
            box = makeChunkOffsets(*offsets, isLong);
        }
    }
    return true;
}

Bytes Rewriting::newIndex() const
{
    const IndexBox index{.type = kIndex, .content = {}, .children = boxes_};
    Bytes bytes;
    bytes.reserve(index.size());
    index.appendTo(bytes);
    return bytes;
}

/// A new file, removed again unless it was kept. Fails with `errno`.
class NewFile final {
public:
    explicit NewFile(const NSURL& url) : path_(url.path()), file_(makeForWriting(path_)) {}
    ~NewFile()
    {
        if (file_)
            unlink(path_.c_str());
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    explicit operator bool() const { return static_cast<bool>(file_); }

    bool write(std::span<const uint8_t> bytes)
    {
        while (!bytes.empty()) {
            const ssize_t count = ::write(file_.get(), bytes.data(), bytes.size());
            if (count < 0 && errno != EINTR)
                return false;
            bytes = bytes.subspan(static_cast<size_t>(std::max<ssize_t>(count, 0)));
        }
        return true;
    }

    bool keep()
    {
        // Some file systems tell only now that there was no room.
        if (close(file_.release()) == 0)
            return true;
        const int reason = errno;
        unlink(path_.c_str());
        errno = reason;
        return false;
    }

private:
    const std::string path_;
    FileDescriptor file_;
};

/// @return false with `errno`
bool copyStretch(const FileBytes& from, Stretch stretch, NewFile& to, const std::function<bool()>& isCancelled)
{
    Bytes buffer(kPieceBytes);
    while (stretch.begin < stretch.end) {
        const auto count = static_cast<size_t>(std::min<int64_t>(stretch.end - stretch.begin, kPieceBytes));
        const auto piece = std::span(buffer).first(count);
        errno = EIO;
        if (isCancelled()) {
            errno = ECANCELED;
            return false;
        }
        if (!from.read(stretch.begin, piece) || !to.write(piece))
            return false;
        stretch.begin += static_cast<int64_t>(count);
    }
    return true;
}

} // namespace

std::optional<size_t> repeatLongPictures(const NSURL& movie, CMTime longest, const NSURL& to,
                                         const std::function<bool()>& isCancelled, NSError* error)
{
    Rewriting rewriting(movie);
    std::string why;
    const auto added = rewriting.readIndex(why) ? rewriting.repeat(longest, why) : std::nullopt;
    if (!added) {
        fail(error, kAVFoundationErrorDomain, kAVErrorOperationNotSupportedForAsset,
             localized("the pictures of {} cannot be repeated: {}", {movie.path(), why}));
        return std::nullopt;
    }
    if (*added == 0)
        return added;
    NewFile file(to);
    const Stretch& index = rewriting.oldIndex();
    if (!file || !copyStretch(rewriting.bytes(), {0, index.begin}, file, isCancelled) ||
        !file.write(rewriting.newIndex()) ||
        !copyStretch(rewriting.bytes(), {index.end, rewriting.bytes().size()}, file, isCancelled) || !file.keep()) {
        failWithErrno(error, errno, localized("{} cannot be written", {to.path()}));
        return std::nullopt;
    }
    return added;
}

} // namespace platform
