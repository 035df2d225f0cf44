#include "platform/media/CMSampleBuffer.h"

#include <cstring>

namespace platform {

bool CMSampleBuffer::copyDataBytes(size_t offset, std::span<std::byte> destination) const
{
    const size_t length = dataLength();
    if (offset > length || destination.size() > length - offset)
        return false;
    if (!destination.empty())
        std::memcpy(destination.data(), reinterpret_cast<const std::byte*>(data_->data()) + offset, destination.size());
    return true;
}

} // namespace platform
