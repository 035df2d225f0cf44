#pragma once

#include "platform/dispatch/NSOperationQueue.h"
#include "platform/files/NSURL.h"
#include "util/ProgressUpdate.h"

#include <functional>
#include <optional>

/// What the stages of one creator share. Knows nothing of the connection, so that a stage can be driven without one.
/// Everything here may be used on any thread.
class StageContext {
public:
    virtual ~StageContext() = default;

    virtual bool isCancelled() const = 0;
    virtual void setIsCancelled(bool isCancelled) = 0;

    /// The folder that receives the finished movie.
    virtual platform::NSURL destinationURL() const = 0;
    /// The folder for intermediate files.
    virtual platform::NSURL temporaryURL() const = 0;

    /// The feedback queue: one update at a time.
    virtual platform::NSOperationQueue& fbQ() = 0;

    /// Sends one update to the client, now. Called from operations of the feedback queue only.
    virtual void updateProgress(const ProgressUpdate& update) = 0;

    /// Drops the updates that still wait and queues one more; `update` is asked for its values on the feedback queue
    /// and may answer none, to send nothing.
    void queueProgress(std::function<std::optional<ProgressUpdate>()> update);
};
