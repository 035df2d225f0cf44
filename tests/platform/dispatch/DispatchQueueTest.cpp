#include "platform/dispatch/DispatchQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <latch>
#include <memory>
#include <semaphore>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace std::chrono_literals;
using platform::DispatchQueue;

constexpr auto kDeadline = 20s;

int threadNiceness()
{
    return getpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)));
}

} // namespace

TEST(DispatchQueue, KeepsItsLabelAndAttributes)
{
    const auto queue = DispatchQueue::create("app.example.Queue",
                                             {.kind = DispatchQueue::Kind::Concurrent,
                                              .autoreleaseFrequency = DispatchQueue::AutoreleaseFrequency::WorkItem,
                                              .qosClass = platform::QOSClass::UserInteractive,
                                              .relativePriority = -1});
    EXPECT_EQ(queue->label(), "app.example.Queue");
    EXPECT_EQ(queue->attributes().kind, DispatchQueue::Kind::Concurrent);
    EXPECT_EQ(queue->attributes().autoreleaseFrequency, DispatchQueue::AutoreleaseFrequency::WorkItem);
    EXPECT_EQ(static_cast<unsigned>(queue->attributes().qosClass), 33U);
    EXPECT_EQ(queue->attributes().relativePriority, -1);
}

TEST(DispatchQueue, RunsTheBlocksOfASerialQueueInOrderAndNeverTwoAtOnce)
{
    const auto queue = DispatchQueue::create("serial", {});
    std::vector<int> order;
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    for (int i = 0; i < 1000; ++i) {
        queue->async([&, i] {
            most = std::max(most.load(), ++inside);
            order.push_back(i);
            --inside;
        });
    }
    queue->sync([] {});
    ASSERT_EQ(order.size(), 1000U);
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(order[static_cast<size_t>(i)], i);
    EXPECT_EQ(most, 1);
}

TEST(DispatchQueue, RunsBlocksOfASerialQueueThatOutlivesItsLastOwner)
{
    std::promise<void> gate;
    std::promise<int> result;
    {
        const auto queue = DispatchQueue::create("serial", {});
        queue->async([ready = gate.get_future()]() mutable { ready.wait(); });
        queue->async([&] { result.set_value(7); });
    }
    gate.set_value();
    auto future = result.get_future();
    ASSERT_EQ(future.wait_for(kDeadline), std::future_status::ready);
    EXPECT_EQ(future.get(), 7);
}

TEST(DispatchQueue, RunsBlocksOfAConcurrentQueueAtTheSameTime)
{
    const auto queue = DispatchQueue::create("concurrent", {.kind = DispatchQueue::Kind::Concurrent});
    constexpr int kCount = 8;
    std::latch allInside(kCount);
    std::latch allDone(kCount);
    for (int i = 0; i < kCount; ++i) {
        queue->async([&] {
            // Passes only if all are inside at once.
            allInside.arrive_and_wait();
            allDone.count_down();
        });
    }
    allDone.wait();
}

TEST(DispatchQueue, IsNotStarvedByBlocksThatWait)
{
    constexpr int kBlocked = 64;
    std::atomic<bool> open{false};
    std::latch left(kBlocked);
    for (int i = 0; i < kBlocked; ++i) {
        DispatchQueue::global()->async([&] {
            open.wait(false);
            left.count_down();
        });
    }
    std::promise<void> ran;
    DispatchQueue::global()->async([&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(kDeadline), std::future_status::ready);
    open = true;
    open.notify_all();
    left.wait();
}

TEST(DispatchQueue, IsNotStarvedByBlocksThatSpin)
{
    const auto count = 2 * std::thread::hardware_concurrency();
    std::atomic<bool> open{false};
    std::latch left(count);
    for (unsigned i = 0; i < count; ++i) {
        DispatchQueue::global()->async([&] {
            while (!open)
                std::this_thread::yield();
            left.count_down();
        });
    }
    std::promise<void> ran;
    DispatchQueue::global()->async([&] { ran.set_value(); });
    EXPECT_EQ(ran.get_future().wait_for(kDeadline), std::future_status::ready);
    open = true;
    left.wait();
}

TEST(DispatchQueue, DoesNotMakeAThreadForEachBlockThatComputes)
{
    const auto queue = DispatchQueue::create("busy", {.kind = DispatchQueue::Kind::Concurrent, .niceness = 2});
    constexpr int kBlocks = 200;
    std::latch done(kBlocks);
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    for (int i = 0; i < kBlocks; ++i) {
        queue->async([&] {
            const int now = ++inside;
            for (int seen = most; seen < now && !most.compare_exchange_weak(seen, now);) {
            }
            const auto end = std::chrono::steady_clock::now() + 1ms;
            while (std::chrono::steady_clock::now() < end) {
            }
            --inside;
            done.count_down();
        });
    }
    done.wait();
    // Another is made only where none of them begins for as long as twenty take.
    EXPECT_LE(most, 4 * static_cast<int>(std::thread::hardware_concurrency()) + 4);
}

TEST(DispatchQueue, RunsANiceQueueOnNiceThreadsAndTheOthersNot)
{
    const int own = threadNiceness();
    int nice = -100;
    int plain = -100;
    DispatchQueue::create("nice", {.kind = DispatchQueue::Kind::Concurrent, .niceness = 5})->sync([&] {
        nice = threadNiceness();
    });
    DispatchQueue::create("plain", {})->sync([&] { plain = threadNiceness(); });
    EXPECT_EQ(nice, std::min(own + 5, 19));
    EXPECT_EQ(plain, own);
}

TEST(DispatchQueue, KnowsWhichQueueAThreadRuns)
{
    const auto one = DispatchQueue::create("one", {});
    const auto other = DispatchQueue::create("other", {});
    EXPECT_FALSE(one->isCurrent());
    one->sync([&] {
        EXPECT_TRUE(one->isCurrent());
        EXPECT_FALSE(other->isCurrent());
        other->sync([&] { EXPECT_TRUE(other->isCurrent()); });
    });
}

#ifndef NDEBUG
TEST(DispatchQueueDeathTest, WhatIsBoundToAQueueEndsTheProcessElsewhere)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const auto queue = DispatchQueue::create("bound", {});
    queue->sync([&] { assertOnQueue(*queue); });
    EXPECT_DEATH(assertOnQueue(*queue), "Not on queue \"bound\"");
}
#endif

TEST(DispatchQueue, EndsWhatABlockHoldsBeforeTheNextBlockRuns)
{
    const auto queue = DispatchQueue::create("serial", {});
    auto held = std::make_shared<int>(1);
    const std::weak_ptr<int> watch = held;
    bool gone = false;
    queue->async([held = std::move(held)] {});
    queue->sync([&] { gone = watch.expired(); });
    EXPECT_TRUE(gone);
}

TEST(DispatchQueue, RunsTheMainQueueOnTheThreadThatAsks)
{
    const auto thread = std::this_thread::get_id();
    std::thread::id ranOn;
    bool wasCurrent = false;
    DispatchQueue::global()->async([&] {
        DispatchQueue::main()->async([&] {
            ranOn = std::this_thread::get_id();
            wasCurrent = DispatchQueue::main()->isCurrent();
            DispatchQueue::stopMain();
        });
    });
    DispatchQueue::runMain();
    EXPECT_EQ(ranOn, thread);
    EXPECT_TRUE(wasCurrent);
}

TEST(DispatchQueue, ReturnsFromRunMainAfterTheRunningBlockAndKeepsTheRest)
{
    std::vector<int> order;
    DispatchQueue::main()->async([&] {
        DispatchQueue::stopMain();
        order.push_back(1);
    });
    DispatchQueue::main()->async([&] { order.push_back(2); });
    DispatchQueue::runMain();
    EXPECT_EQ(order, std::vector<int>({1}));
    EXPECT_TRUE(DispatchQueue::runMainUntil([&] { return order.size() == 2; }, 20));
    EXPECT_EQ(order, std::vector<int>({1, 2}));
}

TEST(DispatchQueue, ReturnsFromRunMainAtOnceIfItWasStoppedBefore)
{
    DispatchQueue::stopMain();
    DispatchQueue::runMain();
}

TEST(DispatchQueue, GivesUpRunningTheMainQueueAtTheDeadline)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(DispatchQueue::runMainUntil([] { return false; }, 0.05));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 50ms);
}
