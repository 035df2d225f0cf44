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

} // namespace platform
