#include "platform/dispatch/NSOperationQueue.h"

#include "platform/foundation/Lock.h"

#include <deque>
#include <set>
#include <utility>
#include <vector>

namespace platform {

namespace {

struct Operation {
    explicit Operation(std::move_only_function<void()> theBlock) : block(std::move(theBlock)) {}

    std::move_only_function<void()> block;
    bool isCancelled = false;
};

using OperationPtr = std::shared_ptr<Operation>;

} // namespace

struct NSOperationQueue::State : std::enable_shared_from_this<State> {
    mutable Lock lock;
    mutable Condition finished;
    /// In order of adding; not yet handed to the underlying queue.
    std::deque<OperationPtr> waiting GUARDED_BY(lock);
    /// Handed over and not begun; their blocks can still be dropped.
    std::set<OperationPtr> handedOver GUARDED_BY(lock);
    /// Handed over and not finished.
    size_t inFlight GUARDED_BY(lock) = 0;
    int limit GUARDED_BY(lock) = kDefaultMaxConcurrentOperationCount;
    NSQualityOfService qualityOfService GUARDED_BY(lock) = NSQualityOfService::Default;
    std::shared_ptr<DispatchQueue> underlying GUARDED_BY(lock);

    bool hasRoom() const REQUIRES(lock) { return limit < 0 || inFlight < static_cast<size_t>(limit); }

    /// Hands over as many waiting operations as the limit allows.
    void schedule() EXCLUDES(lock)
    {
        LockGuard guard(lock);
        while (!waiting.empty() && hasRoom()) {
            auto operation = std::move(waiting.front());
            waiting.pop_front();
            ++inFlight;
            handedOver.insert(operation);
            // Under the lock, so that operations reach a queue in order whichever threads hand them over.
            (underlying ? underlying : DispatchQueue::global())
                ->async([self = shared_from_this(), operation = std::move(operation)] { self->run(operation); });
        }
    }

    void run(const OperationPtr& operation) EXCLUDES(lock)
    {
        std::move_only_function<void()> block;
        {
            LockGuard guard(lock);
            handedOver.erase(operation);
            if (!operation->isCancelled)
                block = std::move(operation->block);
        }
        if (block) {
            block();
            block = nullptr;
        }
        {
            LockGuard guard(lock);
            --inFlight;
            if (inFlight == 0 && waiting.empty())
                finished.notify_all();
        }
        schedule();
    }
};

NSOperationQueue::NSOperationQueue() : state_(std::make_shared<State>()) {}

NSOperationQueue::~NSOperationQueue() = default;

void NSOperationQueue::addOperationWithBlock(std::move_only_function<void()> block)
{
    {
        LockGuard guard(state_->lock);
        state_->waiting.push_back(std::make_shared<Operation>(std::move(block)));
    }
    state_->schedule();
}

void NSOperationQueue::cancelAllOperations()
{
    // A cancelled block is never run, so what it holds goes now rather than at its turn; outside the lock, since ending
    // it may run anything.
    std::vector<std::move_only_function<void()>> dropped;
    LockGuard guard(state_->lock);
    const auto cancel = [&](const OperationPtr& operation) {
        if (!std::exchange(operation->isCancelled, true))
            dropped.push_back(std::move(operation->block));
    };
    for (const auto& operation : state_->waiting)
        cancel(operation);
    for (const auto& operation : state_->handedOver)
        cancel(operation);
}

size_t NSOperationQueue::operationCount() const
{
    LockGuard guard(state_->lock);
    return state_->waiting.size() + state_->inFlight;
}

void NSOperationQueue::waitUntilAllOperationsAreFinished() const
{
    LockGuard guard(state_->lock);
    while (state_->inFlight > 0 || !state_->waiting.empty())
        state_->finished.wait(state_->lock);
}

int NSOperationQueue::maxConcurrentOperationCount() const
{
    LockGuard guard(state_->lock);
    return state_->limit;
}

void NSOperationQueue::setMaxConcurrentOperationCount(int count)
{
    if (count < kDefaultMaxConcurrentOperationCount)
        return;
    {
        LockGuard guard(state_->lock);
        state_->limit = count;
    }
    state_->schedule();
}

NSQualityOfService NSOperationQueue::qualityOfService() const
{
    LockGuard guard(state_->lock);
    return state_->qualityOfService;
}

void NSOperationQueue::setQualityOfService(NSQualityOfService qualityOfService)
{
    LockGuard guard(state_->lock);
    state_->qualityOfService = qualityOfService;
}

std::shared_ptr<DispatchQueue> NSOperationQueue::underlyingQueue() const
{
    LockGuard guard(state_->lock);
    return state_->underlying;
}

void NSOperationQueue::setUnderlyingQueue(std::shared_ptr<DispatchQueue> queue)
{
    LockGuard guard(state_->lock);
    if (state_->inFlight == 0 && state_->waiting.empty())
        state_->underlying = std::move(queue);
}

} // namespace platform
