#include "window/state/MovieWork.h"

#include "platform/foundation/Lock.h"

#include <optional>
#include <utility>

namespace stillora::window {

/// What the work shares with whom it is done for. Lives as long as either.
struct MovieWork::Shared final : MovieMaker::Observer, std::enable_shared_from_this<MovieWork::Shared> {
    explicit Shared(MainLoop& shownBy) : loop(&shownBy) {}

    void progressChanged(const MovieProgress& progress) override
    {
        const platform::LockGuard guard(lock);
        const bool isPosted = news.has_value();
        news = progress;
        if (loop && !isPosted)
            loop->post([shared = shared_from_this()] { shared->tell(); });
    }

    /// Main thread.
    void tell()
    {
        std::optional<MovieProgress> progress;
        {
            const platform::LockGuard guard(lock);
            std::swap(progress, news);
        }
        // A copy, as what is called may let the work go.
        const auto progressChangedHandler = handlers.progressChanged;
        if (progress && progressChangedHandler)
            progressChangedHandler(*progress);
    }

    MovieMaker maker;

    // Only on the main thread; none once nobody waits any more.
    Handlers handlers;

    platform::Lock lock;
    MainLoop* loop GUARDED_BY(lock);
    std::optional<MovieProgress> news GUARDED_BY(lock);
};

// A process begins with the niceness of the thread that starts it.
MovieWork::MovieWork(MainLoop& loop, MovieRequest request, Handlers handlers, Urgency urgency)
    : shared_(std::make_shared<Shared>(loop)), background_(loop, urgency)
{
    shared_->handlers = std::move(handlers);
    background_.run(
        [shared = shared_, request = std::move(request)] { return shared->maker.makeMovie(request, *shared); },
        [shared = shared_](Result<Movie> made) {
            const auto ended = shared->handlers.ended;
            shared->handlers = {};
            if (ended)
                ended(std::move(made));
        });
}

MovieWork::~MovieWork()
{
    shared_->maker.cancel();
    shared_->handlers = {};
    const platform::LockGuard guard(shared_->lock);
    shared_->loop = nullptr;
}

void MovieWork::cancel()
{
    shared_->maker.cancel();
}

void MovieWork::finish()
{
    background_.finish();
}

} // namespace stillora::window
