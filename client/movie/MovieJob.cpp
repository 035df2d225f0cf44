#include <stillora/Movie.h>

#include "client/processes/WakeUp.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/Lock.h"

#include <memory>
#include <optional>
#include <utility>

namespace stillora {

/// What the thread that makes the movie shares with the one that dispatches. Lives as long as either needs it.
struct STILLORA_HIDDEN MovieJob::State final : MovieMaker::Observer {
    State(MovieRequest what, Handlers whom, MovieMaker::Limits limits)
        : request(std::move(what)), maker(limits), handlers(std::move(whom))
    {}

    /// The whole work.
    void run()
    {
        Result<Movie> made = maker.makeMovie(request, *this);
        const platform::LockGuard guard(lock);
        result = std::move(made);
        hasEnded = true;
        news.wake();
        ended.notify_all();
    }

    void progressChanged(const MovieProgress& update) override
    {
        const platform::LockGuard guard(lock);
        progress = update;
        news.wake();
    }

    const MovieRequest request;
    MovieMaker maker;
    WakeUp news;

    // Only on the thread that dispatches.
    Handlers handlers;
    bool isJobGone = false;

    platform::Lock lock;
    platform::Condition ended;
    std::optional<MovieProgress> progress GUARDED_BY(lock);
    std::optional<Result<Movie>> result GUARDED_BY(lock);
    bool hasEnded GUARDED_BY(lock) = false;
};

MovieJob::MovieJob(MovieRequest request, Handlers handlers, MovieMaker::Limits limits)
    : state_(std::make_shared<State>(std::move(request), std::move(handlers), limits))
{
    platform::DispatchQueue::global()->async([state = state_] { state->run(); });
}

MovieJob::~MovieJob()
{
    state_->isJobGone = true;
    state_->maker.cancel();
    {
        const platform::LockGuard guard(state_->lock);
        while (!state_->hasEnded)
            state_->ended.wait(state_->lock);
    }
    // What they hold is the program's, and goes on the program's thread.
    state_->handlers = {};
}

int MovieJob::descriptor() const noexcept
{
    return state_->news.descriptor();
}

void MovieJob::dispatch()
{
    // Handlers may destroy the job.
    const std::shared_ptr<State> state = state_;
    const Handlers handlers = state->handlers;
    std::optional<MovieProgress> progress;
    std::optional<Result<Movie>> result;
    state->news.clear();
    {
        const platform::LockGuard guard(state->lock);
        std::swap(progress, state->progress);
        std::swap(result, state->result);
    }
    if (progress && handlers.progressChanged)
        handlers.progressChanged(*progress);
    if (result && handlers.ended && !state->isJobGone)
        handlers.ended(*result);
}

void MovieJob::cancel() noexcept
{
    state_->maker.cancel();
}

} // namespace stillora
