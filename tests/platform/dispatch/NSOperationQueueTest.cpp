#include "platform/dispatch/NSOperationQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <latch>
#include <memory>
#include <mutex>
#include <semaphore>
#include <vector>

using platform::DispatchQueue;
using platform::NSOperationQueue;

namespace {

/// Occupies a queue of one operation at a time until opened.
class Gate {
public:
    explicit Gate(NSOperationQueue& queue)
    {
        std::promise<void> begun;
        auto hasBegun = begun.get_future();
        queue.addOperationWithBlock([this, &begun] {
            begun.set_value();
            opened_.acquire();
        });
        hasBegun.wait();
    }
    void open() { opened_.release(); }

private:
    std::binary_semaphore opened_{0};
};

} // namespace

TEST(NSOperationQueue, RunsOneAtATimeInOrderOverAConcurrentQueue)
{
    NSOperationQueue queue;
    queue.setUnderlyingQueue(DispatchQueue::create("under", {.kind = DispatchQueue::Kind::Concurrent}));
    queue.setMaxConcurrentOperationCount(1);
    std::vector<int> order;
    for (int i = 0; i < 500; ++i)
        queue.addOperationWithBlock([&order, i] { order.push_back(i); });
    queue.waitUntilAllOperationsAreFinished();
    ASSERT_EQ(order.size(), 500U);
    EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(NSOperationQueue, NeverRunsMoreOperationsThanItsLimit)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(3);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    // The first three wait for one another, so the limit is reached as well as kept.
    std::latch three(3);
    for (int i = 0; i < 300; ++i) {
        queue.addOperationWithBlock([&, i] {
            const int now = ++inside;
            for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
            }
            if (i < 3)
                three.arrive_and_wait();
            --inside;
        });
    }
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(most, 3);
}

TEST(NSOperationQueue, HandsOverAllOperationsWithoutALimit)
{
    NSOperationQueue queue;
    EXPECT_EQ(queue.maxConcurrentOperationCount(), -1);
    constexpr int kCount = 12;
    std::latch allInside(kCount);
    for (int i = 0; i < kCount; ++i)
        queue.addOperationWithBlock([&] { allInside.arrive_and_wait(); });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue.operationCount(), 0U);
}

TEST(NSOperationQueue, DeliversTheRunningUpdateAndTheLastOfTenQueuedBehindIt)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    std::vector<int> delivered;
    std::binary_semaphore begun(0);
    std::binary_semaphore open(0);
    for (int i = 0; i <= 10; ++i) {
        queue.cancelAllOperations();
        queue.addOperationWithBlock([&, i] {
            if (i == 0) {
                begun.release();
                open.acquire();
            }
            delivered.push_back(i);
        });
        if (i == 0)
            begun.acquire();
    }
    open.release();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(delivered, std::vector<int>({0, 10}));
}

TEST(NSOperationQueue, LetsARunningOperationGoOnWhenAllAreCancelled)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    std::promise<void> begun;
    std::binary_semaphore open(0);
    bool ended = false;
    queue.addOperationWithBlock([&] {
        begun.set_value();
        open.acquire();
        ended = true;
    });
    begun.get_future().wait();
    queue.cancelAllOperations();
    open.release();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(ended);
}

TEST(NSOperationQueue, CountsCancelledOperationsUntilTheirTurn)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    Gate gate(queue);
    bool ran = false;
    queue.addOperationWithBlock([&] { ran = true; });
    queue.addOperationWithBlock([&] { ran = true; });
    queue.cancelAllOperations();
    EXPECT_EQ(queue.operationCount(), 3U);
    gate.open();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_EQ(queue.operationCount(), 0U);
    EXPECT_FALSE(ran);
}

TEST(NSOperationQueue, NeverRunsAnOperationThatWasHandedOverButHadNotBegunWhenCancelled)
{
    NSOperationQueue queue;
    const auto under = DispatchQueue::create("under", {});
    queue.setUnderlyingQueue(under);
    std::binary_semaphore open(0);
    under->async([&] { open.acquire(); });
    bool ran = false;
    // Without a limit it is handed to the serial queue at once, where it waits.
    queue.addOperationWithBlock([&] { ran = true; });
    queue.cancelAllOperations();
    open.release();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_FALSE(ran);
}

TEST(NSOperationQueue, EndsWhatACancelledOperationHoldsAtOnce)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    Gate gate(queue);
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = held;
    queue.addOperationWithBlock([held = std::move(held)] {});
    EXPECT_FALSE(watch.expired());
    queue.cancelAllOperations();
    EXPECT_TRUE(watch.expired());
    gate.open();
    queue.waitUntilAllOperationsAreFinished();
}

TEST(NSOperationQueue, RunsOperationsAddedAfterACancel)
{
    NSOperationQueue queue;
    queue.cancelAllOperations();
    bool ran = false;
    queue.addOperationWithBlock([&] { ran = true; });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(ran);
}

TEST(NSOperationQueue, MayBeCancelledFromInsideAnOperation)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    bool later = false;
    bool ended = false;
    std::binary_semaphore added(0);
    queue.addOperationWithBlock([&] {
        added.acquire();
        queue.cancelAllOperations();
        ended = true;
    });
    queue.addOperationWithBlock([&] { later = true; });
    added.release();
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(ended);
    EXPECT_FALSE(later);
}

TEST(NSOperationQueue, RefusesALimitBelowMinusOne)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(4);
    queue.setMaxConcurrentOperationCount(-2);
    EXPECT_EQ(queue.maxConcurrentOperationCount(), 4);
}

TEST(NSOperationQueue, StartsWhatWaitsWhenTheLimitIsRaised)
{
    NSOperationQueue queue;
    queue.setMaxConcurrentOperationCount(1);
    Gate gate(queue);
    std::promise<void> ran;
    queue.addOperationWithBlock([&] { ran.set_value(); });
    queue.setMaxConcurrentOperationCount(2);
    EXPECT_EQ(ran.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    gate.open();
    queue.waitUntilAllOperationsAreFinished();
}

TEST(NSOperationQueue, ChangesItsUnderlyingQueueOnlyWhileEmpty)
{
    NSOperationQueue queue;
    const auto first = DispatchQueue::create("first", {.kind = DispatchQueue::Kind::Concurrent});
    const auto second = DispatchQueue::create("second", {.kind = DispatchQueue::Kind::Concurrent});
    queue.setUnderlyingQueue(first);
    Gate gate(queue);
    queue.setUnderlyingQueue(second);
    EXPECT_EQ(queue.underlyingQueue(), first);
    gate.open();
    queue.waitUntilAllOperationsAreFinished();
    queue.setUnderlyingQueue(second);
    EXPECT_EQ(queue.underlyingQueue(), second);
}

TEST(NSOperationQueue, RunsItsOperationsOnTheUnderlyingQueue)
{
    NSOperationQueue queue;
    const auto under = DispatchQueue::create("under", {.kind = DispatchQueue::Kind::Concurrent});
    queue.setUnderlyingQueue(under);
    bool wasCurrent = false;
    queue.addOperationWithBlock([&] { wasCurrent = under->isCurrent(); });
    queue.waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(wasCurrent);
}

TEST(NSOperationQueue, RunsWhatWasAddedAlsoAfterItsOwnEnd)
{
    std::promise<int> result;
    auto future = result.get_future();
    std::binary_semaphore open(0);
    {
        NSOperationQueue queue;
        queue.setMaxConcurrentOperationCount(1);
        queue.addOperationWithBlock([&] { open.acquire(); });
        queue.addOperationWithBlock([&] { result.set_value(5); });
    }
    open.release();
    ASSERT_EQ(future.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    EXPECT_EQ(future.get(), 5);
}

TEST(NSOperationQueue, KeepsItsQualityOfServiceAsData)
{
    NSOperationQueue queue;
    queue.setQualityOfService(platform::NSQualityOfService::Utility);
    EXPECT_EQ(static_cast<int>(queue.qualityOfService()), 17);
}
