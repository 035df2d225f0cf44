#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

/// How loud a sound is in each column of its picture: the mean of its samples' levels in decibels below full scale,
/// each level held between -25 and 0. Takes the samples as they come. One thread at a time.
class WaveFormColumns final {
public:
    /// The level of silence, and of all that is hardly louder.
    static constexpr float kQuietest = -25;

    /// @param samplesPerColumn  at least 1. Samples are counted in single precision, which cannot count beyond 2^24: a
    ///                          longer column never becomes full.
    explicit WaveFormColumns(uint64_t samplesPerColumn);

    /// Full scale is 2^31.
    void add(std::span<const int32_t> samples);

    /// Goes on with the columns of the sound that follows, and with the one of them that is not full.
    ///
    /// @param next  its columns are as long as these
    /// @return false if a column of this sound is not full, which what follows would have to fill
    [[nodiscard]] bool append(const WaveFormColumns& next);

    /// The columns that are full, in order.
    const std::vector<float>& values() const { return values_; }
    /// The loudest of them; -25 if there is none.
    float largest() const { return largest_; }

private:
    /// Samples whose levels are added up at once.
    static constexpr size_t kBatch = 128;

    void addBatch(std::span<const int32_t> samples);
    void endColumn();

    uint64_t columnLength_;
    std::vector<float> values_;
    float largest_ = kQuietest;

    /// @name The column that is not full
    /// @{
    uint64_t count_ = 0;
    double sum_ = 0;
    /// Its samples that wait for a batch, so that batches begin with the column, however the samples come, and equal
    /// columns have equal sums.
    std::array<int32_t, kBatch> waiting_{};
    size_t waitingCount_ = 0;
    /// @}
};
