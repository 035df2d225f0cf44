#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace platform {

/// What decoding a picture costs, as its header tells. Strangers' files of a few bytes may claim any size.
struct DecodingCost {
    /// Bytes that are in memory at once, beside what every picture takes.
    uint64_t memory = 0;
    /// In bytes that the unpacker of a PNG file, which makes 180 MB a second, makes in the same time.
    uint64_t work = 0;
};

/// Why a picture is not decoded: nothing where its cost is in proportion. A quarter of a gigabyte is unpacked for any
/// file, and 448 MiB held; more only for one that is long itself, as those of large photos are.
///
/// @param fileBytes  the file's length
[[nodiscard]] std::optional<std::string> faultOfCost(const DecodingCost& cost, uint64_t fileBytes);

/// While it lives, so much memory counts as taken. Its maker waits until all that are alive take no more than a quarter
/// of the machine's, or this is the only one. Any thread; one at a time on each.
class DecodingShare final {
public:
    explicit DecodingShare(uint64_t memory);
    ~DecodingShare();
    DecodingShare(const DecodingShare&) = delete;
    DecodingShare& operator=(const DecodingShare&) = delete;

private:
    const uint64_t memory_;
};

} // namespace platform
