#include "client/reader/WorkLimit.h"

#include "client/questions/ReaderMessage.h"

#include <csignal>
#include <span>
#include <utility>

#include <unistd.h>

namespace stillora {

namespace {

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

std::jthread WorkLimit::beginAside(std::chrono::milliseconds most, std::function<void()> work)
{
    return std::jthread([most, channel = channelOfThread, work = std::move(work)] {
        setChannelOfThread(channel);
        const WorkLimit limit(most);
        work();
    });
}

WorkLimit::WorkLimit(std::chrono::milliseconds most)
{
    if (most.count() <= 0)
        return;
    sigevent event = {};
    event.sigev_notify = SIGEV_THREAD_ID;
    event.sigev_signo = SIGXCPU;
    event.sigev_value.sival_int = static_cast<int>(most.count());
    event._sigev_un._tid = gettid();
    if (timer_create(CLOCK_THREAD_CPUTIME_ID, &event, &timer_) != 0)
        return;
    isSet_ = true;
    itimerspec time = {};
    time.it_value.tv_sec = most.count() / 1000;
    time.it_value.tv_nsec = most.count() % 1000 * 1'000'000;
    timer_settime(timer_, 0, &time, nullptr);
}

WorkLimit::~WorkLimit()
{
    if (isSet_)
        timer_delete(timer_);
}

} // namespace stillora
