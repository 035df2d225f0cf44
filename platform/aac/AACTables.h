#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace platform {

/// Where the scale factor bands of a window start, in lines; the last entry is the end.
using AACBandStarts = std::span<const uint16_t>;

/// Bands of a window of 1024 lines.
AACBandStarts longBandsOfAAC(int sampleRateHz);
/// Bands of a window of 128 lines.
AACBandStarts shortBandsOfAAC(int sampleRateHz);

/// A word of a variable length code; its last bit is the lowest.
struct AACCodeWord {
    uint32_t bits = 0;
    uint8_t length = 0;
};

/// Words of a difference of scale factors, by the difference plus 60.
std::span<const AACCodeWord> scaleFactorWordsOfAAC();

/// Code books of lines: 1 to 4 code four lines a word, the others two.
inline constexpr int kFirstPairBook = 5;
inline constexpr int kEscapeBook = 11;
inline constexpr int kAACBooks = 12;

/// The largest magnitude that a book can carry; larger ones in the last book are escapes.
inline constexpr std::array<int, kAACBooks> kLargestOfBook = {0, 1, 1, 2, 2, 4, 4, 7, 7, 12, 12, 8191};

/// Whether a book's words carry the signs, which else follow each word.
constexpr bool isSignedBook(int book)
{
    return book == 1 || book == 2 || book == 5 || book == 6;
}

/// A book's words, by the magnitudes or signed values as digits, the first line highest.
std::span<const AACCodeWord> wordsOfAACBook(int book);

/// Bits in eight books at once, small enough for 16 bits as long as they are those of one band.
using AACCosts [[gnu::vector_size(16)]] = int16_t;

/// Costs of one group of lines, signs included, escapes not: in book i as entry i if it has words of four lines, in
/// book kFirstPairBook + i as entry i + 1 if it has words of two. Books that cannot carry the group, and other entries,
/// have any number.
///
/// Of four lines, by digits of -1 to 1.
const std::array<AACCosts, 81>& costsOfSmallQuads();
/// Of four lines in books 3 and 4, by digits of 0 to 2.
const std::array<AACCosts, 81>& costsOfQuads();
/// Of two lines, by digits of -4 to 4.
const std::array<AACCosts, 81>& costsOfSmallPairs();
/// Of two lines, by digits of 0 to 16.
const std::array<AACCosts, 289>& costsOfPairs();

} // namespace platform
