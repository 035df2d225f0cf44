#include "platform/media/MovieMetadata.h"

#include "platform/foundation/NSDate.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <array>
#include <cmath>
#include <ctime>

namespace platform {

size_t setMovieMetadata(AVFormatContext& movie, const AVMetadataItemList& metadata)
{
    const auto made = static_cast<std::time_t>(
        std::floor(NSDate::dateOfNewFiles().timeIntervalSinceReferenceDate + kTimeIntervalSince1970));
    std::tm date{};
    std::array<char, 32> text{};
    if (gmtime_r(&made, &date) && std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &date) > 0)
        av_dict_set(&movie.metadata, "creation_time", text.data(), 0);
    for (const AVMetadataItemPtr& item : metadata) {
        if (item->commonKey != kAVMetadataCommonKeyTitle || !item->stringValue())
            continue;
        av_dict_set(&movie.metadata, "title", item->stringValue()->c_str(), 0);
        // Four boxes stand around it, one in the other, and one that says what they are.
        constexpr size_t kBoxes = 256;
        return kBoxes + item->stringValue()->size();
    }
    return 0;
}

} // namespace platform
