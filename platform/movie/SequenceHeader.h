#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace platform {

enum class SequenceHeaderKind { H264, HEVC };

/// A stream's header (parameter sets after start codes) without the frame rate that it claims: pictures then last as
/// long as their file says, which players otherwise need not believe.
/// @return nothing if the header has no sequence parameter set, or one of a kind that no encoder here writes, such as
/// one
///         with scaling lists
std::optional<std::vector<uint8_t>> headerWithoutTiming(SequenceHeaderKind kind, std::span<const uint8_t> header);

/// Gives key frames of H.264 their identifiers, of which neighbours must not have the same. Those that an encoder gave
/// them are of its own order of coding.
class KeyFrameIdentifiers final {
public:
    /// @param header  parameter sets after start codes
    /// @return nothing for a header that no encoder here writes: of half pictures, or with arithmetic coding
    static std::optional<KeyFrameIdentifiers> ofHeader(std::span<const uint8_t> header);

    /// @param packet      units after start codes; untouched where all slices of key frames in it have the identifier
    /// @param identifier  0 to 65535
    /// @return false where a slice is cut off or there is no unit; the packet is then as it was
    [[nodiscard]] bool set(std::vector<uint8_t>& packet, uint32_t identifier) const;

private:
    explicit KeyFrameIdentifiers(uint32_t frameNumberBits) : frameNumberBits_(frameNumberBits) {}

    uint32_t frameNumberBits_;
};

} // namespace platform
