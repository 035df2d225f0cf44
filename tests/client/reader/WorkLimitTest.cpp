#include "client/reader/WorkLimit.h"

#include "client/questions/ReaderMessage.h"
#include "platform/foundation/FileDescriptor.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <span>

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace stillora {
namespace {

/// Uses the processor's time of the calling thread.
void work(std::chrono::milliseconds time)
{
    const auto used = [] {
        timespec now = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
        return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
    };
    const auto end = used() + time;
    while (used() < end) {
    }
}

/// Does it in a process of its own.
/// @return the limit that was told; nothing if the work came to its end
std::optional<uint32_t> toldDuring(const std::function<void()>& work)
{
    std::array<int, 2> ends{};
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()), 0);
    platform::FileDescriptor ours(ends[0]);
    platform::FileDescriptor theirs(ends[1]);
    const pid_t process = fork();
    if (process == 0) {
        WorkLimit::setUp();
        WorkLimit::setChannelOfThread(theirs.get());
        work();
        _exit(0);
    }
    theirs.reset();
    ReaderMessage message;
    const ssize_t received = receivePart(ours.get(), std::as_writable_bytes(std::span(&message, 1)));
    int status = 0;
    EXPECT_EQ(waitpid(process, &status, 0), process);
    EXPECT_EQ(status, 0);
    if (received == 0)
        return std::nullopt;
    EXPECT_EQ(received, static_cast<ssize_t>(sizeof message));
    return message.milliseconds;
}

TEST(WorkLimit, TellsTheOtherSideAndEndsWhereTheTimeIsUp)
{
    EXPECT_EQ(toldDuring([] {
                  const WorkLimit limit(100ms);
                  work(80ms);
              }),
              std::nullopt);
    EXPECT_EQ(toldDuring([] {
                  const WorkLimit limit(100ms);
                  work(2s);
              }),
              100U);
    EXPECT_EQ(toldDuring([] {
                  WorkLimit limit(0ms);
                  limit.beginPart(2, [] { work(200ms); }).join();
                  work(200ms);
              }),
              std::nullopt);
}

TEST(WorkLimit, APartGetsItsShareAndTheWholeIsTold)
{
    EXPECT_EQ(toldDuring([] {
                  WorkLimit limit(400ms);
                  const auto one = limit.beginPart(2, [] { work(150ms); });
                  const auto other = limit.beginPart(2, [] { work(150ms); });
              }),
              std::nullopt);
    EXPECT_EQ(toldDuring([] {
                  WorkLimit limit(400ms);
                  limit.beginPart(2, [] { work(300ms); }).join();
              }),
              400U);
}

TEST(WorkLimit, WhatPartsHaveUsedIsGoneFromTheRest)
{
    const auto afterParts = [](std::chrono::milliseconds rest) {
        return toldDuring([rest] {
            WorkLimit limit(400ms);
            limit.beginPart(2, [] { work(150ms); }).join();
            limit.beginPart(2, [] { work(150ms); }).join();
            work(rest);
        });
    };
    EXPECT_EQ(afterParts(50ms), std::nullopt);
    EXPECT_EQ(afterParts(200ms), 400U);
}

} // namespace
} // namespace stillora
