#pragma once

#include "platform/media/CMTime.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace platform {

/// Some samples of a track: signed 32-bit integers of the machine's byte order, one channel. One thread at a time.
class CMSampleBuffer final {
public:
    using Data = std::vector<int32_t>;

    CMSampleBuffer(std::shared_ptr<const Data> data, CMTime presentationTimeStamp)
        : data_(std::move(data)), presentationTimeStamp_(presentationTimeStamp)
    {}

    /// None once the buffer is invalid.
    size_t numSamples() const { return data_ ? data_->size() : 0; }
    /// Bytes.
    size_t dataLength() const { return numSamples() * sizeof(int32_t); }
    /// Where the first sample stands on the time line of the asset.
    CMTime presentationTimeStamp() const { return presentationTimeStamp_; }

    /// Copies `destination.size()` bytes.
    /// @return false if the buffer holds fewer from `offset` on; nothing is then copied
    [[nodiscard]] bool copyDataBytes(size_t offset, std::span<std::byte> destination) const;

    /// Gives the samples back to whoever made them.
    void invalidate() { data_.reset(); }
    bool isValid() const { return data_ != nullptr; }

private:
    std::shared_ptr<const Data> data_;
    const CMTime presentationTimeStamp_;
};

using CMSampleBufferPtr = std::unique_ptr<CMSampleBuffer>;

} // namespace platform
