#include "client/reader/WorkLimit.h"

#include "client/questions/ReaderMessage.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <span>
#include <utility>

#include <unistd.h>

namespace stillora {

namespace {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;

timespec inTimespec(std::chrono::nanoseconds time)
{
    return {.tv_sec = time.count() / kNanosecondsPerSecond, .tv_nsec = time.count() % kNanosecondsPerSecond};
}

std::chrono::nanoseconds inNanoseconds(timespec time)
{
    return std::chrono::nanoseconds(time.tv_sec * kNanosecondsPerSecond + time.tv_nsec);
}

thread_local int channelOfThread = -1;

void timeIsUp(int, siginfo_t* signal, void*)
{
    const ReaderMessage message{.milliseconds = static_cast<uint32_t>(signal->si_value.sival_int)};
    sendPart(channelOfThread, std::as_bytes(std::span(&message, 1)));
    _exit(0);
}

} // namespace

void WorkLimit::setUp()
{
    struct sigaction action = {};
    action.sa_sigaction = timeIsUp;
    action.sa_flags = SA_SIGINFO;
    sigaction(SIGXCPU, &action, nullptr);
}

void WorkLimit::setChannelOfThread(int channel)
{
    channelOfThread = channel;
}

WorkLimit::WorkLimit(std::chrono::milliseconds most) : WorkLimit(most, most) {}

WorkLimit::WorkLimit(std::chrono::nanoseconds most, std::chrono::milliseconds told) : most_(told)
{
    if (most.count() <= 0)
        return;
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGXCPU;
    event.sigev_value.sival_int = static_cast<int>(told.count());
    event._sigev_un._tid = gettid();
    if (timer_create(CLOCK_THREAD_CPUTIME_ID, &event, &timer_) != 0)
        return;
    isSet_ = true;
    const itimerspec time{.it_interval = {}, .it_value = inTimespec(most)};
    timer_settime(timer_, 0, &time, nullptr);
}

WorkLimit::~WorkLimit()
{
    if (isSet_)
        timer_delete(timer_);
}

std::jthread WorkLimit::beginPart(unsigned parts, std::function<void()> work)
{
    return std::jthread([this, parts, channel = channelOfThread, work = std::move(work)] {
        setChannelOfThread(channel);
        {
            const WorkLimit limit(std::chrono::nanoseconds(most_) / parts, most_);
            work();
        }
        timespec used = {};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
        takeAway(inNanoseconds(used));
    });
}

void WorkLimit::takeAway(std::chrono::nanoseconds used)
{
    if (!isSet_)
        return;
    const platform::LockGuard guard(lock_);
    itimerspec time = {};
    timer_gettime(timer_, &time);
    // Zero would stop the clock.
    time.it_value = inTimespec(std::max(inNanoseconds(time.it_value) - used, std::chrono::nanoseconds(1)));
    timer_settime(timer_, 0, &time, nullptr);
}

} // namespace stillora
