#include "platform/decoders/PNGPixels.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <libdeflate.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

using platform::ImageFile;
using platform::PNGHeader;
using platform::PNGPixels;

namespace {

std::vector<uint8_t> noise(size_t length)
{
    std::vector<uint8_t> bytes(length);
    std::mt19937 random(7);
    std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(random()); });
    return bytes;
}

void append(std::vector<uint8_t>& file, uint32_t number)
{
    for (int shift = 24; shift >= 0; shift -= 8)
        file.push_back(static_cast<uint8_t>(number >> shift));
}

void appendChunk(std::vector<uint8_t>& file, const char* name, const std::vector<uint8_t>& content)
{
    append(file, static_cast<uint32_t>(content.size()));
    const size_t start = file.size();
    file.insert(file.end(), name, name + 4);
    file.insert(file.end(), content.begin(), content.end());
    append(file, libdeflate_crc32(0, file.data() + start, file.size() - start));
}

/// Filters rows as the standard says, one byte at a time: its own counterpart of what is tested.
std::vector<uint8_t> filtered(const std::vector<uint8_t>& samples, size_t rowBytes, size_t step, int filter)
{
    std::vector<uint8_t> rows;
    for (size_t row = 0; row < samples.size() / rowBytes; ++row) {
        const int kind = filter < 0 ? static_cast<int>(row % 5) : filter;
        rows.push_back(static_cast<uint8_t>(kind));
        for (size_t x = 0; x < rowBytes; ++x) {
            const auto at = [&](size_t y, size_t column) -> int { return samples[y * rowBytes + column]; };
            const int left = x >= step ? at(row, x - step) : 0;
            const int up = row > 0 ? at(row - 1, x) : 0;
            const int corner = row > 0 && x >= step ? at(row - 1, x - step) : 0;
            const int guess = left + up - corner;
            const int paeth =
                std::abs(guess - left) <= std::abs(guess - up) && std::abs(guess - left) <= std::abs(guess - corner)
                    ? left
                : std::abs(guess - up) <= std::abs(guess - corner) ? up
                                                                   : corner;
            const int predicted[] = {0, left, up, (left + up) / 2, paeth};
            rows.push_back(static_cast<uint8_t>(at(row, x) - predicted[kind % 5]));
        }
    }
    return rows;
}

struct Kind {
    uint8_t color;
    size_t bands;
    uint8_t depth;
};

constexpr size_t kWidth = 37;
constexpr size_t kHeight = 23;

/// @param parts  chunks that the pixels are cut into
std::vector<uint8_t> pngFile(Kind kind, const std::vector<uint8_t>& rows, size_t parts = 1,
                             const std::vector<std::string>& before = {})
{
    std::vector<uint8_t> stream(libdeflate_zlib_compress_bound(nullptr, rows.size()));
    auto* const deflater = libdeflate_alloc_compressor(1);
    stream.resize(libdeflate_zlib_compress(deflater, rows.data(), rows.size(), stream.data(), stream.size()));
    libdeflate_free_compressor(deflater);

    std::vector<uint8_t> file = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    std::vector<uint8_t> header;
    append(header, kWidth);
    append(header, kHeight);
    header.insert(header.end(), {kind.depth, kind.color, 0, 0, 0});
    appendChunk(file, "IHDR", header);
    for (const auto& name : before)
        appendChunk(file, name.c_str(), {0, 1, 0, 2, 0, 3});
    for (size_t part = 0; part < parts; ++part) {
        const auto cut = [&](size_t number) {
            return stream.begin() + static_cast<ptrdiff_t>(stream.size() * number / parts);
        };
        appendChunk(file, "IDAT", {cut(part), cut(part + 1)});
    }
    appendChunk(file, "IEND", {});
    return file;
}

std::optional<std::vector<uint8_t>> rowsOf(const std::vector<uint8_t>& bytes)
{
    const auto file = ImageFile::withData(bytes, "test.png", nullptr);
    const auto pixels = PNGPixels::inFile(readPNGHeader(*file));
    if (!pixels)
        return std::nullopt;
    std::vector<uint8_t> rows;
    const bool isRead = pixels->read(*file, [&](const uint8_t* samples) {
        EXPECT_EQ(reinterpret_cast<uintptr_t>(samples) % (pixels->depth / 8), 0u) << "where numbers are read";
        rows.insert(rows.end(), samples, samples + pixels->bytesPerRow());
    });
    EXPECT_TRUE(isRead || rows.empty());
    return isRead ? std::optional(rows) : std::nullopt;
}

std::vector<uint8_t> inOrderOfMachine(std::vector<uint8_t> samples, Kind kind)
{
    for (size_t i = 0; kind.depth == 16 && i < samples.size(); i += 2) {
        const auto sample = static_cast<uint16_t>(samples[i] << 8 | samples[i + 1]);
        std::memcpy(&samples[i], &sample, sizeof sample);
    }
    return samples;
}

constexpr Kind kColors = {2, 3, 8};

std::vector<uint8_t> colorRows()
{
    return filtered(noise(kWidth * 3 * kHeight), kWidth * 3, 3, -1);
}

TEST(PNGPixels, UndoesEveryFilterOfEveryKind)
{
    for (const Kind kind : {Kind{0, 1, 8}, Kind{0, 1, 16}, Kind{2, 3, 8}, Kind{2, 3, 16}, Kind{4, 2, 8}, Kind{4, 2, 16},
                            Kind{6, 4, 8}, Kind{6, 4, 16}})
        for (int filter = -1; filter < 5; ++filter) {
            const size_t step = kind.bands * kind.depth / 8;
            const auto samples = noise(kWidth * step * kHeight);
            const auto rows = rowsOf(pngFile(kind, filtered(samples, kWidth * step, step, filter)));
            ASSERT_TRUE(rows) << int{kind.color} << " " << int{kind.depth} << " " << filter;
            EXPECT_EQ(*rows, inOrderOfMachine(samples, kind))
                << int{kind.color} << " " << int{kind.depth} << " " << filter;
        }
}

TEST(PNGPixels, PutsTogetherWhatIsCutIntoChunks)
{
    EXPECT_EQ(rowsOf(pngFile(kColors, colorRows(), 7)), rowsOf(pngFile(kColors, colorRows())));
    EXPECT_EQ(rowsOf(pngFile(kColors, colorRows(), 7, {"tEXt"})), noise(kWidth * 3 * kHeight));
}

TEST(PNGPixels, LeavesDamagedFilesToOthers)
{
    const auto whole = pngFile(kColors, colorRows(), 3);
    const auto cut = [&](size_t length) {
        return std::vector(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
    };
    for (const size_t length : {whole.size() / 4, whole.size() / 2, whole.size() - 20})
        EXPECT_FALSE(rowsOf(cut(length))) << length;
    auto changed = whole;
    // In the middle of the pixels: the sum at their end tells.
    changed[whole.size() / 2] ^= 1;
    EXPECT_FALSE(rowsOf(changed));

    auto rows = colorRows();
    rows[0] = 5;
    EXPECT_FALSE(rowsOf(pngFile(kColors, rows))) << "a filter that there is none of";
    rows = colorRows();
    rows.pop_back();
    EXPECT_FALSE(rowsOf(pngFile(kColors, rows))) << "too few rows";
    rows = colorRows();
    rows.push_back(0);
    EXPECT_FALSE(rowsOf(pngFile(kColors, rows))) << "too many rows";
}

TEST(PNGPixels, LeavesOtherKindsToOthers)
{
    const auto kindOf = [](const std::vector<uint8_t>& bytes) {
        return PNGPixels::inFile(readPNGHeader(*ImageFile::withData(bytes, "test.png", nullptr)));
    };
    const auto rows = colorRows();
    ASSERT_TRUE(kindOf(pngFile(kColors, rows)));
    EXPECT_FALSE(kindOf(pngFile({3, 1, 8}, rows))) << "palette";
    EXPECT_FALSE(kindOf(pngFile({0, 1, 4}, rows))) << "less than a byte";
    EXPECT_FALSE(kindOf(pngFile(kColors, rows, 1, {"tRNS"}))) << "a colour that stands for none";
    auto interlaced = pngFile(kColors, rows);
    interlaced[28] = 1;
    EXPECT_FALSE(kindOf(interlaced));
    EXPECT_FALSE(PNGPixels::inFile(PNGHeader{}));
}

TEST(PNGPixels, HoldsNoMoreThanItSays)
{
    PNGHeader header;
    header.depth = 8;
    header.samples = 1;
    header.width = PNGPixels::kMostBytes / 1000 - 1;
    header.height = 1000;
    EXPECT_TRUE(PNGPixels::inFile(header));
    header.height = 1001;
    EXPECT_FALSE(PNGPixels::inFile(header));
    // No product of these may come back as a small number.
    header.width = 0xFFFFFFFF;
    header.height = 0xFFFFFFFF;
    header.samples = 4;
    header.depth = 16;
    EXPECT_FALSE(PNGPixels::inFile(header));
}

} // namespace
