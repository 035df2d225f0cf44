#include "client/command/terminal/SignalWatch.h"

#include <stillora/Movie.h>

#include "client/command/terminal/ExitStatus.h"
#include "client/command/terminal/Terminal.h"
#include "client/processes/WorkingClock.h"
#include "client/service/ServiceProcess.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>

#include <sys/time.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr std::array<int, 3> kSignals{SIGINT, SIGTERM, SIGHUP};

/// After the second signal: what is made is removed within it.
constexpr itimerval kPatience{{0, 0}, {0, 300'000}};

// All that a handler may touch.
std::atomic<MovieMaker*> watched{nullptr};
std::atomic<int> firstSignal{0};
static_assert(std::atomic<MovieMaker*>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

void interrupted(int signal)
{
    int none = 0;
    if (!firstSignal.compare_exchange_strong(none, signal))
        setitimer(ITIMER_REAL, &kPatience, nullptr);
    if (MovieMaker* maker = watched)
        maker->cancel();
}

void patienceIsOver(int)
{
    _exit(kExitSignalled + firstSignal);
}

void install(int signal, void (*handler)(int));

/// Stops the service and this program as the terminal asks, until both may go on.
void suspended(int)
{
    const int before = errno;
    const auto start = std::chrono::steady_clock::now();
    Terminal::eraseForStop();
    ServiceProcess::stopAll();
    std::signal(SIGTSTP, SIG_DFL);
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTSTP);
    raise(SIGTSTP);
    // Here the program stands still. Where nobody could let it go on again it is not stopped at all.
    pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
    install(SIGTSTP, suspended);
    WorkingClock::addStop(std::chrono::steady_clock::now() - start);
    ServiceProcess::continueAll();
    errno = before;
}

void install(int signal, void (*handler)(int))
{
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    // Else the second of two that come together would be handled first.
    sigemptyset(&action.sa_mask);
    for (const int other : kSignals)
        sigaddset(&action.sa_mask, other);
    sigaction(signal, &action, nullptr);
}

} // namespace

SignalWatch::SignalWatch() : SignalWatch(nullptr) {}

SignalWatch::SignalWatch(MovieMaker& maker) : SignalWatch(&maker) {}

SignalWatch::SignalWatch(MovieMaker* maker)
{
    watched = maker;
    firstSignal = 0;
    install(SIGALRM, patienceIsOver);
    const auto installUnlessIgnored = [](int signal, void (*handler)(int)) {
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN)
            install(signal, handler);
    };
    for (const int signal : kSignals)
        installUnlessIgnored(signal, interrupted);
    installUnlessIgnored(SIGTSTP, suspended);
}

SignalWatch::~SignalWatch()
{
    watched = nullptr;
}

int SignalWatch::signal() const
{
    return firstSignal;
}

} // namespace stillora
