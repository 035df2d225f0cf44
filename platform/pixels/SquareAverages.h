#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace platform {

/// Averages a picture in squares while its rows come, so that scaling it down afterwards looks at few pixels. Squares
/// at the right and lower edge may be smaller.
class SquareAverages final {
public:
    /// Sums of larger squares of 16 bits would not fit into their numbers.
    static constexpr size_t kLargestSide = 256;

    /// @param width  pixels of a row
    /// @param bands  samples of a pixel, 1 to 4
    /// @param side   of a square, 1 to kLargestSide, or more where samples have 8 bits
    SquareAverages(size_t width, size_t bands, size_t side)
        : width_(width), bands_(bands), side_(side), sums_(width * bands)
    {}

    /// Whole rows are added up: the compiler turns that into vector instructions.
    template <typename Sample>
    void addRow(const Sample* samples)
    {
        uint32_t* const sums = sums_.data();
        const size_t count = sums_.size();
        for (size_t i = 0; i < count; ++i)
            sums[i] += samples[i];
        ++rows_;
    }

    /// Calls `put(column, band, mean)` for the squares that the rows since the last call make.
    template <typename Sample, typename Put>
    void finish(Put put)
    {
        switch (bands_) {
        case 1:
            return finishBands<Sample, 1>(put);
        case 2:
            return finishBands<Sample, 2>(put);
        case 3:
            return finishBands<Sample, 3>(put);
        default:
            return finishBands<Sample, 4>(put);
        }
    }

private:
    /// Divides many sums of samples by their number. Multiplying takes a fraction of the time, and is exact: the
    /// reciprocal is too large by less than 2^-48, which counts for nothing in sums of samples of 8 bits below 2^24.
    template <typename Sample>
    class Divisor final {
    public:
        explicit Divisor(size_t count) : count_(static_cast<uint32_t>(count)), reciprocal_((1ULL << 48) / count_ + 1) {}

        Sample roundedQuotient(uint64_t sum) const
        {
            const uint64_t dividend = sum + count_ / 2;
            if constexpr (sizeof(Sample) == 1)
                if (dividend < 1ULL << 24)
                    return static_cast<Sample>(dividend * reciprocal_ >> 48);
            return static_cast<Sample>(dividend / count_);
        }

    private:
        const uint32_t count_;
        const uint64_t reciprocal_;
    };

    template <typename Sample, size_t bands, typename Put>
    void finishBands(Put put)
    {
        // 2^16 samples of 16 bits leave no room for half a step.
        using Sum = std::conditional_t<sizeof(Sample) == 1, uint32_t, uint64_t>;
        const uint32_t* sums = sums_.data();
        const auto finishSquare = [&](size_t column, size_t wide, const Divisor<Sample>& pixels) {
            std::array<Sum, bands> sum{};
            for (size_t x = 0; x < wide; ++x, sums += bands)
                for (size_t band = 0; band < bands; ++band)
                    sum[band] += sums[band];
            for (size_t band = 0; band < bands; ++band)
                put(column, band, pixels.roundedQuotient(sum[band]));
        };
        const size_t whole = width_ / side_;
        const Divisor<Sample> pixels(rows_ * side_);
        for (size_t column = 0; column < whole; ++column)
            finishSquare(column, side_, pixels);
        if (const size_t wide = width_ % side_; wide > 0)
            finishSquare(whole, wide, Divisor<Sample>(rows_ * wide));
        std::ranges::fill(sums_, 0u);
        rows_ = 0;
    }

    const size_t width_;
    const size_t bands_;
    const size_t side_;
    std::vector<uint32_t> sums_;
    size_t rows_ = 0;
};

} // namespace platform
