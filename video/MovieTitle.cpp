#include "video/MovieTitle.h"

#include "platform/foundation/NSString.h"

#include <memory>

using namespace platform;

std::string titleOfDocument(const NSURL& documentURL)
{
    return stringByDeletingPathExtension(documentURL.lastPathComponent());
}

AVMetadataItemList metadataOfMovie(const std::optional<NSURL>& documentURL)
{
    // A name may have any bytes, a title is text.
    const std::string title = documentURL ? stringByReplacingInvalidUTF8(titleOfDocument(*documentURL)) : std::string();
    if (title.empty())
        return {};
    return {std::make_shared<AVMetadataItem>(AVMetadataItem{.keySpace = std::string(kAVMetadataKeySpaceCommon),
                                                            .key = std::string(kAVMetadataCommonKeyTitle),
                                                            .commonKey = std::string(kAVMetadataCommonKeyTitle),
                                                            .value = title})};
}
