#include "video/ReusedFrames.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/movie/PicturePackets.h"

#include <algorithm>
#include <utility>

using platform::NSError;
using platform::PicturePackets;

ReusedFrames::ReusedFrames(FrameSource source, std::unique_ptr<PicturePackets> packets)
    : source_(std::move(source)), packets_(std::move(packets))
{}

ReusedFrames::~ReusedFrames() = default;

std::shared_ptr<ReusedFrames> ReusedFrames::open(FrameSource source, size_t count, NSError* error)
{
    auto packets = PicturePackets::open(source.movie, error);
    if (!packets)
        return nullptr;
    const auto isThere = [&](const auto& frame) { return frame.first < count && frame.second < packets->count(); };
    if (source.frames.empty() || !std::ranges::all_of(source.frames, isThere)) {
        platform::fail(error, platform::kAVFoundationErrorDomain, platform::kAVErrorOperationNotSupportedForAsset,
                       platform::localized("{} has other frames than it is said to have", {source.movie.path()}));
        return nullptr;
    }
    return std::shared_ptr<ReusedFrames>(new ReusedFrames(std::move(source), std::move(packets)));
}

std::optional<std::vector<uint8_t>> ReusedFrames::packet(size_t index, NSError* error)
{
    return packets_->packet(source_.frames.at(index), error);
}
