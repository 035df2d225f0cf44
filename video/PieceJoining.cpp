#include "video/PieceJoining.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/movie/PicturePackets.h"

#include <memory>
#include <string>
#include <utility>

using platform::NSError;
using platform::NSURL;
using platform::PicturePackets;

namespace {

bool refuse(std::string why, NSError* error)
{
    return platform::fail(error, platform::kAVFoundationErrorDomain, platform::kAVErrorOperationNotSupportedForAsset,
                          std::move(why));
}

} // namespace

bool appendPieces(const VideoStageContext& context, platform::AVAssetWriterInput& input,
                  const std::vector<NSURL>& pieces, size_t count,
                  const std::function<platform::CMTime(uint64_t index)>& timeOf,
                  const std::function<void(uint64_t index)>& appended, NSError* error)
{
    uint64_t index = 0;
    std::unique_ptr<PicturePackets> first;
    for (const NSURL& piece : pieces) {
        auto packets = PicturePackets::open(piece, error);
        if (!packets)
            return false;
        if (first && !packets->isAlike(*first))
            return refuse(platform::localized("{} is coded in another way than the piece before it", {piece.path()}),
                          error);
        for (size_t i = 0; i < packets->count(); ++i) {
            if (context.isCancelled() || index >= count)
                return false;
            auto packet = packets->packet(i, error);
            if (!packet || !input.appendPacket(std::move(*packet), timeOf(index)))
                return false;
            appended(index++);
        }
        if (!first)
            first = std::move(packets);
    }
    return index == count || refuse(platform::localized("the pieces hold {} frames together, instead of {}",
                                                        {std::to_string(index), std::to_string(count)}),
                                    error);
}

bool hasHeaderOfPiece(const NSURL& movie, const NSURL& piece, NSError* error)
{
    const auto ours = PicturePackets::open(movie, error);
    const auto theirs = ours ? PicturePackets::open(piece, error) : nullptr;
    return theirs &&
           (ours->isAlike(*theirs) ||
            refuse(platform::localized("{} was coded by another version of the encoder", {piece.path()}), error));
}
