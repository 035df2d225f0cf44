#include "tests/attack/fuzz/Checked.h"
#include "window/state/photos/ThumbnailCache.h"

#include <string_view>

// The texts in a thumbnail, which any program of the desktop may have put there.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    const std::string_view file(reinterpret_cast<const char*>(bytes), length);
    for (const auto& [key, text] : stillora::window::textsOfPNG(file)) {
        mustHold(key.find('\0') == std::string::npos, "a key ends at its zero");
        mustHold(file.find(key) != std::string_view::npos && file.find(text) != std::string_view::npos,
                 "a text stands in its file");
    }
    return 0;
}
