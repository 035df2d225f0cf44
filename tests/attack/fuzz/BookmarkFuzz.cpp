#include "platform/files/NSURL.h"
#include "tests/attack/fuzz/Checked.h"

#include <string_view>

using namespace platform;

// Bookmarks, and addresses of files as texts.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    bool isStale = false;
    (void)NSURL::URLByResolvingBookmarkData(NSData(bytes, bytes + length), BookmarkResolutionOptions::None, &isStale);
    const std::string_view text(reinterpret_cast<const char*>(bytes), length);
    if (const auto url = NSURL::URLWithString(text))
        mustHold(NSURL::URLWithString(url->absoluteString()) == url, "an address is the same when it is read again");
    const std::string name = lastPathComponent(text);
    mustHold(name == "/" || name.find('/') == std::string::npos, "a name is no path");
    mustHold(pathExtension(text).size() <= text.size(), "an extension is part of the path");
    return 0;
}
