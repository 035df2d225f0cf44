#pragma once

#include "client/MoviePlan.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSURL.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// Where a movie is to be shown.
enum class MovieUse {
    Anywhere,
    /// In web pages too: each photo is told of twice a second, since a browser may else show it early.
    Web,
};

/// A movie that was planned and only needs making.
struct MovieRequest {
    std::vector<PhotoFacts> photos;
    std::vector<SoundFacts> sounds;
    MoviePlan plan;
    /// One of the service's codec names.
    std::string codec = "avc1";
    /// A height of the service's size table; any other value chooses by the smallest photo.
    int64_t quality = 0;
    bool reducesBorders = false;
    /// Names the movie; without a fault (`faultOfTitle`).
    std::string title;
    /// Receives the movie; made if it is missing.
    platform::NSURL saveFolder;
    /// The document that the movie is made of, if there is one; its name without the extension is the title.
    std::optional<platform::NSURL> document = {};
    MovieUse use = MovieUse::Anywhere;
};

/// How far the service is.
struct MovieProgress {
    /// A key of the localised strings.
    std::string stage;
    /// PNG file; may be absent.
    std::optional<platform::NSData> image;
    bool isDeterminate = false;
    double progress = 0;
    double total = 0;
    std::optional<double> secondsLeft;
};

struct MovieOutcome {
    enum class Kind { Made, Cancelled, Failed };

    Kind kind = Kind::Failed;
    /// The movie, once it is made.
    std::optional<platform::NSURL> movie;
    /// What is off about a movie that was made, one sentence each.
    std::vector<std::string> faults;
    /// Why none was made.
    platform::NSError error;
};

/// Makes one movie: starts the service as a child process, sends the request, watches over it, checks what it made and
/// puts it into the save folder under a free name. Whatever way it ends, no process and no temporary file is left.
class MovieMaker final {
public:
    class Observer {
    public:
        virtual ~Observer() = default;
        /// On the thread that calls `makeMovie`, soon after the service told it; older news that were not delivered yet
        /// are dropped.
        virtual void progressChanged(const MovieProgress& progress) = 0;
        /// A few times a second, so that a display can live on between updates.
        virtual void timePassed() {}
    };

    struct Limits {
        /// How long the service may neither report nor write anything.
        std::chrono::milliseconds stall{60'000};
        /// How long a cancelled service may take to answer, before it is ended.
        std::chrono::milliseconds cancel{3'000};
    };

    MovieMaker();
    explicit MovieMaker(Limits limits);
    MovieMaker(const MovieMaker&) = delete;
    MovieMaker& operator=(const MovieMaker&) = delete;

    /// Blocks until the movie is made or not; the calling thread is the one that the service process lives and dies
    /// with. One movie at a time.
    MovieOutcome makeMovie(const MovieRequest& request, Observer& observer);

    /// Asks to stop; asked a second time, the service is ended without waiting for its answer. Stays: every later call
    /// of `makeMovie` ends at once. Any thread, and safe in a signal handler.
    void cancel() noexcept;
    bool isCancelled() const noexcept { return cancelRequests_ > 0; }

private:
    class Job;

    const Limits limits_;
    const std::shared_ptr<platform::FileDescriptor> wakeUp_;
    std::atomic<int> cancelRequests_{0};
};

} // namespace stillora
