#include "platform/writer/AVAssetWriterInput.h"

#include "platform/writer/AVAssetWriterSession.h"

#include <utility>

namespace platform {

AVAssetWriterInput::AVAssetWriterInput(std::string_view mediaType, AVVideoSettings outputSettings)
    : mediaType_(mediaType), outputSettings_(std::move(outputSettings))
{}

AVAssetWriterInput::~AVAssetWriterInput() = default;

bool AVAssetWriterInput::expectsMediaDataInRealTime() const
{
    LockGuard guard(lock_);
    return expectsMediaDataInRealTime_;
}

void AVAssetWriterInput::setExpectsMediaDataInRealTime(bool value)
{
    LockGuard guard(lock_);
    expectsMediaDataInRealTime_ = value;
}

std::optional<size_t> AVAssetWriterInput::maximumSampleCount() const
{
    LockGuard guard(lock_);
    return maximumSampleCount_;
}

void AVAssetWriterInput::setMaximumSampleCount(std::optional<size_t> count)
{
    LockGuard guard(lock_);
    maximumSampleCount_ = count;
}

std::shared_ptr<AVAssetWriterSession> AVAssetWriterInput::session() const
{
    LockGuard guard(lock_);
    return session_;
}

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

void AVAssetWriterInput::markAsFinished()
{
    if (const auto writing = session())
        writing->markAsFinished();
}

} // namespace platform
