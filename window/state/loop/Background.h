#pragma once

#include "platform/foundation/Lock.h"
#include "window/state/loop/MainLoop.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <utility>

namespace stillora::window {

/// Whether somebody waits for a work. Of low urgency it stands back for all others.
enum class Urgency { Usual, Low };

/// Work beside the main thread, whose results come back to it. Goes with the object that uses the results: what is
/// still running when it goes ends by itself, and its results are dropped. Main thread.
class Background final {
public:
    explicit Background(MainLoop& loop, Urgency urgency = Urgency::Usual);
    ~Background();
    Background(const Background&) = delete;
    Background& operator=(const Background&) = delete;

    /// Starts at once, on a thread of its own.
    ///
    /// @param work  called on that thread; knows nothing that lives on the main thread
    /// @param done  called on the main thread with what `work` returned
    template <typename Work, typename Done>
    void run(Work work, Done done)
    {
        start([work = std::move(work), done = std::move(done)]() mutable -> std::function<void()> {
            auto result = std::make_shared<decltype(work())>(work());
            return [result, done = std::move(done)]() mutable { done(std::move(*result)); };
        });
    }

    /// As many works of one kind as there are processors, so that who reads files has always one at hand.
    static std::size_t mostAtOnce();

    /// Of works whose results have not come back yet.
    std::size_t running() const { return running_; }

    /// Blocks until nothing runs any more, and then delivers the results. For the end of the program.
    void finish();

private:
    struct Shared;
    using Delivery = std::function<void()>;

    void start(std::move_only_function<Delivery()> work);

    const std::shared_ptr<Shared> shared_;
    const Urgency urgency_;
    std::size_t running_ = 0;
};

} // namespace stillora::window
