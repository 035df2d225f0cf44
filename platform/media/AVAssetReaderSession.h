#pragma once

#include "platform/foundation/Lock.h"
#include "platform/foundation/NSError.h"
#include "platform/media/AVAssetReader.h"

#include <cstddef>
#include <optional>

namespace platform {

/// How far a reader has come. Any thread.
class AVAssetReaderSession final {
public:
    AVAssetReaderStatus status() const;
    std::optional<NSError> error() const;

    /// From unknown to reading; it ends when so many outputs have.
    /// @return false if it was started or has ended before
    bool start(size_t outputs);
    /// One output has handed out all samples.
    void endOutput();
    /// The first ending counts.
    void fail(NSError error);
    void cancel();

private:
    mutable Lock lock_;
    AVAssetReaderStatus status_ GUARDED_BY(lock_) = AVAssetReaderStatus::Unknown;
    std::optional<NSError> error_ GUARDED_BY(lock_);
    size_t outputsLeft_ GUARDED_BY(lock_) = 0;
};

} // namespace platform
