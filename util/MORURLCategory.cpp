#include "util/MORURLCategory.h"

#include "platform/files/NSFileManager.h"

using namespace platform;

namespace {

constexpr long kFirstSuffix = 2;

} // namespace

NSURL MORURLCategory::URLForNotOverridingURL(const NSURL& url)
{
    const std::string stem = stringByDeletingPathExtension(url.lastPathComponent());
    const std::string extension = url.pathExtension();
    const NSURL folder = url.URLByDeletingLastPathComponent();
    NSURL candidate = url;
    for (long suffix = kFirstSuffix; NSFileManager::defaultManager().fileExistsAtPath(candidate.path()); ++suffix) {
        // Made anew from the wished-for name each time, so that suffixes do not pile up.
        std::string name = stem + "-" + std::to_string(suffix);
        if (!extension.empty())
            name += "." + extension;
        candidate = folder.URLByAppendingPathComponent(name, url.hasDirectoryPath());
    }
    return candidate;
}
