#include "platform/media/AVAssetReaderSession.h"

#include <utility>

namespace platform {

AVAssetReaderStatus AVAssetReaderSession::status() const
{
    const LockGuard guard(lock_);
    return status_;
}

std::optional<NSError> AVAssetReaderSession::error() const
{
    const LockGuard guard(lock_);
    return error_;
}

bool AVAssetReaderSession::start(size_t outputs)
{
    const LockGuard guard(lock_);
    if (status_ != AVAssetReaderStatus::Unknown)
        return false;
    outputsLeft_ = outputs;
    status_ = outputs > 0 ? AVAssetReaderStatus::Reading : AVAssetReaderStatus::Completed;
    return true;
}

void AVAssetReaderSession::endOutput()
{
    const LockGuard guard(lock_);
    if (status_ == AVAssetReaderStatus::Reading && --outputsLeft_ == 0)
        status_ = AVAssetReaderStatus::Completed;
}

void AVAssetReaderSession::fail(NSError error)
{
    const LockGuard guard(lock_);
    if (status_ != AVAssetReaderStatus::Unknown && status_ != AVAssetReaderStatus::Reading)
        return;
    status_ = AVAssetReaderStatus::Failed;
    error_ = std::move(error);
}

void AVAssetReaderSession::cancel()
{
    const LockGuard guard(lock_);
    if (status_ == AVAssetReaderStatus::Unknown || status_ == AVAssetReaderStatus::Reading)
        status_ = AVAssetReaderStatus::Cancelled;
}

} // namespace platform
