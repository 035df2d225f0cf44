#include "platform/aac/AACTables.h"

#include <cstddef>
#include <cstdlib>
#include <vector>

namespace platform {
namespace {

// Bands and code books are those that every decoder of AAC knows.

constexpr uint16_t kLong48000[] = {0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,  64,  72,  80,  88,
                                   96,  108, 120, 132, 144, 160, 176, 196, 216, 240, 264, 292, 320, 352, 384, 416, 448,
                                   480, 512, 544, 576, 608, 640, 672, 704, 736, 768, 800, 832, 864, 896, 928, 1024};
constexpr uint16_t kLong32000[] = {0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  48,  56,
                                   64,  72,  80,  88,  96,  108, 120, 132, 144, 160, 176, 196, 216,
                                   240, 264, 292, 320, 352, 384, 416, 448, 480, 512, 544, 576, 608,
                                   640, 672, 704, 736, 768, 800, 832, 864, 896, 928, 960, 992, 1024};
constexpr uint16_t kLong24000[] = {0,   4,   8,   12,  16,  20,  24,  28,  32,  36,  40,  44,  52,  60,  68,  76,
                                   84,  92,  100, 108, 116, 124, 136, 148, 160, 172, 188, 204, 220, 240, 260, 284,
                                   308, 336, 364, 396, 432, 468, 508, 552, 600, 652, 704, 768, 832, 896, 960, 1024};
constexpr uint16_t kLong16000[] = {0,   8,   16,  24,  32,  40,  48,  56,  64,  72,  80,  88,  100, 112, 124,
                                   136, 148, 160, 172, 184, 196, 212, 228, 244, 260, 280, 300, 320, 344, 368,
                                   396, 424, 456, 492, 532, 572, 616, 664, 716, 772, 832, 896, 960, 1024};
constexpr uint16_t kLong8000[] = {0,   12,  24,  36,  48,  60,  72,  84,  96,  108, 120, 132, 144, 156,
                                  172, 188, 204, 220, 236, 252, 268, 288, 308, 328, 348, 372, 396, 420,
                                  448, 476, 508, 544, 580, 620, 664, 712, 764, 820, 880, 944, 1024};
constexpr uint16_t kShort48000[] = {0, 4, 8, 12, 16, 20, 28, 36, 44, 56, 68, 80, 96, 112, 128};
constexpr uint16_t kShort24000[] = {0, 4, 8, 12, 16, 20, 24, 28, 36, 44, 52, 64, 76, 92, 108, 128};
constexpr uint16_t kShort16000[] = {0, 4, 8, 12, 16, 20, 24, 28, 32, 40, 48, 60, 72, 88, 108, 128};
constexpr uint16_t kShort8000[] = {0, 4, 8, 12, 16, 20, 24, 28, 36, 44, 52, 60, 72, 88, 108, 128};

// A book is what its words mean, in the order of the words, and how many words there are of 1 bit, of 2 bits and so on.
// Words count up from 0 and are prolonged with zeros, so no more need be told.
constexpr uint16_t kScaleFactorOrder[] = {
    60, 59, 61,  58,  62,  57,  63,  56,  64,  55,  65,  66,  54,  67,  53,  68,  52,  69,  51, 70, 50,
    49, 71, 72,  48,  73,  47,  74,  46,  76,  75,  77,  78,  45,  43,  44,  79,  42,  41,  80, 40, 81,
    39, 82, 38,  83,  37,  35,  85,  33,  36,  34,  84,  32,  87,  89,  30,  31,  86,  29,  26, 27, 28,
    24, 88, 25,  22,  23,  90,  21,  19,  3,   1,   2,   0,   98,  99,  100, 101, 102, 117, 97, 91, 92,
    93, 94, 95,  96,  104, 111, 112, 113, 114, 115, 116, 110, 105, 106, 107, 108, 109, 118, 6,  8,  9,
    10, 5,  103, 120, 119, 4,   7,   15,  16,  18,  20,  17,  11,  12,  14,  13,
};
constexpr uint8_t kScaleFactorCounts[] = {1, 0, 1, 3, 2, 4, 3, 5, 4, 6, 6, 6, 5, 8, 4, 7, 3, 7, 46};
constexpr uint16_t kOrder1[] = {
    40, 67, 13, 39, 49, 41, 37, 43, 31, 58, 22, 38, 46, 34, 42, 76, 36, 4,  28, 64, 48, 16, 44, 70, 32, 52, 50,
    10, 68, 12, 66, 14, 30, 73, 19, 61, 51, 47, 35, 33, 55, 65, 45, 25, 15, 7,  29, 59, 57, 21, 1,  27, 53, 69,
    77, 23, 79, 5,  9,  75, 63, 11, 3,  17, 71, 60, 20, 24, 56, 80, 8,  72, 6,  0,  74, 62, 26, 18, 2,  54, 78,
};
constexpr uint8_t kCounts1[] = {1, 0, 0, 0, 8, 0, 24, 0, 24, 8, 16};
constexpr uint16_t kOrder2[] = {
    40, 67, 13, 41, 37, 39, 31, 43, 49, 34, 22, 46, 42, 48, 38, 12, 58, 64, 4,  36, 70, 68, 32, 16, 50, 28, 14,
    30, 10, 76, 52, 44, 66, 47, 65, 19, 33, 61, 75, 71, 25, 29, 79, 15, 1,  11, 55, 73, 59, 21, 7,  17, 5,  3,
    27, 69, 63, 45, 53, 23, 9,  51, 57, 35, 77, 60, 20, 56, 0,  24, 26, 80, 6,  62, 18, 8,  72, 54, 2,  74, 78,
};
constexpr uint8_t kCounts2[] = {0, 0, 1, 1, 7, 24, 15, 19, 14};
constexpr uint16_t kOrder3[] = {
    0,  27, 1,  9,  3,  36, 4,  12, 10, 30, 13, 28, 39, 40, 31, 37, 54, 2,  5,  63, 48, 7,  16, 45, 14, 66, 6,
    21, 15, 18, 11, 57, 49, 22, 42, 43, 46, 33, 34, 19, 67, 41, 64, 32, 8,  17, 75, 51, 29, 55, 25, 72, 52, 38,
    58, 44, 76, 24, 23, 35, 73, 69, 78, 26, 79, 70, 50, 53, 20, 60, 47, 61, 68, 65, 80, 77, 71, 59, 56, 74, 62,
};
constexpr uint8_t kCounts3[] = {1, 0, 0, 4, 2, 6, 3, 5, 15, 15, 8, 9, 3, 3, 5, 2};
constexpr uint16_t kOrder4[] = {
    40, 13, 37, 39, 31, 27, 36, 0,  4,  30, 28, 12, 1,  10, 3,  9,  67, 43, 49, 41, 66, 64, 48, 58, 16, 14, 42,
    22, 32, 46, 38, 34, 63, 57, 45, 55, 11, 21, 5,  15, 19, 29, 7,  33, 54, 2,  18, 6,  52, 76, 70, 44, 50, 68,
    51, 75, 69, 25, 17, 73, 23, 61, 35, 79, 47, 59, 65, 53, 71, 77, 24, 72, 8,  60, 20, 56, 80, 26, 78, 74, 62,
};
constexpr uint8_t kCounts4[] = {0, 0, 0, 10, 6, 0, 9, 21, 8, 14, 11, 2};
constexpr uint16_t kOrder5[] = {
    40, 31, 49, 41, 39, 48, 32, 30, 50, 22, 42, 58, 38, 21, 59, 29, 51, 23, 57, 33, 47, 13, 67, 37, 43, 12, 52,
    68, 28, 14, 66, 46, 34, 24, 60, 20, 56, 11, 65, 25, 55, 69, 61, 15, 19, 36, 4,  77, 76, 3,  44, 75, 27, 53,
    35, 5,  45, 64, 10, 16, 26, 2,  78, 54, 62, 70, 6,  18, 74, 63, 1,  7,  71, 17, 79, 73, 9,  72, 8,  80, 0,
};
constexpr uint8_t kCounts5[] = {1, 0, 0, 4, 4, 0, 4, 12, 12, 12, 18, 10, 4};
constexpr uint16_t kOrder6[] = {
    40, 49, 39, 41, 31, 50, 32, 48, 30, 57, 59, 23, 21, 22, 33, 58, 47, 51, 38, 29, 42, 56, 24, 20, 60, 14, 68,
    66, 34, 12, 52, 46, 28, 67, 13, 37, 43, 69, 11, 25, 61, 65, 55, 19, 15, 70, 64, 10, 16, 45, 27, 77, 5,  3,
    53, 75, 35, 36, 6,  2,  62, 18, 4,  78, 74, 26, 76, 54, 44, 9,  17, 63, 73, 71, 79, 7,  1,  80, 8,  0,  72,
};
constexpr uint8_t kCounts6[] = {0, 0, 0, 9, 0, 16, 13, 8, 23, 8, 4};
constexpr uint16_t kOrder7[] = {
    0,  8,  1,  9,  17, 10, 16, 2,  25, 11, 18, 24, 3,  19, 26, 12, 33, 13, 41, 27, 20, 4,
    32, 34, 21, 42, 5,  49, 40, 14, 35, 29, 28, 43, 22, 50, 15, 30, 6,  48, 36, 57, 37, 58,
    44, 51, 23, 59, 52, 45, 38, 31, 56, 7,  53, 46, 60, 39, 47, 61, 62, 54, 55, 63,
};
constexpr uint8_t kCounts7[] = {1, 0, 2, 1, 0, 4, 5, 10, 14, 15, 8, 4};
constexpr uint16_t kOrder8[] = {
    9,  17, 8,  10, 1,  18, 0,  16, 2,  25, 11, 26, 19, 27, 33, 12, 34, 20, 24, 3,  35, 28,
    42, 41, 21, 13, 43, 29, 36, 44, 4,  37, 32, 22, 50, 49, 14, 30, 51, 45, 40, 52, 5,  38,
    57, 58, 23, 53, 59, 15, 46, 31, 54, 60, 48, 39, 6,  61, 62, 55, 47, 56, 7,  63,
};
constexpr uint8_t kCounts8[] = {0, 0, 1, 5, 7, 10, 14, 15, 8, 4};
constexpr uint16_t kOrder9[] = {
    0,   13,  1,   14,  27,  15,  26,  2,   40,  28,  16,  39,  3,   29,  41,  17,  53,  30,  18,  54,  42,  4,
    52,  66,  31,  19,  43,  67,  79,  55,  5,   32,  65,  20,  44,  21,  105, 56,  68,  80,  92,  6,   106, 34,
    45,  33,  57,  118, 22,  93,  78,  69,  81,  107, 7,   119, 47,  58,  46,  8,   131, 82,  35,  70,  104, 91,
    94,  132, 120, 108, 23,  95,  83,  71,  60,  59,  48,  144, 73,  117, 109, 133, 36,  9,   145, 121, 84,  157,
    61,  110, 24,  122, 134, 72,  96,  37,  25,  158, 146, 49,  74,  85,  111, 147, 10,  97,  159, 130, 135, 62,
    86,  38,  123, 124, 63,  143, 87,  50,  75,  112, 99,  161, 51,  148, 98,  160, 149, 136, 64,  100, 76,  11,
    162, 88,  156, 137, 77,  101, 125, 12,  150, 113, 126, 138, 102, 163, 89,  115, 151, 103, 90,  114, 139, 116,
    127, 128, 129, 141, 165, 140, 152, 164, 153, 166, 167, 142, 154, 155, 168,
};
constexpr uint8_t kCounts9[] = {1, 0, 2, 1, 0, 4, 3, 8, 11, 20, 31, 38, 32, 14, 4};
constexpr uint16_t kOrder10[] = {
    14,  15, 27,  28,  13,  1,   16,  41,  40,  29,  42,  26,  2,   30,  54,  17,  53,  0,   55,  43,  39,  3,
    56,  31, 67,  18,  66,  68,  44,  69,  57,  80,  32,  81,  52,  79,  4,   19,  45,  70,  82,  58,  83,  93,
    46,  33, 71,  106, 94,  65,  92,  5,   105, 20,  107, 95,  59,  34,  84,  96,  21,  47,  108, 60,  72,  109,
    73,  97, 85,  119, 78,  86,  120, 48,  118, 35,  6,   110, 121, 61,  132, 22,  98,  111, 122, 99,  133, 74,
    134, 36, 131, 49,  123, 87,  104, 62,  91,  145, 100, 146, 136, 23,  144, 124, 7,   112, 135, 50,  75,  113,
    148, 8,  147, 37,  101, 88,  137, 63,  24,  158, 125, 159, 149, 76,  160, 150, 161, 51,  89,  117, 138, 130,
    157, 9,  64,  126, 162, 38,  114, 127, 25,  151, 163, 102, 77,  90,  139, 115, 164, 10,  103, 143, 140, 152,
    153, 11, 154, 128, 141, 156, 116, 165, 142, 129, 155, 167, 12,  166, 168,
};
constexpr uint8_t kCounts10[] = {0, 0, 0, 3, 8, 14, 17, 25, 31, 41, 22, 8};
constexpr uint16_t kOrder11[] = {
    0,   18,  288, 17,  1,   35,  19,  36,  20,  52,  53,  34,  37,  2,   54,  69,  21,  70,  38,  71,  55,  51,  3,
    86,  87,  39,  72,  22,  88,  56,  89,  73,  104, 40,  103, 105, 57,  23,  84,  67,  277, 275, 276, 106, 278, 68,
    74,  4,   50,  90,  101, 279, 274, 280, 41,  121, 58,  107, 91,  118, 282, 122, 120, 281, 135, 33,  24,  75,  283,
    123, 284, 152, 273, 108, 169, 42,  92,  186, 285, 139, 138, 59,  85,  286, 203, 124, 76,  109, 125, 5,   140, 287,
    220, 25,  137, 254, 93,  237, 60,  141, 126, 43,  142, 155, 156, 271, 77,  110, 102, 157, 94,  143, 127, 26,  173,
    6,   172, 154, 158, 78,  44,  159, 61,  111, 174, 144, 175, 160, 190, 27,  119, 176, 128, 62,  95,  171, 79,  189,
    223, 112, 224, 45,  272, 96,  192, 191, 161, 129, 145, 16,  81,  7,   64,  193, 222, 225, 207, 47,  226, 146, 113,
    178, 177, 240, 208, 28,  80,  188, 63,  30,  206, 130, 65,  97,  98,  242, 82,  194, 241, 209, 227, 210, 136, 195,
    46,  162, 243, 115, 180, 257, 147, 163, 244, 179, 99,  196, 239, 48,  114, 29,  229, 8,   228, 131, 211, 132, 258,
    205, 116, 49,  260, 259, 31,  164, 83,  245, 149, 230, 148, 100, 66,  181, 197, 212, 261, 262, 150, 256, 133, 153,
    9,   166, 165, 213, 246, 183, 247, 214, 117, 134, 167, 263, 198, 201, 32,  182, 184, 232, 231, 200, 199, 151, 249,
    233, 217, 264, 248, 170, 215, 168, 10,  216, 187, 218, 185, 234, 13,  250, 265, 266, 202, 251, 221, 11,  235, 267,
    268, 219, 238, 252, 236, 204, 253, 14,  12,  269, 255, 15,  270,
};
constexpr uint8_t kCounts11[] = {0, 0, 0, 2, 6, 7, 16, 59, 55, 95, 43, 6};

struct Book {
    std::span<const uint16_t> order;
    std::span<const uint8_t> counts;
};

constexpr std::array<Book, kAACBooks> kBooks = {{{kScaleFactorOrder, kScaleFactorCounts},
                                                 {kOrder1, kCounts1},
                                                 {kOrder2, kCounts2},
                                                 {kOrder3, kCounts3},
                                                 {kOrder4, kCounts4},
                                                 {kOrder5, kCounts5},
                                                 {kOrder6, kCounts6},
                                                 {kOrder7, kCounts7},
                                                 {kOrder8, kCounts8},
                                                 {kOrder9, kCounts9},
                                                 {kOrder10, kCounts10},
                                                 {kOrder11, kCounts11}}};

std::vector<AACCodeWord> wordsOf(const Book& book)
{
    std::vector<AACCodeWord> words(book.order.size());
    uint32_t bits = 0;
    size_t next = 0;
    for (size_t length = 1; length <= book.counts.size(); ++length) {
        bits <<= 1;
        for (int i = 0; i < book.counts[length - 1]; ++i)
            words[book.order[next++]] = {bits++, static_cast<uint8_t>(length)};
    }
    return words;
}

std::span<const AACCodeWord> wordsOfBook(size_t index)
{
    static const auto books = [] {
        std::array<std::vector<AACCodeWord>, kAACBooks> all;
        for (size_t i = 0; i < all.size(); ++i)
            all[i] = wordsOf(kBooks[i]);
        return all;
    }();
    return books[index];
}

/// Costs of every group of `lines` lines with digits from `lowest` to `highest`.
template <size_t size>
std::array<AACCosts, size> costsOf(int lines, int lowest, int highest)
{
    std::array<AACCosts, size> costs{};
    const int digits = highest - lowest + 1;
    const int firstBook = lines == 4 ? 1 : kFirstPairBook;
    const int endBook = lines == 4 ? kFirstPairBook : kAACBooks;
    for (size_t index = 0; index < size; ++index) {
        for (int book = firstBook; book < endBook; ++book) {
            const int largest = book == kEscapeBook ? 16 : kLargestOfBook[static_cast<size_t>(book)];
            const int offset = isSignedBook(book) ? largest : 0;
            const int base = isSignedBook(book) ? 2 * largest + 1 : largest + 1;
            int rest = static_cast<int>(index);
            int word = 0;
            int scale = 1;
            int signs = 0;
            bool fits = true;
            for (int line = 0; line < lines; ++line) {
                const int value = rest % digits + lowest;
                rest /= digits;
                fits = fits && std::abs(value) <= largest;
                word += scale * (isSignedBook(book) ? value + offset : std::abs(value));
                scale *= base;
                signs += value != 0 && !isSignedBook(book);
            }
            if (fits)
                costs[index][book - firstBook + 1] = static_cast<int16_t>(
                    wordsOfBook(static_cast<size_t>(book))[static_cast<size_t>(word)].length + signs);
        }
    }
    return costs;
}

} // namespace

AACBandStarts longBandsOfAAC(int sampleRateHz)
{
    switch (sampleRateHz) {
    case 48000:
    case 44100:
        return kLong48000;
    case 32000:
        return kLong32000;
    case 24000:
    case 22050:
        return kLong24000;
    case 16000:
    case 12000:
    case 11025:
        return kLong16000;
    default:
        return kLong8000;
    }
}

AACBandStarts shortBandsOfAAC(int sampleRateHz)
{
    switch (sampleRateHz) {
    case 48000:
    case 44100:
    case 32000:
        return kShort48000;
    case 24000:
    case 22050:
        return kShort24000;
    case 16000:
    case 12000:
    case 11025:
        return kShort16000;
    default:
        return kShort8000;
    }
}

std::span<const AACCodeWord> scaleFactorWordsOfAAC()
{
    return wordsOfBook(0);
}

std::span<const AACCodeWord> wordsOfAACBook(int book)
{
    return wordsOfBook(static_cast<size_t>(book));
}

const std::array<AACCosts, 81>& costsOfSmallQuads()
{
    static const auto costs = costsOf<81>(4, -1, 1);
    return costs;
}

const std::array<AACCosts, 81>& costsOfQuads()
{
    static const auto costs = costsOf<81>(4, 0, 2);
    return costs;
}

const std::array<AACCosts, 81>& costsOfSmallPairs()
{
    static const auto costs = costsOf<81>(2, -4, 4);
    return costs;
}

const std::array<AACCosts, 289>& costsOfPairs()
{
    static const auto costs = costsOf<289>(2, 0, 16);
    return costs;
}

} // namespace platform
