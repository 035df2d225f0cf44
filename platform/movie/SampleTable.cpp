#include "platform/movie/SampleTable.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/foundation/LocalizedText.h"

#include <algorithm>
#include <array>
#include <utility>

namespace platform {
namespace {

using Bytes = std::vector<uint8_t>;

constexpr uint32_t kTimes = fourCharacterCode("stts");
constexpr uint32_t kSizes = fourCharacterCode("stsz");
constexpr uint32_t kChunks = fourCharacterCode("stsc");
constexpr uint32_t kOffsets = fourCharacterCode("stco");
constexpr uint32_t kLongOffsets = fourCharacterCode("co64");
constexpr uint32_t kSyncSamples = fourCharacterCode("stss");
constexpr uint32_t kDescriptions = fourCharacterCode("stsd");

/// "moov" inside "trak" and so on would only be nested to waste memory.
constexpr int kMaxDepth = 8;

bool hasBoxesInside(uint32_t type)
{
    constexpr std::array kTypes{fourCharacterCode("trak"), fourCharacterCode("mdia"), fourCharacterCode("minf"),
                                fourCharacterCode("stbl")};
    return std::find(kTypes.begin(), kTypes.end(), type) != kTypes.end();
}

void appendNumber(Bytes& bytes, uint64_t value, int width)
{
    for (int shift = 8 * (width - 1); shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(value >> shift));
}

std::string textOf(uint32_t type)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
        const auto letter = static_cast<char>(type >> shift);
        text += letter >= ' ' && letter <= '~' ? letter : '?';
    }
    return text;
}

/// The entries of a table: version and flags, a count, then rows of so many 32-bit numbers. Nothing if they are fewer
/// than said.
template <size_t kColumns>
std::optional<std::vector<std::array<uint32_t, kColumns>>> rowsOf(const IndexBox& box, size_t countAt = 4)
{
    const std::span<const uint8_t> bytes(box.content);
    if (bytes.size() < countAt + 4 || bytes[0] != 0)
        return std::nullopt;
    const uint64_t count = bigEndianNumber(bytes.subspan(countAt, 4));
    if (count > (bytes.size() - countAt - 4) / (4 * kColumns))
        return std::nullopt;
    std::vector<std::array<uint32_t, kColumns>> rows(count);
    size_t at = countAt + 4;
    for (auto& row : rows)
        for (uint32_t& number : row) {
            number = static_cast<uint32_t>(bigEndianNumber(bytes.subspan(at, 4)));
            at += 4;
        }
    return rows;
}

/// Version and flags, then the count.
IndexBox makeTable(uint32_t type, size_t count)
{
    IndexBox box{.type = type, .content = {}, .children = {}};
    appendNumber(box.content, 0, 4);
    appendNumber(box.content, count, 4);
    return box;
}

bool readSizes(const IndexBox& box, std::vector<SampleTable::Sample>& samples)
{
    constexpr size_t kCountAt = 8;
    const std::span<const uint8_t> bytes(box.content);
    if (bytes.size() < kCountAt + 4)
        return false;
    const auto common = static_cast<uint32_t>(bigEndianNumber(bytes.subspan(4, 4)));
    const uint64_t count = bigEndianNumber(bytes.subspan(kCountAt, 4));
    if (count > SampleTable::kMaxSamples)
        return false;
    if (common > 0) {
        samples.assign(count, {.size = common});
        return true;
    }
    const auto rows = rowsOf<1>(box, kCountAt);
    if (!rows)
        return false;
    for (const auto& [size] : *rows)
        samples.push_back({.size = size});
    return true;
}

bool readTimes(const IndexBox& box, std::vector<SampleTable::Sample>& samples)
{
    const auto runs = rowsOf<2>(box);
    if (!runs)
        return false;
    size_t index = 0;
    for (const auto& [count, duration] : *runs) {
        if (count > samples.size() - index)
            return false;
        for (const size_t end = index + count; index < end; ++index)
            samples[index].duration = duration;
    }
    return index == samples.size();
}

/// From the number of samples in each chunk.
bool placeSamples(const IndexBox& box, const std::vector<uint64_t>& offsets, std::vector<SampleTable::Sample>& samples)
{
    const auto runs = rowsOf<3>(box);
    if (!runs)
        return false;
    size_t index = 0;
    for (size_t run = 0; run < runs->size(); ++run) {
        const auto& [first, samplesPerChunk, description] = (*runs)[run];
        const uint64_t end = run + 1 < runs->size() ? (*runs)[run + 1][0] : offsets.size() + 1;
        if (first != (run == 0 ? 1 : (*runs)[run][0]) || first >= end || end > offsets.size() + 1 || description != 1)
            return false;
        for (uint64_t chunk = first; chunk < end; ++chunk) {
            uint64_t offset = offsets[chunk - 1];
            if (samplesPerChunk > samples.size() - index)
                return false;
            for (uint32_t i = 0; i < samplesPerChunk; ++i, ++index) {
                samples[index].offset = offset;
                offset += samples[index].size;
            }
        }
    }
    return index == samples.size();
}

bool readSyncSamples(const IndexBox& box, std::vector<SampleTable::Sample>& samples)
{
    const auto rows = rowsOf<1>(box);
    if (!rows)
        return false;
    for (auto& sample : samples)
        sample.isSync = false;
    for (const auto& [number] : *rows) {
        if (number < 1 || number > samples.size())
            return false;
        samples[number - 1].isSync = true;
    }
    return true;
}

std::optional<std::vector<IndexBox>> readBoxes(std::span<const uint8_t> bytes, int depth)
{
    std::vector<IndexBox> boxes;
    while (!bytes.empty()) {
        // QuickTime may end a box of boxes with a zero.
        if (bytes.size() == 4 && bigEndianNumber(bytes) == 0)
            break;
        const uint64_t size = bytes.size() < 8 ? 0 : bigEndianNumber(bytes.first(4));
        if (size < 8 || size > bytes.size() || depth > kMaxDepth)
            return std::nullopt;
        IndexBox box{
            .type = static_cast<uint32_t>(bigEndianNumber(bytes.subspan(4, 4))), .content = {}, .children = {}};
        const auto inside = bytes.subspan(8, size - 8);
        if (hasBoxesInside(box.type)) {
            auto children = readBoxes(inside, depth + 1);
            if (!children)
                return std::nullopt;
            box.children = std::move(*children);
        } else {
            box.content.assign(inside.begin(), inside.end());
        }
        boxes.push_back(std::move(box));
        bytes = bytes.subspan(size);
    }
    return boxes;
}

} // namespace

const IndexBox* IndexBox::child(uint32_t wanted) const
{
    const auto isWanted = [&](const IndexBox& box) { return box.type == wanted; };
    const auto found = std::find_if(children.begin(), children.end(), isWanted);
    return std::count_if(children.begin(), children.end(), isWanted) == 1 ? &*found : nullptr;
}

IndexBox* IndexBox::child(uint32_t wanted)
{
    return const_cast<IndexBox*>(std::as_const(*this).child(wanted));
}

uint64_t IndexBox::size() const
{
    uint64_t size = 8 + content.size();
    for (const IndexBox& box : children)
        size += box.size();
    return size;
}

void IndexBox::appendTo(Bytes& bytes) const
{
    // An index is read with a limit far below what would need a longer size.
    appendNumber(bytes, size(), 4);
    appendNumber(bytes, type, 4);
    bytes.insert(bytes.end(), content.begin(), content.end());
    for (const IndexBox& box : children)
        box.appendTo(bytes);
}

std::optional<std::vector<IndexBox>> readIndexBoxes(std::span<const uint8_t> bytes)
{
    return readBoxes(bytes, 0);
}

std::optional<std::vector<uint64_t>> readChunkOffsets(const IndexBox& box)
{
    std::vector<uint64_t> offsets;
    if (box.type == kLongOffsets) {
        const auto rows = rowsOf<2>(box);
        if (!rows)
            return std::nullopt;
        for (const auto& [high, low] : *rows)
            offsets.push_back(uint64_t{high} << 32 | low);
        return offsets;
    }
    const auto rows = rowsOf<1>(box);
    if (!rows)
        return std::nullopt;
    for (const auto& [offset] : *rows)
        offsets.push_back(offset);
    return offsets;
}

IndexBox makeChunkOffsets(std::span<const uint64_t> offsets, bool isLong)
{
    IndexBox box = makeTable(isLong ? kLongOffsets : kOffsets, offsets.size());
    for (const uint64_t offset : offsets)
        appendNumber(box.content, offset, isLong ? 8 : 4);
    return box;
}

std::optional<SampleTable> SampleTable::read(const IndexBox& stbl, std::string& why)
{
    constexpr std::array kKnown{kDescriptions, kTimes, kSizes, kChunks, kOffsets, kLongOffsets, kSyncSamples};
    for (const IndexBox& box : stbl.children)
        if (std::find(kKnown.begin(), kKnown.end(), box.type) == kKnown.end()) {
            why = localized("its samples are told of by a box \"{}\"", {textOf(box.type)});
            return std::nullopt;
        }
    const IndexBox* const descriptions = stbl.child(kDescriptions);
    const IndexBox* const times = stbl.child(kTimes);
    const IndexBox* const sizes = stbl.child(kSizes);
    const IndexBox* const chunks = stbl.child(kChunks);
    const IndexBox* const shortOffsets = stbl.child(kOffsets);
    const IndexBox* const offsetBox = shortOffsets ? shortOffsets : stbl.child(kLongOffsets);
    if (!descriptions || !times || !sizes || !chunks || !offsetBox) {
        why = localized("a table of its samples is missing or there twice");
        return std::nullopt;
    }
    SampleTable table;
    const auto offsets = readChunkOffsets(*offsetBox);
    const IndexBox* const syncSamples = stbl.child(kSyncSamples);
    const bool isRead = offsets && readSizes(*sizes, table.samples_) && readTimes(*times, table.samples_) &&
                        placeSamples(*chunks, *offsets, table.samples_) &&
                        (!syncSamples || readSyncSamples(*syncSamples, table.samples_));
    if (!isRead) {
        why = localized("the tables of its samples do not agree, or describe them in several ways");
        return std::nullopt;
    }
    return table;
}

bool SampleTable::repeatLongSamples(uint32_t longest, std::string& why)
{
    std::vector<Sample> repeated;
    for (const Sample& sample : samples_) {
        const uint32_t count = std::max<uint32_t>(1, sample.duration / longest + (sample.duration % longest > 0));
        if (count > 1 && !sample.isSync) {
            why = localized("a picture that is no key frame lasts too long");
            return false;
        }
        if (count > kMaxSamples - repeated.size()) {
            why = localized("it would have more than {} samples", {std::to_string(kMaxSamples)});
            return false;
        }
        Sample part = sample;
        for (uint32_t i = 0; i < count; ++i) {
            part.duration = sample.duration / count + (i < sample.duration % count);
            repeated.push_back(part);
        }
    }
    samples_ = std::move(repeated);
    return true;
}

void SampleTable::write(IndexBox& stbl, bool hasLongOffsets) const
{
    std::vector<std::array<uint32_t, 2>> runs;
    std::vector<uint64_t> offsets;
    IndexBox sizes = makeTable(kSizes, 0);
    appendNumber(sizes.content, samples_.size(), 4);
    std::vector<uint32_t> syncSamples;
    for (const Sample& sample : samples_) {
        if (runs.empty() || runs.back()[1] != sample.duration)
            runs.push_back({0, sample.duration});
        ++runs.back()[0];
        appendNumber(sizes.content, sample.size, 4);
        offsets.push_back(sample.offset);
        if (sample.isSync)
            syncSamples.push_back(static_cast<uint32_t>(offsets.size()));
    }
    IndexBox times = makeTable(kTimes, runs.size());
    for (const auto& [count, duration] : runs) {
        appendNumber(times.content, count, 4);
        appendNumber(times.content, duration, 4);
    }
    // From the first on, one sample a chunk, all described alike.
    IndexBox chunks = makeTable(kChunks, samples_.empty() ? 0 : 1);
    for (size_t i = 0; i < 3 && !samples_.empty(); ++i)
        appendNumber(chunks.content, 1, 4);

    const bool hasSyncSamples = stbl.child(kSyncSamples) != nullptr;
    std::erase_if(stbl.children, [](const IndexBox& box) { return box.type != kDescriptions; });
    stbl.children.push_back(std::move(times));
    if (hasSyncSamples) {
        stbl.children.push_back(makeTable(kSyncSamples, syncSamples.size()));
        for (const uint32_t number : syncSamples)
            appendNumber(stbl.children.back().content, number, 4);
    }
    stbl.children.push_back(std::move(chunks));
    stbl.children.push_back(std::move(sizes));
    stbl.children.push_back(makeChunkOffsets(offsets, hasLongOffsets));
}

} // namespace platform
