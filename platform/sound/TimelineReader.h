#pragma once

#include "platform/foundation/NSError.h"
#include "platform/sound/SoundDecoder.h"
#include "platform/sound/SoundFacts.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace platform {

/// Reads the time line that edits make of what the decoder gives. One thread at a time.
class TimelineReader final {
public:
    /// @param facts  outlive this
    [[nodiscard]] bool open(const SoundFacts& facts, NSError* error);

    /// Samples at the file's own rate; fewer than there is room for only at the end.
    size_t read(int64_t position, std::span<float> samples);
    /// As the decoder tells it.
    int inputError() const { return decoder_.inputError(); }

private:
    const SoundFacts* facts_ = nullptr;
    SoundDecoder decoder_;
};

} // namespace platform
