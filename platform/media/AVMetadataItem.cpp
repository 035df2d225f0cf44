#include "platform/media/AVMetadataItem.h"

#include <algorithm>
#include <iterator>

namespace platform {

AVMetadataItemList AVMetadataItem::metadataItemsFromArray(const AVMetadataItemList& items, std::string_view withKey,
                                                          std::string_view keySpace)
{
    AVMetadataItemList matching;
    std::copy_if(items.begin(), items.end(), std::back_inserter(matching), [&](const AVMetadataItemPtr& item) {
        if (keySpace == kAVMetadataKeySpaceCommon)
            return item->commonKey == withKey;
        return item->keySpace == keySpace && item->key == withKey;
    });
    return matching;
}

} // namespace platform
