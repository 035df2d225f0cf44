#include "platform/dispatch/ThreadPool.h"

#include <chrono>
#include <csignal>
#include <future>
#include <pthread.h>
#include <system_error>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;
using platform::ThreadPool;

/// From now on the system makes no thread: each would need a stack larger than there is room.
void refuseThreads()
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, size_t{1} << 47);
    pthread_setattr_default_np(&attributes);
    pthread_attr_destroy(&attributes);
}

class ThreadPoolTest : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

} // namespace

TEST_F(ThreadPoolTest, RefusesABlockThatNobodyWillRun)
{
    EXPECT_EXIT(
        {
            refuseThreads();
            try {
                ThreadPool::withNiceness(0).submit([] {});
            } catch (const std::system_error& error) {
                _exit(error.code() == std::errc::resource_unavailable_try_again ? 7 : 8);
            }
        },
        testing::ExitedWithCode(7), "");
}

TEST_F(ThreadPoolTest, EndsTheProcessWhereAllThreadsWaitForOneThatCannotBeMade)
{
    EXPECT_EXIT(
        {
            std::promise<void> done;
            ThreadPool& pool = ThreadPool::withNiceness(0);
            pool.submit([&] {
                refuseThreads();
                std::promise<void> inner;
                pool.submit([&] { inner.set_value(); });
                inner.get_future().wait();
                done.set_value();
            });
            done.get_future().wait();
        },
        testing::KilledBySignal(SIGABRT), "no thread can be made");
}

TEST_F(ThreadPoolTest, GoesOnWithTheThreadsThatItHasAsLongAsTheyCompute)
{
    EXPECT_EXIT(
        {
            std::promise<void> done;
            ThreadPool& pool = ThreadPool::withNiceness(0);
            pool.submit([&] {
                refuseThreads();
                pool.submit([&] { done.set_value(); });
                // Longer than a pool stands still.
                const auto end = std::chrono::steady_clock::now() + 5s;
                while (std::chrono::steady_clock::now() < end) {
                }
            });
            done.get_future().wait();
            _exit(0);
        },
        testing::ExitedWithCode(0), "");
}
