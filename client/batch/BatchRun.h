#pragma once

#include "client/batch/BatchForecast.h"
#include "client/batch/LineWork.h"
#include "client/batch/StateFolder.h"
#include "client/batch/manifest/LineIndex.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace stillora {

/// How many lines have come to what.
struct BatchCounts {
    size_t movies = 0;
    size_t made = 0;
    size_t unchanged = 0;
    size_t moved = 0;
    size_t altered = 0;
    size_t failed = 0;

    size_t done() const { return made + unchanged + moved + altered + failed; }
    size_t left() const { return movies - done(); }
};

/// Makes the movies of some lines of a manifest, several at a time. Waits for lines that other workers are at, and
/// makes what those leave. One thread.
class BatchRun final {
public:
    struct Wish {
        /// Absolute.
        std::filesystem::path manifest;
        /// Lines, counted from 1; both are among them.
        size_t first = 1;
        size_t last = 0;
        /// Nothing measures what pays.
        std::optional<int> jobs;
        bool stopsAtFailure = false;
        bool comparesContents = false;
        bool makesAgain = false;
        /// What dead workers left is put away before and after. Not for one of many tasks.
        bool tidiesUp = false;
        std::chrono::seconds lease{120};
    };

    struct Listener {
        /// A line has come to its end. On the thread of `run`.
        std::function<void(const LineOutcome&)> lineEnded;
        /// A few times a second; `left` where that can be told. On the thread of `run`.
        std::function<void(const BatchCounts&, double fraction, std::optional<std::chrono::duration<double>> left)>
            timePassed;
        /// Whether to go on; once it is false, all ends as quickly as it can and leaves nothing half-made.
        std::function<bool()> goesOn;
    };

    struct Result {
        BatchCounts counts;
        /// Nothing was begun any more: by the user, by a failure, or since there is no service.
        bool isCancelled = false;
        bool isStopped = false;
        /// Why there is no service; empty where there is.
        std::string serviceFault;
        /// Why there is no reading the manifest or the state; empty where there is.
        std::string fault;
        double seconds = 0;
        int mostJobs = 0;
    };

    BatchRun(const StateFolder& state, const LineIndex& index, Wish wish, Listener listener);
    ~BatchRun();

    Result run();

private:
    class Shared;

    void startJobs();
    void takeNews();
    void noteEnd(const LineOutcome& outcome);
    void tellProgress();
    void cancelWork();
    /// Lines without a receipt.
    size_t countPending() const;

    const StateFolder& state_;
    const LineIndex& index_;
    const Wish wish_;
    const Listener listener_;
    const std::shared_ptr<Shared> shared_;
    Result result_;
    std::chrono::steady_clock::time_point start_;
    /// From the first line on.
    std::optional<BatchForecast> forecast_;
};

} // namespace stillora
