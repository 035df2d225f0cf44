#include "platform/media/MovieBoxes.h"

#include "platform/foundation/FileDescriptor.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <span>
#include <sys/stat.h>
#include <unistd.h>

namespace platform {
namespace {

constexpr uint32_t code(const char (&text)[5])
{
    return uint32_t(uint8_t(text[0])) << 24 | uint32_t(uint8_t(text[1])) << 16 | uint32_t(uint8_t(text[2])) << 8 |
           uint32_t(uint8_t(text[3]));
}

uint64_t bigEndian(std::span<const uint8_t> bytes)
{
    uint64_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

class BoxFile final {
public:
    explicit BoxFile(const std::string& path) : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK))
    {
        struct stat status {};
        if (file_ && fstat(file_.get(), &status) == 0 && S_ISREG(status.st_mode))
            size_ = status.st_size;
    }

    int64_t size() const { return size_; }

    bool read(int64_t offset, std::span<uint8_t> bytes) const
    {
        return pread(file_.get(), bytes.data(), bytes.size(), offset) == static_cast<ssize_t>(bytes.size());
    }

private:
    const FileDescriptor file_;
    int64_t size_ = 0;
};

/// A box's type and where its content lies.
struct Box {
    uint32_t type = 0;
    int64_t begin = 0;
    int64_t end = 0;
};

/// The box that starts at `offset`, which ends at `limit` or before.
std::optional<Box> boxAt(const BoxFile& file, int64_t offset, int64_t limit)
{
    std::array<uint8_t, 16> header{};
    if (limit - offset < 8 || !file.read(offset, std::span(header).first(8)))
        return std::nullopt;
    auto size = static_cast<int64_t>(bigEndian(std::span(header).first(4)));
    int64_t headerSize = 8;
    if (size == 1) {
        if (limit - offset < 16 || !file.read(offset, header))
            return std::nullopt;
        headerSize = 16;
        const uint64_t large = bigEndian(std::span(header).last(8));
        if (large > static_cast<uint64_t>(limit - offset))
            return std::nullopt;
        size = static_cast<int64_t>(large);
    } else if (size == 0) {
        size = limit - offset;
    }
    if (size < headerSize || size > limit - offset)
        return std::nullopt;
    return Box{static_cast<uint32_t>(bigEndian(std::span(header).subspan(4, 4))), offset + headerSize, offset + size};
}

/// Calls `visit` with each box inside; a broken one ends the walk.
template <typename Visit>
void forEachBox(const BoxFile& file, int64_t begin, int64_t end, Visit visit)
{
    // Files of many fragments have thousands of boxes; more than this would only be read to waste time.
    int boxesLeft = 1 << 20;
    for (int64_t offset = begin; offset < end && boxesLeft > 0; --boxesLeft) {
        const auto box = boxAt(file, offset, end);
        if (!box)
            return;
        visit(*box);
        offset = box->end;
    }
}

/// Time scale and duration of an "mvhd" or "mdhd" box, which start alike.
bool readHeader(const BoxFile& file, const Box& box, int32_t& timescale, int64_t& duration)
{
    std::array<uint8_t, 32> bytes{};
    const bool isLong = box.end - box.begin >= 32 && file.read(box.begin, std::span(bytes).first(1)) && bytes[0] == 1;
    const size_t length = isLong ? 32 : 20;
    if (box.end - box.begin < static_cast<int64_t>(length) || !file.read(box.begin, std::span(bytes).first(length)))
        return false;
    const uint64_t scale = bigEndian(std::span(bytes).subspan(isLong ? 20 : 12, 4));
    const uint64_t ticks = bigEndian(std::span(bytes).subspan(isLong ? 24 : 16, isLong ? 8 : 4));
    if (scale == 0 || scale > INT32_MAX)
        return false;
    timescale = static_cast<int32_t>(scale);
    // All ones means that the duration is not known.
    const bool known = ticks <= INT64_MAX && ticks != (isLong ? UINT64_MAX : UINT32_MAX);
    duration = known ? static_cast<int64_t>(ticks) : 0;
    return true;
}

/// Calls `visit` with each entry of a table: version and flags, a count, then entries of one size.
template <typename Visit>
void forEachEntry(const BoxFile& file, const Box& box, size_t entrySize, Visit visit)
{
    std::array<uint8_t, 8> header{};
    if (box.end - box.begin < 8 || !file.read(box.begin, header))
        return;
    const int64_t room = (box.end - box.begin - 8) / static_cast<int64_t>(entrySize);
    int64_t left = std::min(static_cast<int64_t>(bigEndian(std::span(header).last(4))), room);
    std::vector<uint8_t> bytes(entrySize * 512);
    for (int64_t offset = box.begin + 8; left > 0;) {
        const int64_t count = std::min<int64_t>(left, 512);
        const auto chunk = std::span(bytes).first(static_cast<size_t>(count) * entrySize);
        if (!file.read(offset, chunk))
            return;
        for (int64_t i = 0; i < count; ++i)
            visit(std::span<const uint8_t>(chunk).subspan(static_cast<size_t>(i) * entrySize, entrySize));
        offset += static_cast<int64_t>(chunk.size());
        left -= count;
    }
}

void readEdits(const BoxFile& file, const Box& box, std::vector<MovieEdit>& edits)
{
    // More edits than this are no soundtrack but an attack on memory.
    constexpr size_t kMaxEdits = 65536;
    std::array<uint8_t, 1> version{};
    if (box.end - box.begin < 8 || !file.read(box.begin, version))
        return;
    const size_t width = version[0] == 1 ? 8 : 4;
    forEachEntry(file, box, 2 * width + 4, [&](std::span<const uint8_t> entry) {
        const uint64_t duration = bigEndian(entry.first(width));
        const uint64_t time = bigEndian(entry.subspan(width, width));
        if (edits.size() < kMaxEdits && duration <= INT64_MAX)
            edits.push_back({static_cast<int64_t>(duration),
                             width == 8 ? static_cast<int64_t>(time) : int64_t{static_cast<int32_t>(time)}});
    });
}

/// Sum of the durations of a "stts" box; none if it does not fit.
std::optional<int64_t> sumOfDurations(const BoxFile& file, const Box& box)
{
    int64_t sum = 0;
    bool overflow = false;
    forEachEntry(file, box, 8, [&](std::span<const uint8_t> entry) {
        // Each factor has 32 bits, so the product fits unsigned.
        const uint64_t ticks = bigEndian(entry.first(4)) * bigEndian(entry.last(4));
        overflow = overflow || ticks > INT64_MAX || __builtin_add_overflow(sum, static_cast<int64_t>(ticks), &sum);
    });
    if (overflow)
        return std::nullopt;
    return sum;
}

void readTrack(const BoxFile& file, const Box& track, std::vector<MovieTrackBoxes>& tracks)
{
    MovieTrackBoxes result;
    int64_t headerDuration = 0;
    forEachBox(file, track.begin, track.end, [&](const Box& box) {
        std::array<uint8_t, 24> bytes{};
        if (box.type == code("tkhd") && box.end - box.begin >= 24 && file.read(box.begin, bytes))
            result.trackID = static_cast<int32_t>(bigEndian(std::span(bytes).subspan(bytes[0] == 1 ? 20 : 12, 4)));
        if (box.type == code("edts"))
            forEachBox(file, box.begin, box.end, [&](const Box& inner) {
                if (inner.type == code("elst"))
                    readEdits(file, inner, result.edits);
            });
        if (box.type != code("mdia"))
            return;
        forEachBox(file, box.begin, box.end, [&](const Box& inner) {
            if (inner.type == code("mdhd"))
                readHeader(file, inner, result.timescale, headerDuration);
            if (inner.type == code("hdlr") && inner.end - inner.begin >= 12 &&
                file.read(inner.begin, std::span(bytes).first(12)))
                result.handler.assign(reinterpret_cast<const char*>(bytes.data()) + 8, 4);
            if (inner.type != code("minf"))
                return;
            forEachBox(file, inner.begin, inner.end, [&](const Box& table) {
                if (table.type == code("stbl"))
                    forEachBox(file, table.begin, table.end, [&](const Box& times) {
                        if (times.type == code("stts"))
                            result.mediaDuration = sumOfDurations(file, times).value_or(0);
                    });
            });
        });
    });
    // The samples themselves count; the header only repeats them.
    if (result.mediaDuration == 0)
        result.mediaDuration = headerDuration;
    if (result.timescale > 0)
        tracks.push_back(std::move(result));
}

} // namespace

std::optional<MovieBoxes> readMovieBoxes(const NSURL& url)
{
    const BoxFile file(url.path());
    MovieBoxes movie;
    bool found = false;
    forEachBox(file, 0, file.size(), [&](const Box& box) {
        if (box.type != code("moov") || found)
            return;
        forEachBox(file, box.begin, box.end, [&](const Box& inner) {
            if (inner.type == code("mvhd"))
                found = readHeader(file, inner, movie.timescale, movie.duration);
            if (inner.type == code("trak"))
                readTrack(file, inner, movie.tracks);
            if (inner.type == code("mvex"))
                movie.isFragmented = true;
        });
    });
    if (!found)
        return std::nullopt;
    return movie;
}

} // namespace platform
