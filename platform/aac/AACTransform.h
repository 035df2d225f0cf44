#pragma once

#include "platform/foundation/NSError.h"

#include <array>
#include <cstdint>
#include <memory>
#include <span>

namespace platform {

/// How a packet's window is shaped; the values are those of the format.
enum class AACSequence : uint8_t { Long = 0, Start = 1, Short = 2, Stop = 3 };

/// The form of a window's slopes.
enum class AACShape : uint8_t { Sine = 0, KaiserBessel = 1 };

/// Splits sound into the lines of AAC's windows. One thread at a time.
class AACTransform final {
public:
    static constexpr size_t kLines = 1024;
    static constexpr size_t kShortLines = 128;
    static constexpr size_t kShortWindows = kLines / kShortLines;
    static constexpr size_t kSamples = 2 * kLines;

    /// @return null if the library has no such transform
    [[nodiscard]] static std::unique_ptr<AACTransform> create(NSError* error = nullptr);
    ~AACTransform();
    AACTransform(const AACTransform&) = delete;
    AACTransform& operator=(const AACTransform&) = delete;

    /// @param samples   full scale at +-1
    /// @param rising    the form of the slope at the start, which is that of the packet before
    /// @param spectrum  out: lines, full scale of samples at 32768; of short windows one after the other
    void transform(std::span<const float, kSamples> samples, AACSequence sequence, AACShape rising, AACShape falling,
                   std::span<float, kLines> spectrum);

private:
    struct Library;
    explicit AACTransform(std::unique_ptr<Library> library);

    const std::unique_ptr<Library> library_;
};

} // namespace platform
