#include "platform/libav/ID3Head.h"

#include <array>
#include <string_view>

namespace platform {

int64_t endOfID3Tags(const ByteSource& file)
{
    // Some programs put a new tag in front of the old one, and leave that.
    constexpr int kMaxTags = 16;
    int64_t end = 0;
    std::array<uint8_t, 10> header{};
    for (int i = 0; i < kMaxTags && file.read(end, header); ++i) {
        if (!std::string_view(reinterpret_cast<const char*>(header.data()), header.size()).starts_with("ID3"))
            break;
        // Seven bits of each byte, so that nothing looks like the start of sound.
        int64_t size = 0;
        for (size_t at = 6; at < header.size(); ++at)
            size = size << 7 | (header[at] & 0x7F);
        const bool hasFooter = header[5] & 0x10;
        end += size + static_cast<int64_t>(header.size()) * (hasFooter ? 2 : 1);
    }
    return end;
}

} // namespace platform
