#pragma once

#include "platform/foundation/NSError.h"
#include "platform/sound/SoundFacts.h"

#include <cstdint>
#include <memory>
#include <span>

namespace platform {

/// Reads a sound track's packets, for copying. One thread at a time.
class SoundPacketReader final {
public:
    [[nodiscard]] static std::unique_ptr<SoundPacketReader> open(SoundFactsPtr facts, NSError* error = nullptr);
    ~SoundPacketReader();

    /// The packet of this index, the first of the file being 0; valid until the next call. Reading in order is cheap.
    /// @return empty at the end of the file or where it is broken
    std::span<const uint8_t> packet(int64_t index);

private:
    struct State;
    explicit SoundPacketReader(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace platform
