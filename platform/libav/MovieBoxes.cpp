#include "platform/libav/MovieBoxes.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"

#include <algorithm>
#include <array>
#include <span>

namespace platform {
namespace {

/// Time scale and duration of an "mvhd" or "mdhd" box, which start alike.
bool readHeader(const BoxWalker& file, const Box& box, int32_t& timescale, int64_t& duration)
{
    std::array<uint8_t, 32> bytes{};
    const bool isLong = box.size() >= 32 && file.read(box.begin, std::span(bytes).first(1)) && bytes[0] == 1;
    const size_t length = isLong ? 32 : 20;
    if (box.size() < static_cast<int64_t>(length) || !file.read(box.begin, std::span(bytes).first(length)))
        return false;
    const uint64_t scale = bigEndianNumber(std::span(bytes).subspan(isLong ? 20 : 12, 4));
    const uint64_t ticks = bigEndianNumber(std::span(bytes).subspan(isLong ? 24 : 16, isLong ? 8 : 4));
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
void forEachEntry(const BoxWalker& file, const Box& box, size_t entrySize, Visit visit)
{
    std::array<uint8_t, 8> header{};
    if (box.size() < 8 || !file.read(box.begin, header))
        return;
    const int64_t room = (box.size() - 8) / static_cast<int64_t>(entrySize);
    int64_t left = std::min(static_cast<int64_t>(bigEndianNumber(std::span(header).last(4))), room);
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

void readEdits(const BoxWalker& file, const Box& box, std::vector<MovieEdit>& edits)
{
    // More edits than this are no soundtrack but an attack on memory.
    constexpr size_t kMaxEdits = 65536;
    std::array<uint8_t, 1> version{};
    if (box.size() < 8 || !file.read(box.begin, version))
        return;
    const size_t width = version[0] == 1 ? 8 : 4;
    forEachEntry(file, box, 2 * width + 4, [&](std::span<const uint8_t> entry) {
        const uint64_t duration = bigEndianNumber(entry.first(width));
        const uint64_t time = bigEndianNumber(entry.subspan(width, width));
        if (edits.size() < kMaxEdits && duration <= INT64_MAX)
            edits.push_back({static_cast<int64_t>(duration),
                             width == 8 ? static_cast<int64_t>(time) : int64_t{static_cast<int32_t>(time)}});
    });
}

/// Sum of the durations of a "stts" box; none if it does not fit.
std::optional<int64_t> sumOfDurations(const BoxWalker& file, const Box& box)
{
    int64_t sum = 0;
    bool overflow = false;
    forEachEntry(file, box, 8, [&](std::span<const uint8_t> entry) {
        // Each factor has 32 bits, so the product fits unsigned.
        const uint64_t ticks = bigEndianNumber(entry.first(4)) * bigEndianNumber(entry.last(4));
        overflow = overflow || ticks > INT64_MAX || __builtin_add_overflow(sum, static_cast<int64_t>(ticks), &sum);
    });
    if (overflow)
        return std::nullopt;
    return sum;
}

void readTrack(const BoxWalker& file, const Box& track, std::vector<MovieTrackBoxes>& tracks)
{
    MovieTrackBoxes result;
    int64_t headerDuration = 0;
    file.forEachBox(track.begin, track.end, [&](const Box& box) {
        std::array<uint8_t, 24> bytes{};
        if (box.type == fourCharacterCode("tkhd") && box.size() >= 24 && file.read(box.begin, bytes))
            result.trackID =
                static_cast<int32_t>(bigEndianNumber(std::span(bytes).subspan(bytes[0] == 1 ? 20 : 12, 4)));
        if (box.type == fourCharacterCode("edts"))
            file.forEachBox(box.begin, box.end, [&](const Box& inner) {
                if (inner.type == fourCharacterCode("elst"))
                    readEdits(file, inner, result.edits);
            });
        if (box.type != fourCharacterCode("mdia"))
            return;
        file.forEachBox(box.begin, box.end, [&](const Box& inner) {
            if (inner.type == fourCharacterCode("mdhd"))
                readHeader(file, inner, result.timescale, headerDuration);
            if (inner.type == fourCharacterCode("hdlr") && inner.size() >= 12 &&
                file.read(inner.begin, std::span(bytes).first(12)))
                result.handler.assign(reinterpret_cast<const char*>(bytes.data()) + 8, 4);
            if (inner.type != fourCharacterCode("minf"))
                return;
            file.forEachBox(inner.begin, inner.end, [&](const Box& table) {
                if (table.type == fourCharacterCode("stbl"))
                    file.forEachBox(table.begin, table.end, [&](const Box& times) {
                        if (times.type == fourCharacterCode("stts"))
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

std::optional<MovieBoxes> readMovieBoxes(const ByteSource& bytes)
{
    const BoxWalker file(bytes);
    MovieBoxes movie;
    bool found = false;
    file.forEachBox(0, file.size(), [&](const Box& box) {
        if (box.type != fourCharacterCode("moov") || found)
            return;
        file.forEachBox(box.begin, box.end, [&](const Box& inner) {
            if (inner.type == fourCharacterCode("mvhd"))
                found = readHeader(file, inner, movie.timescale, movie.duration);
            if (inner.type == fourCharacterCode("trak"))
                readTrack(file, inner, movie.tracks);
            if (inner.type == fourCharacterCode("mvex"))
                movie.isFragmented = true;
        });
    });
    if (!found)
        return std::nullopt;
    return movie;
}

} // namespace platform
