#pragma once

#include "platform/dispatch/DispatchQueue.h"

#include <cstddef>
#include <functional>
#include <memory>

namespace platform {

/// Quality of service of operation queues, by the platform's numbers. Kept as data.
enum class NSQualityOfService : int { Default = -1, Utility = 17, UserInitiated = 25, UserInteractive = 33 };

/// Operations that start in order of adding, so many at a time, and that can be cancelled while they wait. Every
/// operation of this class may be called on any thread, also from an operation of the queue.
class NSOperationQueue final {
public:
    static constexpr int kDefaultMaxConcurrentOperationCount = -1;

    NSOperationQueue();
    /// Does not wait: operations already added still run.
    ~NSOperationQueue();
    NSOperationQueue(const NSOperationQueue&) = delete;
    NSOperationQueue& operator=(const NSOperationQueue&) = delete;

    void addOperationWithBlock(std::move_only_function<void()> block);

    /// Marks every unfinished operation. One that runs goes on; one that waits is never run, but counts until its turn
    /// has come. Operations added later run normally.
    void cancelAllOperations();

    /// Operations added and not finished, cancelled ones included.
    size_t operationCount() const;
    void waitUntilAllOperationsAreFinished() const;

    int maxConcurrentOperationCount() const;
    /// -1: as many as the system likes; below that is refused and changes nothing.
    void setMaxConcurrentOperationCount(int count);

    NSQualityOfService qualityOfService() const;
    void setQualityOfService(NSQualityOfService qualityOfService);

    std::shared_ptr<DispatchQueue> underlyingQueue() const;
    /// Only while the queue is empty; else refused and nothing changes.
    void setUnderlyingQueue(std::shared_ptr<DispatchQueue> queue);

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace platform
