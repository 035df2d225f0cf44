#include "video/FrameFailure.h"

#include "platform/foundation/NSLog.h"

#include <array>

namespace {

constexpr const char* kOperation = "-[morStilloraVideoCreator _fillBufferArrayUsingPhotos:maxVidSize:reduceBorders:]";

/// In the order of the failures.
constexpr std::array<std::string_view, 3> kReasons{"could not instantiate image source for URL: ",
                                                   "img couldn't be created for ", "pixelbuffer couldn't be created; "};

std::string_view reasonOf(FrameFailure failure)
{
    return kReasons[static_cast<size_t>(failure)];
}

} // namespace

void logFrameFailure(FrameFailure failure, std::string_view ofWhat)
{
    platform::logFailure(kOperation, std::string(reasonOf(failure)).append(ofWhat));
}

std::optional<std::string> photoOfFailedFrame(std::string_view logLine)
{
    const std::string start = std::string(kOperation) + " - ";
    if (!logLine.starts_with(start))
        return std::nullopt;
    logLine.remove_prefix(start.size());
    for (const FrameFailure ofPhoto : {FrameFailure::NoSource, FrameFailure::NoImage})
        if (const std::string_view reason = reasonOf(ofPhoto); logLine.starts_with(reason))
            return std::string(logLine.substr(reason.size()));
    return logLine.starts_with(reasonOf(FrameFailure::NoBuffer)) ? std::optional<std::string>("") : std::nullopt;
}
