#include "platform/decoders/PNGPixels.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/foundation/Handle.h"
#include "platform/picturefiles/PNGChunks.h"

#include <libdeflate.h>

#include <array>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

namespace platform {
namespace {

// The bytes of one pixel side by side: enough for four samples of 16 bits.
using Bytes [[gnu::vector_size(8)]] = uint8_t;
using Words [[gnu::vector_size(16)]] = int16_t;
/// What may be read behind a row.
constexpr size_t kPadding = sizeof(Bytes);

/// A pixel, and what follows it: a load of just its bytes would wait for them to be put together.
Words load(const uint8_t* bytes)
{
    Bytes pixel{};
    std::memcpy(&pixel, bytes, sizeof pixel);
    return __builtin_convertvector(pixel, Words);
}

template <size_t kStep>
void store(Words words, uint8_t* bytes)
{
    const auto pixel = std::bit_cast<std::array<uint8_t, sizeof(Bytes)>>(__builtin_convertvector(words, Bytes));
    std::memcpy(bytes, pixel.data(), kStep);
}

Words magnitude(Words words)
{
    return words < 0 ? -words : words;
}

/// @name The filters of the PNG specification (ISO/IEC 15948, clause 9), which take a pixel from its neighbours: undone
/// @param above  the row above, whose filter is undone
/// @{
template <size_t kStep>
void undoSub(std::span<uint8_t> row)
{
    Words left{};
    for (size_t x = 0; x < row.size(); x += kStep) {
        left = (left + load(&row[x])) & 0xFF;
        store<kStep>(left, &row[x]);
    }
}

void undoUp(std::span<uint8_t> row, const uint8_t* above)
{
    for (size_t x = 0; x < row.size(); ++x)
        row[x] = static_cast<uint8_t>(row[x] + above[x]);
}

template <size_t kStep>
void undoAverage(std::span<uint8_t> row, const uint8_t* above)
{
    Words left{};
    for (size_t x = 0; x < row.size(); x += kStep) {
        left = (load(&row[x]) + ((left + load(above + x)) >> 1)) & 0xFF;
        store<kStep>(left, &row[x]);
    }
}

template <size_t kStep>
void undoPaeth(std::span<uint8_t> row, const uint8_t* above)
{
    Words left{};
    Words aboveLeft{};
    for (size_t x = 0; x < row.size(); x += kStep) {
        const Words up = load(above + x);
        const Words toLeft = magnitude(up - aboveLeft);
        const Words toUp = magnitude(left - aboveLeft);
        const Words toAboveLeft = magnitude(left + up - aboveLeft - aboveLeft);
        const Words other = toUp <= toAboveLeft ? up : aboveLeft;
        const Words nearest = ((toLeft <= toUp) & (toLeft <= toAboveLeft)) ? left : other;
        left = (load(&row[x]) + nearest) & 0xFF;
        store<kStep>(left, &row[x]);
        aboveLeft = up;
    }
}

template <size_t kStep>
bool undoFilter(uint8_t filter, std::span<uint8_t> row, const uint8_t* above)
{
    switch (filter) {
    case 0:
        return true;
    case 1:
        undoSub<kStep>(row);
        return true;
    case 2:
        undoUp(row, above);
        return true;
    case 3:
        undoAverage<kStep>(row, above);
        return true;
    case 4:
        undoPaeth<kStep>(row, above);
        return true;
    default:
        return false;
    }
}
/// @}

/// By the bytes that lie between a sample and the same one of the next pixel.
using UndoFilter = bool (*)(uint8_t filter, std::span<uint8_t> row, const uint8_t* above);
constexpr std::array<UndoFilter, 9> kUndoFilter = {nullptr, undoFilter<1>, undoFilter<2>, undoFilter<3>, undoFilter<4>,
                                                   nullptr, undoFilter<6>, nullptr,       undoFilter<8>};

/// What stands in the chunks of pixels, one behind another; empty where there are none. Most files have many of them,
/// which follow each other.
std::vector<uint8_t> compressedPixels(ImageFile& file)
{
    const auto bytes = file.all();
    std::vector<uint8_t> pixels;
    bool isWhole = true;
    const auto take = [&](const PNGChunk& chunk) {
        isWhole = chunk.begin <= bytes.size() && chunk.length <= bytes.size() - chunk.begin;
        if (!isWhole || chunk.name != fourCharacterCode("IDAT"))
            return isWhole && pixels.empty();
        const auto content = bytes.subspan(chunk.begin);
        if (pixels.empty())
            pixels.reserve(content.size());
        pixels.insert(pixels.end(), content.begin(), content.begin() + static_cast<ptrdiff_t>(chunk.length));
        return true;
    };
    return forEachPNGChunk(file, take) && isWhole ? pixels : std::vector<uint8_t>();
}

/// The rows with their filters; null where the stream does not hold just these, with the right sum at its end.
Handle<uint8_t, std::free> inflate(std::span<const uint8_t> stream, size_t length)
{
    const Handle<libdeflate_decompressor, libdeflate_free_decompressor> inflater(libdeflate_alloc_decompressor());
    Handle<uint8_t, std::free> rows(static_cast<uint8_t*>(std::malloc(length + kPadding)));
    // Asked for no length, the library insists on the one that there is room for.
    if (!inflater || !rows ||
        libdeflate_zlib_decompress(inflater.get(), stream.data(), stream.size(), rows.get(), length, nullptr) !=
            LIBDEFLATE_SUCCESS)
        return nullptr;
    return rows;
}

/// Samples of 16 bits, which are stored with the larger half first, and anywhere.
void takeSamples(std::span<const uint8_t> row, std::vector<uint16_t>& samples)
{
    for (size_t x = 0; x < samples.size(); ++x)
        samples[x] = static_cast<uint16_t>(row[2 * x] << 8 | row[2 * x + 1]);
}

} // namespace

std::optional<PNGPixels> PNGPixels::inFile(const PNGHeader& header)
{
    const bool isPlain = !header.isInterlaced && !header.hasPalette && !header.hasColorForNone && header.width > 0 &&
                         header.height > 0 && (header.depth == 8 || header.depth == 16);
    PNGPixels pixels{header.width, header.height, header.samples, header.depth};
    if (!isPlain || header.width > kMostBytes / header.height || pixels.inflatedBytes() > kMostBytes)
        return std::nullopt;
    return pixels;
}

bool PNGPixels::read(ImageFile& file, const std::function<void(const uint8_t* samples)>& takeRow) const
{
    const auto compressed = compressedPixels(file);
    const size_t rowBytes = bytesPerRow();
    const auto rows = inflate(compressed, static_cast<size_t>(inflatedBytes()));
    if (!rows)
        return false;
    const std::vector<uint8_t> nothing(rowBytes + kPadding);
    const UndoFilter undo = kUndoFilter[bands * depth / 8];
    const uint8_t* above = nothing.data();
    for (size_t y = 0; y < height; ++y) {
        uint8_t* const row = rows.get() + y * (rowBytes + 1);
        if (!undo(row[0], {row + 1, rowBytes}, above))
            return false;
        above = row + 1;
    }
    std::vector<uint16_t> samples(depth == 16 ? rowBytes / sizeof(uint16_t) : 0);
    for (size_t y = 0; y < height; ++y) {
        const std::span<const uint8_t> row(rows.get() + y * (rowBytes + 1) + 1, rowBytes);
        takeSamples(row, samples);
        takeRow(depth == 16 ? reinterpret_cast<const uint8_t*>(samples.data()) : row.data());
    }
    return true;
}

} // namespace platform
