#include "platform/aac/AACBooks.h"

#include "platform/aac/AACTables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

using namespace platform;

namespace {

constexpr int kCannot = 1'000'000;

/// Bits of a band's values in a book, word by word.
int bitsInBook(std::span<const int32_t> values, int book)
{
    const int largestOfBook = kLargestOfBook[static_cast<size_t>(book)];
    int bits = 0;
    const size_t lines = book < kFirstPairBook ? 4 : 2;
    for (size_t i = 0; i < values.size(); i += lines) {
        size_t word = 0;
        for (size_t j = i; j < i + lines; ++j) {
            const int magnitude = std::abs(values[j]);
            if (magnitude > largestOfBook)
                return kCannot;
            const int digits = std::min(largestOfBook, 16);
            word = isSignedBook(book)
                       ? word * (2 * static_cast<size_t>(digits) + 1) + static_cast<size_t>(values[j] + digits)
                       : word * (static_cast<size_t>(digits) + 1) + static_cast<size_t>(std::min(magnitude, 16));
            bits += !isSignedBook(book) && magnitude > 0;
            if (book == kEscapeBook && magnitude >= 16)
                bits += 2 * std::bit_width(static_cast<unsigned>(magnitude)) - 5;
        }
        if (book > 0)
            bits += wordsOfAACBook(book)[word].length;
    }
    return bits;
}

/// Of the values, sections of a book and a length, and steps.
int bitsOfChoice(const AACChannel& channel, std::span<const int> books)
{
    int bits = 0;
    for (size_t band = 0; band < books.size(); ++band) {
        const auto values = channel.valuesOf(band);
        bits += bitsInBook(values, books[band]);
        const bool isSilent = std::ranges::all_of(values, [](int value) { return value == 0; });
        if (books[band] != 0)
            bits += isSilent ? 1 : 4;
        if (band % channel.bandsPerGroup() == 0 || books[band] != books[band - 1])
            bits += 4 + channel.lengthBits();
    }
    return bits;
}

/// By trying all books of all bands.
int leastBitsOf(const AACChannel& channel)
{
    std::vector<int> books(channel.bandCount());
    int least = std::numeric_limits<int>::max();
    for (;;) {
        least = std::min(least, bitsOfChoice(channel, books));
        size_t band = 0;
        while (band < books.size() && ++books[band] == kAACBooks)
            books[band++] = 0;
        if (band == books.size())
            return least;
    }
}

void fill(AACChannel& channel, std::minstd_rand& random)
{
    constexpr int kLargest[] = {0, 0, 1, 1, 2, 4, 5, 7, 12, 13, 16, 40, 8191};
    for (size_t band = 0; band < channel.bandCount(); ++band) {
        const int most = kLargest[random() % std::size(kLargest)];
        channel.largest[band] = 0;
        for (size_t line = channel.bandStarts[band]; line < channel.bandStarts[band + 1]; ++line) {
            const int value = static_cast<int>(random() % (2 * static_cast<unsigned>(most) + 1)) - most;
            channel.values[line] = value;
            channel.largest[band] = std::max(channel.largest[band], std::abs(value));
        }
    }
}

TEST(AACBooks, TakeAsFewBitsAsAnyOthersWould)
{
    std::minstd_rand random(1);
    AACChannel channel;
    for (const AACSequence sequence : {AACSequence::Long, AACSequence::Short}) {
        channel.sequence = sequence;
        channel.groups = channel.isShort() ? std::vector<uint8_t>{3, 5} : std::vector<uint8_t>{1};
        channel.bandStarts = {0, 4, 8, 24, 32};
        for (int attempt = 0; attempt < 20; ++attempt) {
            SCOPED_TRACE(attempt);
            fill(channel, random);
            const int least = leastBitsOf(channel);
            EXPECT_EQ(bitsOfValues(channel), least);
            chooseBooks(channel);
            const std::vector<int> books(channel.books.begin(), channel.books.begin() + 4);
            EXPECT_EQ(bitsOfChoice(channel, books), least);
        }
    }
}

TEST(AACBooks, CountTheLargestValuesOfTheWidestBands)
{
    AACChannel channel;
    channel.bandStarts = {0, 128, 288};
    for (size_t line = 0; line < 288; ++line)
        channel.values[line] = line % 2 == 0 ? 8191 : -8191;
    channel.largest[0] = channel.largest[1] = 8191;
    const std::vector<int> books = {kEscapeBook, kEscapeBook};
    EXPECT_EQ(bitsOfValues(channel), bitsOfChoice(channel, books));
    chooseBooks(channel);
    EXPECT_EQ(channel.books[0], kEscapeBook);
    EXPECT_EQ(channel.books[1], kEscapeBook);
}

} // namespace
