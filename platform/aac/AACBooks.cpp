#include "platform/aac/AACBooks.h"

#include "platform/aac/AACTables.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <span>

namespace platform {
namespace {

/// More than any band takes in a book that can carry it, and not too much for sums of 16 bits.
constexpr int16_t kNever = 10000;
constexpr AACCosts kLargestOfQuads = {0, 1, 1, 2, 2, -1, -1, -1};
constexpr AACCosts kLargestOfPairs = {-1, 4, 4, 7, 7, 12, 12, 8191};
/// The entry of the book with escapes.
constexpr int kEscapeEntry = kEscapeBook - kFirstPairBook + 1;

/// Bits in every book.
struct BookCosts {
    AACCosts quads;
    AACCosts pairs;

    int ofBook(int book) const { return book < kFirstPairBook ? quads[book] : pairs[book - kFirstPairBook + 1]; }
};

/// By band: what a channel takes up to the band's end if that is in one book or another, more than in the best.
using Excesses = std::array<BookCosts, AACChannel::kMostBands>;

AACCosts same(int value)
{
    return AACCosts{} + static_cast<int16_t>(value);
}

AACCosts smaller(AACCosts first, AACCosts second)
{
    return first < second ? first : second;
}

/// The smallest of all, in every place.
AACCosts smallestOf(const BookCosts& costs)
{
    AACCosts least = smaller(costs.quads, costs.pairs);
    least = smaller(least, __builtin_shufflevector(least, least, 4, 5, 6, 7, 0, 1, 2, 3));
    least = smaller(least, __builtin_shufflevector(least, least, 2, 3, 0, 1, 6, 7, 4, 5));
    return smaller(least, __builtin_shufflevector(least, least, 1, 0, 3, 2, 5, 4, 7, 6));
}

int bookOfLeast(const BookCosts& costs)
{
    int best = 0;
    for (int book = 1; book < kAACBooks; ++book) {
        if (costs.ofBook(book) < costs.ofBook(best))
            best = book;
    }
    return best;
}

AACCosts costsOfFours(std::span<const int32_t> values, int largest)
{
    AACCosts sum{};
    if (largest <= 1) {
        const auto& table = costsOfSmallQuads();
        const auto costs = [&](int a, int b, int c, int d) {
            return table[static_cast<size_t>((((a + 1) * 3 + b + 1) * 3 + c + 1) * 3 + d + 1)];
        };
        if (largest == 0)
            return costs(0, 0, 0, 0) * same(static_cast<int>(values.size() / 4));
        for (size_t i = 0; i < values.size(); i += 4)
            sum += costs(values[i], values[i + 1], values[i + 2], values[i + 3]);
    } else if (largest == 2) {
        const auto& table = costsOfQuads();
        const auto digit = [&](size_t i) { return std::abs(values[i]); };
        for (size_t i = 0; i < values.size(); i += 4)
            sum += table[static_cast<size_t>(((digit(i) * 3 + digit(i + 1)) * 3 + digit(i + 2)) * 3 + digit(i + 3))];
    }
    return sum;
}

/// Bits of a magnitude of 16 or more behind its word.
int escapeBits(int magnitude)
{
    return 2 * std::bit_width(static_cast<unsigned>(magnitude)) - 5;
}

AACCosts costsOfTwos(std::span<const int32_t> values, int largest)
{
    AACCosts sum{};
    if (largest <= 4) {
        const auto& table = costsOfSmallPairs();
        const auto costs = [&](int a, int b) { return table[static_cast<size_t>((a + 4) * 9 + b + 4)]; };
        if (largest == 0)
            return costs(0, 0) * same(static_cast<int>(values.size() / 2));
        for (size_t i = 0; i < values.size(); i += 2)
            sum += costs(values[i], values[i + 1]);
        return sum;
    }
    const auto& table = costsOfPairs();
    int escapes = 0;
    for (size_t i = 0; i < values.size(); i += 2) {
        const int first = std::abs(values[i]);
        const int second = std::abs(values[i + 1]);
        sum += table[static_cast<size_t>(std::min(first, 16) * 17 + std::min(second, 16))];
        if (first >= 16)
            escapes += escapeBits(first);
        if (second >= 16)
            escapes += escapeBits(second);
    }
    sum[kEscapeEntry] = static_cast<int16_t>(sum[kEscapeEntry] + escapes);
    return sum;
}

/// Of a band's values and of its step.
BookCosts costsOfBand(const AACChannel& channel, size_t band)
{
    // Book 0 has no steps.
    constexpr AACCosts kHasStep = {0, 1, 1, 1, 1, 1, 1, 1};
    const auto values = channel.valuesOf(band);
    const int largest = channel.largest[band];
    // A difference of steps, or one of nothing.
    const AACCosts stepBits = same(largest == 0 ? 1 : 4);
    const auto ifTooSmall = [largest](AACCosts largestOfBooks) {
        return (largestOfBooks < same(largest)) & same(kNever);
    };
    return {costsOfFours(values, largest) + kHasStep * stepBits + ifTooSmall(kLargestOfQuads),
            costsOfTwos(values, largest) + stepBits + ifTooSmall(kLargestOfPairs)};
}

/// Of a section's book and length.
int sectionBitsOf(const AACChannel& channel)
{
    return 4 + channel.lengthBits();
}

/// Returns the bits of the best choice, which can be read from `excesses`.
int findBest(const AACChannel& channel, Excesses& excesses)
{
    const AACCosts newSection = same(sectionBitsOf(channel));
    int total = 0;
    for (size_t group = 0; group < channel.groups.size(); ++group) {
        const size_t first = group * channel.bandsPerGroup();
        // A group begins with a section.
        BookCosts excess = {newSection, newSection};
        for (size_t band = first; band < first + channel.bandsPerGroup(); ++band) {
            const BookCosts costs = costsOfBand(channel, band);
            excess.quads = smaller(excess.quads, newSection) + costs.quads;
            excess.pairs = smaller(excess.pairs, newSection) + costs.pairs;
            const AACCosts least = smallestOf(excess);
            total += least[0];
            excess.quads -= least;
            excess.pairs -= least;
            excesses[band] = excess;
        }
    }
    return total;
}

} // namespace

int bitsOfValues(const AACChannel& channel)
{
    Excesses excesses;
    return findBest(channel, excesses);
}

void chooseBooks(AACChannel& channel)
{
    Excesses excesses;
    findBest(channel, excesses);
    const int newSection = sectionBitsOf(channel);
    int book = 0;
    for (size_t band = channel.bandCount(); band-- > 0;) {
        const BookCosts& excess = excesses[band];
        const bool isLastOfGroup = (band + 1) % channel.bandsPerGroup() == 0;
        // A section goes on as long as that costs no more than a new one.
        if (isLastOfGroup || excess.ofBook(book) > newSection)
            book = bookOfLeast(excess);
        channel.books[band] = static_cast<uint8_t>(book);
    }
}

} // namespace platform
