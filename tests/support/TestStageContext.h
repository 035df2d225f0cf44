#pragma once

#include "platform/dispatch/NSOperationQueue.h"
#include "platform/foundation/Lock.h"
#include "util/StageContext.h"

#include <atomic>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// What stages share, for tests that drive one without a connection: two folders, a flag, and the updates in order.
class TestStageContext : public StageContext {
public:
    TestStageContext(platform::NSURL destination, platform::NSURL temporary)
        : destination_(std::move(destination)), temporary_(std::move(temporary))
    {
        feedback_.setMaxConcurrentOperationCount(1);
    }
    ~TestStageContext() override { feedback_.waitUntilAllOperationsAreFinished(); }

    bool isCancelled() const override
    {
        if (onCancelledAsked)
            onCancelledAsked();
        return cancelled_;
    }
    void setIsCancelled(bool isCancelled) override { cancelled_ = isCancelled; }
    platform::NSURL destinationURL() const override
    {
        if (onDestinationAsked)
            onDestinationAsked();
        return destination_;
    }
    platform::NSURL temporaryURL() const override { return temporary_; }
    platform::NSOperationQueue& fbQ() override { return feedback_; }
    void updateProgress(const ProgressUpdate& update) override
    {
        const platform::LockGuard guard(lock_);
        updates_.push_back(update);
    }

    /// Once all that wait have been sent.
    std::vector<ProgressUpdate> updates() const
    {
        feedback_.waitUntilAllOperationsAreFinished();
        const platform::LockGuard guard(lock_);
        return updates_;
    }
    bool hasUpdate(const std::string& title) const
    {
        for (const ProgressUpdate& update : updates()) {
            if (update.title == title)
                return true;
        }
        return false;
    }

    /// Called before each look at the flag or the folder.
    std::function<void()> onCancelledAsked;
    std::function<void()> onDestinationAsked;

private:
    const platform::NSURL destination_;
    const platform::NSURL temporary_;
    platform::NSOperationQueue feedback_;
    std::atomic<bool> cancelled_{false};
    mutable platform::Lock lock_;
    std::vector<ProgressUpdate> updates_ GUARDED_BY(lock_);
};
