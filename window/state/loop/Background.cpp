#include "window/state/loop/Background.h"

#include "platform/dispatch/DispatchQueue.h"

#include <algorithm>
#include <thread>
#include <vector>

namespace stillora::window {

/// What the works share with the object that started them. Lives as long as either.
struct Background::Shared {
    /// Calls what has come back. Main thread.
    void deliver()
    {
        std::vector<Delivery> deliveries;
        {
            const platform::LockGuard guard(lock);
            std::swap(deliveries, ready);
        }
        for (Delivery& delivery : deliveries) {
            if (!owner)
                return;
            --owner->running_;
            delivery();
        }
    }

    // Only on the main thread. Null once the object is gone.
    Background* owner = nullptr;

    platform::Lock lock;
    platform::Condition changed;
    MainLoop* loop GUARDED_BY(lock) = nullptr;
    std::vector<Delivery> ready GUARDED_BY(lock);
    std::size_t working GUARDED_BY(lock) = 0;
};

namespace {

constexpr int kLowNiceness = 10;

const std::shared_ptr<platform::DispatchQueue>& queueFor(Urgency urgency)
{
    static const auto& usual = *new auto(platform::DispatchQueue::global());
    static const auto& low = *new auto(platform::DispatchQueue::create(
        "low urgency", {.kind = platform::DispatchQueue::Kind::Concurrent, .niceness = kLowNiceness}));
    return urgency == Urgency::Low ? low : usual;
}

} // namespace

Background::Background(MainLoop& loop, Urgency urgency) : shared_(std::make_shared<Shared>()), urgency_(urgency)
{
    shared_->owner = this;
    const platform::LockGuard guard(shared_->lock);
    shared_->loop = &loop;
}

std::size_t Background::mostAtOnce()
{
    // Asking takes several files of the system.
    static const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
    return processors;
}

Background::~Background()
{
    shared_->owner = nullptr;
    const platform::LockGuard guard(shared_->lock);
    shared_->loop = nullptr;
}

void Background::start(std::move_only_function<Delivery()> work)
{
    ++running_;
    {
        const platform::LockGuard guard(shared_->lock);
        ++shared_->working;
    }
    queueFor(urgency_)->async([shared = shared_, work = std::move(work)]() mutable {
        Delivery delivery = work();
        // What it held, as the lock of a document, is free when the main thread hears of its end.
        work = nullptr;
        const platform::LockGuard guard(shared->lock);
        shared->ready.push_back(std::move(delivery));
        --shared->working;
        shared->changed.notify_all();
        // Under the lock, which keeps the loop there; it only takes the call.
        if (shared->loop)
            shared->loop->post([shared] { shared->deliver(); });
    });
}

void Background::finish()
{
    while (running_ > 0) {
        {
            const platform::LockGuard guard(shared_->lock);
            while (shared_->working > 0)
                shared_->changed.wait(shared_->lock);
        }
        shared_->deliver();
    }
}

} // namespace stillora::window
