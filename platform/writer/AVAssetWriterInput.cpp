#include "platform/writer/AVAssetWriterInput.h"

#include "platform/writer/AVAssetWriterSession.h"

#include <utility>

namespace platform {

AVAssetWriterInput::AVAssetWriterInput(std::string_view mediaType, AVVideoSettings outputSettings)
    : mediaType_(mediaType), outputSettings_(std::move(outputSettings))
{}

AVAssetWriterInput::~AVAssetWriterInput() = default;

bool AVAssetWriterInput::isReadyForMoreMediaData() const
{
    const auto writing = session();
    return writing && writing->isReady();
}

void AVAssetWriterInput::requestMediaDataWhenReadyOnQueue(std::shared_ptr<DispatchQueue> queue,
                                                          std::function<void()> block)
{
    if (const auto writing = session())
        writing->requestMediaData(std::move(queue), std::move(block));
}

bool AVAssetWriterInput::appendPacket(std::vector<uint8_t> packet, CMTime presentationTime)
{
    const auto writing = session();
    return writing && writing->appendPacket(std::move(packet), presentationTime);
}

void AVAssetWriterInput::markAsFinished()
{
    if (const auto writing = session())
        writing->markAsFinished();
}

} // namespace platform
