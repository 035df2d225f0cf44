#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace platform {

/// A box of a movie's index, held in memory: the boxes inside it, or its content where it is no box of boxes.
struct IndexBox {
    uint32_t type = 0;
    std::vector<uint8_t> content;
    std::vector<IndexBox> children;

    /// The only box of a type inside; null if there is none or more than one.
    const IndexBox* child(uint32_t wanted) const;
    IndexBox* child(uint32_t wanted);

    uint64_t size() const;
    void appendTo(std::vector<uint8_t>& bytes) const;
};

/// Reads boxes that fill `bytes`, and what is inside of "trak", "mdia", "minf" and "stbl".
/// @return nothing if one is broken
std::optional<std::vector<IndexBox>> readIndexBoxes(std::span<const uint8_t> bytes);

/// Where a movie's chunks lie ("stco" or "co64"): bytes from the file's start.
/// @return nothing if the box is broken
std::optional<std::vector<uint64_t>> readChunkOffsets(const IndexBox& box);
/// @param isLong  with 64 bits, where 32 may not do
IndexBox makeChunkOffsets(std::span<const uint64_t> offsets, bool isLong);

/// The samples of one track, each with its place in the file: what the boxes "stts", "stsz", "stsc", "stco" or "co64"
/// and "stss" of a "stbl" box tell together. Samples may lie on the same bytes.
class SampleTable final {
public:
    struct Sample {
        /// From the file's start.
        uint64_t offset = 0;
        uint32_t size = 0;
        /// In the track's scale.
        uint32_t duration = 0;
        bool isSync = true;
    };

    /// More samples than this are no slideshow.
    static constexpr size_t kMaxSamples = size_t{1} << 22;

    /// @param why  out: what is not understood, as the end of a sentence; set where nothing is returned. That is a box
    /// of
    ///             another type, as it would tell of samples too, several descriptions, or a table that is broken
    static std::optional<SampleTable> read(const IndexBox& stbl, std::string& why);

    const std::vector<Sample>& samples() const { return samples_; }

    /// Shows each sample that is longer than `longest` several times, one after the other, in parts that differ by a
    /// tick at most and together last as long.
    ///
    /// @param longest  in the track's scale, above 0
    /// @return false, and why, where such a sample cannot be shown by itself, or there were too many; the table is then
    ///         of no use
    bool repeatLongSamples(uint32_t longest, std::string& why);

    /// Puts the samples into the box, each in a chunk of its own; what describes them stays.
    void write(IndexBox& stbl, bool hasLongOffsets) const;

private:
    std::vector<Sample> samples_;
};

} // namespace platform
