#include "client/batch/BatchRun.h"

#include "client/batch/JobGauge.h"
#include "client/batch/PeakMemory.h"
#include "client/command/making/RememberedSettings.h"
#include "client/text/LocalizedText.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/Lock.h"

#include <algorithm>
#include <deque>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kTick{100};
constexpr milliseconds kBetweenMeasures{1000};
/// Before lines that others hold are looked at again.
constexpr milliseconds kBetweenLooks{1000};

} // namespace

/// What the jobs share. Lives as long as any of them.
class BatchRun::Shared final {
public:
    Shared(const StateFolder& state, const LineIndex& index, const Wish& wish)
        : state_(state), index_(index), wish_(wish), log_(state.logs()), next_(wish.first)
    {
        rules_.folder = wish.manifest.parent_path();
        rules_.comparesContents = wish.comparesContents;
        rules_.makesAgain = wish.makesAgain;
    }

    /// @return what keeps the work from beginning; empty if nothing does
    std::string open()
    {
        auto reader = ManifestReader::open(wish_.manifest);
        if (!reader)
            return reader.error().message;
        if (const auto entry = index_.entry(wish_.first))
            reader->seek(wish_.first, entry->offset);
        {
            const platform::LockGuard guard(lock_);
            reader_.emplace(*std::move(reader));
        }
        // The server's clock tells which failures are older.
        const auto probe = Worker::create(state_, wish_.lease);
        if (!probe)
            return probe.error().message;
        (*probe)->renew();
        struct stat status = {};
        if (stat((state_.workers() / (*probe)->name()).c_str(), &status) == 0)
            rules_.start = status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec;
        return {};
    }

    void tidyUp() const
    {
        if (!wish_.tidiesUp)
            return;
        if (const auto worker = Worker::create(state_, wish_.lease))
            (*worker)->removeDeadWorkers();
    }

    /// One job, on a thread of its own.
    void work()
    {
        makeMovies();
        // Only when nothing of the worker is left: the program may end now.
        const platform::LockGuard guard(lock_);
        --running_;
        news_.notify_all();
    }

    /// Whether another job can share in a movie.
    bool hasTurns() const REQUIRES(lock_)
    {
        return std::ranges::any_of(shared_, [](const auto& each) { return each.second.turns > 0; });
    }

    platform::Lock lock_;
    platform::Condition news_;
    int running_ GUARDED_BY(lock_) = 0;
    int allowed_ GUARDED_BY(lock_) = 1;
    bool stops_ GUARDED_BY(lock_) = false;
    std::string fault_ GUARDED_BY(lock_);
    std::set<LineWork*> jobs_ GUARDED_BY(lock_);
    std::set<Worker*> workers_ GUARDED_BY(lock_);
    std::vector<LineOutcome> outcomes_ GUARDED_BY(lock_);
    /// Lines that others were at, and those that are tried again.
    std::vector<size_t> held_ GUARDED_BY(lock_);
    std::deque<size_t> again_ GUARDED_BY(lock_);
    bool isReadToEnd_ GUARDED_BY(lock_) = false;

private:
    void makeMovies()
    {
        const auto worker = Worker::create(state_, wish_.lease);
        if (!worker) {
            const platform::LockGuard guard(lock_);
            fault_ = worker.error().message;
            stops_ = true;
            return;
        }
        LineWork job(state_, **worker, log_, rules_, pieces_);
        enter(job, **worker);
        while (const auto movie = nextMovie())
            end(job.run(*movie));
        leave(job, **worker);
    }

    void enter(LineWork& job, Worker& worker)
    {
        const platform::LockGuard guard(lock_);
        jobs_.insert(&job);
        workers_.insert(&worker);
    }

    void leave(LineWork& job, Worker& worker)
    {
        const platform::LockGuard guard(lock_);
        jobs_.erase(&job);
        workers_.erase(&worker);
    }

    void end(const LineOutcome& outcome)
    {
        const platform::LockGuard guard(lock_);
        tell(outcome);
        if (outcome.state == LineOutcome::State::NoService ||
            (outcome.state == LineOutcome::State::Failed && wish_.stopsAtFailure))
            stops_ = true;
        news_.notify_all();
    }

    /// Of the jobs that share in a movie, one tells what has become of it.
    void tell(const LineOutcome& outcome) REQUIRES(lock_)
    {
        const auto shared = shared_.find(outcome.line);
        const bool isShared = shared != shared_.end();
        if (isShared && shared->second.hasEnded)
            return;
        if (outcome.state == LineOutcome::State::Held) {
            if (std::ranges::count(held_, outcome.line) == 0)
                held_.push_back(outcome.line);
            return;
        }
        outcomes_.push_back(outcome);
        if (!isShared)
            return;
        shared->second = {.hasEnded = true};
        std::erase(held_, outcome.line);
        std::erase(again_, outcome.line);
    }

    /// A movie of pieces, for another job.
    std::optional<ManifestMovie> nextTurn() REQUIRES(lock_)
    {
        for (auto& [line, sharing] : shared_)
            if (sharing.turns > 0) {
                --sharing.turns;
                return sharing.movie;
            }
        return std::nullopt;
    }

    std::optional<ManifestMovie> nextMovie()
    {
        const platform::LockGuard guard(lock_);
        while (!stops_ && running_ <= allowed_) {
            if (auto movie = nextTurn())
                return movie;
            const auto line = nextLine();
            if (!line)
                return std::nullopt;
            if (line->isBlank())
                continue;
            std::vector<ManifestFault> faults;
            auto movie = line->text ? readManifestLine(*line->text, rules_.folder, line->number, faults) : std::nullopt;
            if (movie) {
                RememberedSettings::complete(movie->options);
                if (movie->split > 1 && !shared_[movie->line].hasEnded)
                    shared_[movie->line] = {.movie = *movie, .turns = movie->split - 1};
                return movie;
            }
            LineOutcome bad{.state = LineOutcome::State::Failed, .line = line->number};
            bad.isUnreadable = true;
            bad.name = localized("line {}", line->number);
            for (const ManifestFault& fault : faults)
                bad.reason += fmt::format("{}{}{}{}", bad.reason.empty() ? "" : "; ", fault.field,
                                          fault.field.empty() ? "" : ": ", fault.reason);
            outcomes_.push_back(bad);
            stops_ = stops_ || wish_.stopsAtFailure;
        }
        return std::nullopt;
    }

    std::optional<ManifestReader::Line> nextLine() REQUIRES(lock_)
    {
        if (!isReadToEnd_ && next_ <= wish_.last) {
            ++next_;
            if (auto line = reader_->next())
                return line;
        }
        isReadToEnd_ = true;
        if (again_.empty())
            return std::nullopt;
        const size_t number = again_.front();
        again_.pop_front();
        const auto entry = index_.entry(number);
        if (!entry)
            return std::nullopt;
        reader_->seek(number, entry->offset);
        return reader_->next();
    }

    const StateFolder state_;
    const LineIndex& index_;
    const Wish wish_;
    const BatchLog log_;
    LineWork::Rules rules_;
    /// A movie of pieces, which several jobs make together.
    struct Sharing {
        std::optional<ManifestMovie> movie = {};
        /// How many jobs may still come to it.
        size_t turns = 0;
        bool hasEnded = false;
    };

    KnownPieces pieces_;
    std::map<size_t, Sharing> shared_ GUARDED_BY(lock_);
    std::optional<ManifestReader> reader_ GUARDED_BY(lock_);
    size_t next_ GUARDED_BY(lock_);
};

BatchRun::BatchRun(const StateFolder& state, const LineIndex& index, Wish wish, Listener listener)
    : state_(state), index_(index), wish_(std::move(wish)), listener_(std::move(listener)),
      shared_(std::make_shared<Shared>(state, index, wish_))
{}

BatchRun::~BatchRun() = default;

size_t BatchRun::countPending() const
{
    std::set<std::string> made;
    // A share of a long list is small, and its receipts are asked for one by one.
    constexpr size_t kFewLines = 1000;
    const bool isShare = wish_.last - wish_.first < kFewLines;
    if (!isShare)
        state_.forEach([&](const std::string& key, const StateFolder::Traces& traces) {
            if (traces.hasReceipt)
                made.insert(key);
        });
    size_t pending = 0;
    for (size_t line = wish_.first; line <= wish_.last; ++line) {
        const auto entry = index_.entry(line);
        if (!entry || !entry->hasMovie())
            continue;
        struct stat status = {};
        const bool isMade =
            isShare ? stat(state_.receipt(entry->keyText()).c_str(), &status) == 0 : made.contains(entry->keyText());
        pending += isMade ? 0 : 1;
    }
    return pending;
}

void BatchRun::startJobs()
{
    const platform::LockGuard guard(shared_->lock_);
    const bool hasWork = !shared_->isReadToEnd_ || !shared_->again_.empty() || shared_->hasTurns();
    while (hasWork && !shared_->stops_ && shared_->running_ < shared_->allowed_) {
        ++shared_->running_;
        platform::DispatchQueue::global()->async([shared = shared_] { shared->work(); });
    }
    result_.mostJobs = std::max(result_.mostJobs, shared_->running_);
}

void BatchRun::takeNews()
{
    std::vector<LineOutcome> outcomes;
    {
        const platform::LockGuard guard(shared_->lock_);
        outcomes.swap(shared_->outcomes_);
    }
    using State = LineOutcome::State;
    for (const LineOutcome& outcome : outcomes) {
        BatchCounts& counts = result_.counts;
        // The index has counted those alone that can be read.
        counts.movies += outcome.isUnreadable ? 1 : 0;
        noteEnd(outcome);
        counts.made += outcome.state == State::Made;
        counts.unchanged += outcome.state == State::Unchanged;
        counts.moved += outcome.state == State::Moved;
        counts.altered += outcome.state == State::Altered;
        counts.failed += outcome.state == State::Failed;
        if (outcome.state == State::NoService)
            result_.serviceFault = outcome.reason;
        else if (outcome.state != State::Cancelled)
            listener_.lineEnded(outcome);
    }
}

void BatchRun::noteEnd(const LineOutcome& outcome)
{
    using State = LineOutcome::State;
    using End = BatchForecast::End;
    if (outcome.state == State::Cancelled || outcome.state == State::NoService || outcome.isUnreadable)
        return;
    const bool wasTried = outcome.state == State::Made || outcome.state == State::Failed;
    forecast_->ended(!outcome.hadReceipt ? End::First : wasTried ? End::Again : End::Kept, Clock::now() - start_);
}

void BatchRun::tellProgress()
{
    double running = 0;
    {
        const platform::LockGuard guard(shared_->lock_);
        for (const LineWork* job : shared_->jobs_)
            running += job->fraction();
    }
    const BatchCounts& counts = result_.counts;
    const auto left = forecast_->left(running, Clock::now() - start_);
    const double all = static_cast<double>(std::max<size_t>(counts.movies, 1));
    listener_.timePassed(counts, (static_cast<double>(counts.done()) + running) / all, left);
}

void BatchRun::cancelWork()
{
    const platform::LockGuard guard(shared_->lock_);
    shared_->stops_ = true;
    for (LineWork* job : shared_->jobs_)
        job->cancel();
}

BatchRun::Result BatchRun::run()
{
    start_ = Clock::now();
    if (result_.fault = shared_->open(); !result_.fault.empty())
        return result_;
    shared_->tidyUp();
    for (size_t line = wish_.first; line <= wish_.last; ++line)
        if (const auto entry = index_.entry(line))
            result_.counts.movies += entry->hasMovie() ? 1 : 0;
    const size_t pending = countPending();
    forecast_.emplace(pending, result_.counts.movies - std::min(pending, result_.counts.movies));
    JobGauge gauge(wish_.jobs, JobGauge::processors());
    IdleTime idle;
    int64_t peak = 0;
    auto measured = Clock::now();
    auto renewed = Clock::now();
    auto lookedAgain = Clock::now();
    bool isDone = false;
    while (!isDone) {
        {
            const platform::LockGuard guard(shared_->lock_);
            shared_->allowed_ = gauge.allowed();
        }
        startJobs();
        {
            const platform::LockGuard guard(shared_->lock_);
            if (shared_->outcomes_.empty() && shared_->running_ > 0)
                shared_->news_.wait_for(shared_->lock_, kTick);
            for (const LineOutcome& outcome : shared_->outcomes_)
                peak = std::max(peak, outcome.peakBytes);
        }
        takeNews();
        tellProgress();
        if (!listener_.goesOn() && !result_.isCancelled) {
            result_.isCancelled = true;
            cancelWork();
        }
        const auto now = Clock::now();
        const platform::LockGuard guard(shared_->lock_);
        if (now - measured >= kBetweenMeasures) {
            gauge.measured({idle.share(), availableBytes(), peak}, shared_->running_);
            measured = now;
        }
        if (now - renewed >= wish_.lease / 4) {
            for (const Worker* worker : shared_->workers_)
                worker->renew();
            renewed = now;
        }
        if (shared_->running_ > 0)
            continue;
        if (shared_->stops_ || (shared_->isReadToEnd_ && shared_->held_.empty() && shared_->again_.empty())) {
            isDone = shared_->outcomes_.empty();
        } else if (shared_->isReadToEnd_ && shared_->again_.empty()) {
            if (now - lookedAgain < kBetweenLooks) {
                shared_->news_.wait_for(shared_->lock_, kTick);
            } else {
                lookedAgain = now;
                shared_->again_.assign(shared_->held_.begin(), shared_->held_.end());
                shared_->held_.clear();
            }
        }
    }
    shared_->tidyUp();
    const platform::LockGuard guard(shared_->lock_);
    result_.fault = shared_->fault_;
    result_.isStopped = shared_->stops_ && !result_.isCancelled;
    result_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    return result_;
}

} // namespace stillora
