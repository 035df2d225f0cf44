#include "client/command/BatchCommand.h"

#include "client/batch/BatchRun.h"
#include "client/batch/BatchStatus.h"
#include "client/batch/SlurmArray.h"
#include "client/batch/manifest/ManifestCheck.h"
#include "client/command/terminal/CommandOutput.h"
#include "client/command/terminal/SignalWatch.h"
#include "client/text/FileReason.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/foundation/LocaleEncoding.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <poll.h>
#include <sys/stat.h>

namespace stillora {

namespace {

/// As exact as a person wants to know it; nothing takes no time.
Seconds inTenths(Seconds time)
{
    return Seconds(std::ceil(time.count() * 10) / 10);
}

/// Between two looks at jobs of Slurm.
constexpr std::chrono::milliseconds kShortestPause{500};
constexpr std::chrono::milliseconds kLongestPause{30'000};

int64_t whole(size_t number)
{
    return static_cast<int64_t>(number);
}

JSONWriter asJSON(const BatchStatus& status)
{
    JSONWriter json;
    json.add("movies", whole(status.movies)).add("made", whole(status.made)).add("failed", whole(status.failed));
    json.add("left", whole(status.left())).add("pieces", whole(status.pieces));
    std::vector<JSONWriter> working;
    for (const BatchStatus::Working& each : status.working)
        working.push_back(JSONWriter()
                              .add("id", each.id)
                              .add("machine", each.machine)
                              .add("pid", each.pid)
                              .add("piece", whole(each.piece))
                              .add("silentSeconds", each.silentSeconds)
                              .add("ended", each.hasEnded));
    std::vector<JSONWriter> failures;
    for (const BatchStatus::Failure& each : status.failures)
        failures.push_back(JSONWriter().add("id", each.id).add("line", whole(each.line)).add("reason", each.reason));
    return json.add("working", working).add("failures", failures);
}

std::string textOf(const BatchStatus& status)
{
    std::string text;
    const auto row = [&](const std::string& title, size_t count) {
        text += fmt::format("{}{:>{}}\n", title, count, std::max(1, 24 - displayWidth(title)));
    };
    row(localized("movies"), status.movies);
    row(localized("made"), status.made);
    row(localized("failed"), status.failed);
    row(localized("left"), status.left());
    if (status.pieces > 0)
        row(localized("pieces made"), status.pieces);
    row(localized("being made"), status.working.size());
    for (const BatchStatus::Working& each : status.working)
        text += fmt::format(
            "  {}  {}  {}\n",
            each.piece > 0 ? localized("{}, piece {}", printable(each.id), each.piece) : printable(each.id),
            printable(each.machine),
            each.hasEnded ? localized("its process has ended")
                          : localized("last sign of life {} ago", secondsText(Seconds(each.silentSeconds))));
    for (const BatchStatus::Failure& each : status.failures)
        text += fmt::format("  {}: {}\n", printable(each.id), printable(each.reason));
    return text;
}

/// One run of the command.
class BatchCommand final : public CommandOutput {
public:
    explicit BatchCommand(const BatchOptions& options)
        : CommandOutput({.isJSON = options.isJSON,
                         .isQuiet = options.isQuiet,
                         .product = "manifest",
                         .form = ResultForm::Event,
                         .progress = options.progress}),
          options_(options), manifest_(std::filesystem::absolute(options.manifest).lexically_normal()),
          state_(manifest_)
    {}

    int run()
    {
        switch (options_.task) {
        case BatchOptions::Task::Check:
            return check();
        case BatchOptions::Task::Status:
            return tellStatus();
        case BatchOptions::Task::SumUp:
            return sumUp();
        case BatchOptions::Task::Slurm:
            return submit();
        case BatchOptions::Task::Make:
            break;
        }
        return options_.index ? makeShare() : makeAll();
    }

private:
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    int stopped() { return CommandOutput::stopped(signals_.signal()); }

    bool goesOn(size_t line)
    {
        ProgressLineContent content;
        content.title = localized("Checking the lines");
        content.count = fmt::format("{}", line);
        terminal_.drawProgress(content);
        return signals_.signal() == 0;
    }

    void tell(const ManifestFault& fault)
    {
        if (options_.isJSON) {
            JSONWriter json;
            json.add("event", "fault").add("line", whole(fault.line));
            fault.field.empty() ? json.addNull("field") : json.add("field", fault.field);
            fmt::print("{}\n", json.add("reason", fault.reason).text());
        } else {
            const std::string place = fmt::format("{}:{}", options_.manifest.native(), fault.line);
            complain(fmt::format("{}: {}", fault.field.empty() ? place : fmt::format("{}: {}", place, fault.field),
                                 fault.reason));
        }
    }

    Result<CheckedManifest> look(NamedFiles files, platform::FileDescriptor file)
    {
        auto checked = checkManifest(
            manifest_, files, std::move(file), [this](const ManifestFault& fault) { tell(fault); },
            [this](size_t line) { return goesOn(line); }, index_);
        clearProgress();
        return checked;
    }

    int refuseFaults(const CheckedManifest& checked)
    {
        const std::string reason =
            localizedCount(checked.faults, "{} fault in {}", "{} faults in {}", options_.manifest.native());
        return CommandOutput::fail(
            kExitBadInput, reason, reason,
            JSONWriter().add("movies", whole(checked.movies)).add("faults", whole(checked.faults)));
    }

    int check()
    {
        const std::unique_ptr<std::FILE, Close> scratch(std::tmpfile());
        const auto checked =
            look(NamedFiles::Found, platform::FileDescriptor(scratch ? dup(fileno(scratch.get())) : -1));
        if (!checked)
            return fail(kExitBadInput, checked.error().message);
        if (checked->isCancelled)
            return stopped();
        if (checked->faults > 0)
            return refuseFaults(*checked);
        note(localizedCount(checked->movies, "{} movie, and nothing is wrong with its line",
                            "{} movies, and nothing is wrong with their lines"));
        const JSONWriter counts = JSONWriter().add("movies", whole(checked->movies)).add("faults", 0);
        return isJSON() ? succeed({}, resultOf(options_.manifest.native()).addAll(counts)) : kExitDone;
    }

    /// Makes the state folder, looks at every line and leaves their index there.
    /// @return the exit status where nothing can be begun
    std::optional<int> prepare(NamedFiles files)
    {
        // A manifest that is not there gets no state.
        if (const auto reader = ManifestReader::open(manifest_); !reader)
            return fail(kExitBadInput, reader.error().message);
        if (const auto made = state_.make(); !made)
            return fail(kExitFailed, made.error().message);
        const auto worker = Worker::create(state_, options_.lease);
        if (!worker)
            return fail(kExitFailed, worker.error().message);
        const std::filesystem::path draft = (*worker)->draft();
        platform::FileDescriptor file(open(draft.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
        if (!file)
            return fail(kExitFailed, fmt::format("{}: {}", draft.native(), reasonOfErrno(errno)));
        const auto checked = look(files, std::move(file));
        if (!checked)
            return fail(kExitBadInput, checked.error().message);
        if (checked->isCancelled)
            return stopped();
        if (checked->faults > 0 && files == NamedFiles::Found && !options_.keepsGoing)
            return refuseFaults(*checked);
        if (rename(draft.c_str(), state_.lines().c_str()) != 0)
            return fail(kExitFailed, fmt::format("{}: {}", state_.lines().native(), reasonOfErrno(errno)));
        return std::nullopt;
    }

    int makeAll()
    {
        if (const auto status = prepare(NamedFiles::Found))
            return *status;
        return make(1, index_->lineCount());
    }

    /// Of a task of an array, which need not read the manifest where somebody has.
    int makeShare()
    {
        const auto reader = ManifestReader::open(manifest_);
        if (!reader)
            return fail(kExitBadInput, reader.error().message);
        index_ = LineIndex::open(state_.lines());
        if (!index_ || index_->manifest() != reader->stamp())
            if (const auto status = prepare(NamedFiles::Unasked))
                return *status;
        const size_t lines = index_->lineCount();
        const size_t shares = options_.tasks.value_or(lines);
        const size_t index = *options_.index;
        if (!options_.indexVariable.empty())
            note(localized("{} says {}, and so this one is made", options_.indexVariable, index));
        if (index > shares)
            return fail(kExitUsage, options_.tasks
                                        ? localized("there are only {} tasks, and no number {}", shares, index)
                                        : localized("{} has only {} lines, and no line {}", options_.manifest.native(),
                                                    lines, index));
        const LineIndex::Lines share = options_.tasks ? index_->share(index, shares) : LineIndex::Lines{index, index};
        return make(share.first, share.last);
    }

    int make(size_t first, size_t last)
    {
        BatchRun::Wish wish;
        wish.manifest = manifest_;
        wish.first = first;
        wish.last = last;
        wish.jobs = options_.jobs;
        wish.stopsAtFailure = options_.stopsAtFailure;
        wish.comparesContents = options_.comparesContents;
        wish.makesAgain = options_.makesAgain;
        wish.tidiesUp = !options_.index;
        wish.lease = options_.lease;
        BatchRun run(state_, *index_, wish,
                     {.lineEnded = [this](const LineOutcome& outcome) { tell(outcome); },
                      .timePassed = [this](const BatchCounts& counts, double fraction,
                                           std::optional<Seconds> left) { draw(counts, fraction, left); },
                      .goesOn = [this] { return signals_.signal() == 0; }});
        const BatchRun::Result result = run.run();
        clearProgress();
        return finish(result);
    }

    void tell(const LineOutcome& outcome)
    {
        const bool isFault = outcome.state == LineOutcome::State::Failed;
        if (options_.isJSON) {
            JSONWriter json;
            json.add("event", "movie").add("line", whole(outcome.line)).add("id", outcome.name);
            json.add("state", wordOf(outcome.state));
            outcome.movie.empty() ? json.addNull("movie") : json.add("movie", outcome.movie);
            outcome.reason.empty() ? json.addNull("reason") : json.add("reason", outcome.reason);
            json.add("seconds", outcome.seconds).add("peakBytes", outcome.peakBytes);
            fmt::print("{}\n", json.text());
            std::fflush(stdout);
        } else if (isFault) {
            complain(localized("{}: no movie: {}", outcome.name, outcome.reason));
        } else if (outcome.state == LineOutcome::State::Made) {
            // On a terminal it would stand behind the bar.
            clearProgress();
            fmt::print("{}\n", outcome.movie);
            std::fflush(stdout);
        } else if (!outcome.reason.empty()) {
            note(localized("{}: {}, and is not made again without --again", outcome.name, outcome.reason));
        }
    }

    void draw(const BatchCounts& counts, double fraction, std::optional<Seconds> left)
    {
        ProgressLineContent content;
        content.title = localized("Making the movies");
        content.fraction = fraction;
        content.count = fmt::format("{}/{}", counts.done(), counts.movies);
        if (counts.failed > 0)
            content.count += ", " + localizedCount(counts.failed, "{} failed", "{} failed");
        if (left)
            content.timeLeft = localized("{} left", clockText(*left));
        terminal_.drawProgress(content);
        if (!options_.isJSON || std::exchange(toldDone_, counts.done()) == counts.done())
            return;
        JSONWriter json;
        json.add("event", "batch").addAll(asJSON(counts)).add("left", whole(counts.left()));
        left ? json.add("secondsLeft", left->count()) : json.addNull("secondsLeft");
        fmt::print("{}\n", json.text());
        std::fflush(stdout);
    }

    static JSONWriter asJSON(const BatchCounts& counts)
    {
        return JSONWriter()
            .add("movies", whole(counts.movies))
            .add("made", whole(counts.made))
            .add("unchanged", whole(counts.unchanged))
            .add("moved", whole(counts.moved))
            .add("altered", whole(counts.altered))
            .add("failed", whole(counts.failed));
    }

    int finish(const BatchRun::Result& result)
    {
        const BatchCounts& counts = result.counts;
        JSONWriter details = asJSON(counts);
        details.add("left", whole(counts.left())).add("seconds", result.seconds).add("jobs", result.mostJobs);
        const std::string summary = localized("{} made, {} unchanged, {} failed, {} left, in {}", counts.made,
                                              counts.unchanged + counts.moved + counts.altered, counts.failed,
                                              counts.left(), secondsText(inTenths(Seconds(result.seconds))));
        if (result.isCancelled) {
            note(summary);
            return stopped();
        }
        if (!result.serviceFault.empty())
            return CommandOutput::fail(kExitNoService, result.serviceFault, result.serviceFault, details);
        if (!result.fault.empty())
            return CommandOutput::fail(kExitFailed, result.fault, result.fault, details);
        if (counts.failed > 0)
            return CommandOutput::fail(kExitFailed, summary, summary, details);
        note(summary);
        return isJSON() ? succeed({}, resultOf(options_.manifest.native()).addAll(details)) : kExitDone;
    }

    int tellStatus()
    {
        struct stat status = {};
        if (stat(state_.path().c_str(), &status) != 0)
            return fail(kExitBadInput, localized("{} was not begun: there is no {}", options_.manifest.native(),
                                                 state_.path().native()));
        return tellStatus(BatchStatus::of(state_), kExitDone);
    }

    int tellStatus(const BatchStatus& status, ExitStatus exit)
    {
        if (!isJSON())
            return give(platform::encodedForLocale(textOf(status)),
                        localized("the status could not be written to standard output"), exit);
        const JSONWriter whole =
            resultOf(options_.manifest.native(), exit == kExitDone).addAll(stillora::asJSON(status));
        return succeed({}, whole, exit);
    }

    /// Puts away what dead workers left, and keeps the counts.
    int sumUp()
    {
        const auto worker = Worker::create(state_, options_.lease);
        if (!worker)
            return fail(kExitBadInput, worker.error().message);
        (*worker)->removeDeadWorkers();
        const BatchStatus status = BatchStatus::of(state_);
        if (const int reason = (*worker)->put(state_.summary(), stillora::asJSON(status).text() + "\n"); reason != 0)
            return fail(kExitFailed, fmt::format("{}: {}", state_.summary().native(), reasonOfErrno(reason)));
        return tellStatus(status, status.left() == 0 && status.failed == 0 ? kExitDone : kExitFailed);
    }

    int submit()
    {
        if (const auto status = prepare(NamedFiles::Found))
            return *status;
        SlurmArray::Wish wish;
        wish.manifest = manifest_;
        wish.turns = index_->turnCount();
        wish.tasks = options_.tasks;
        wish.options = options_.slurmOptions;
        wish.taskOptions = {"--lease", fmt::format("{}", options_.lease.count())};
        if (options_.comparesContents)
            wish.taskOptions.emplace_back("--hash");
        if (options_.makesAgain)
            wish.taskOptions.emplace_back("--again");
        const auto jobs = SlurmArray::submit(state_, wish);
        if (!jobs)
            return fail(kExitFailed, jobs.error().message);
        note(localizedCount(jobs->tasks, "job {1} makes them in {0} task, and job {2} sums up",
                            "job {1} makes them in {0} tasks, and job {2} sums up", jobs->array, jobs->closing));
        if (options_.waits)
            return follow(*jobs);
        JSONWriter json = resultOf(options_.manifest.native());
        json.add("arrayJob", jobs->array).add("closingJob", jobs->closing).add("tasks", whole(jobs->tasks));
        return succeed(jobs->array, json);
    }

    int follow(const SlurmArray::Jobs& jobs)
    {
        // A controller that was killed may have forgotten either of them.
        while (SlurmArray::hasJob(jobs.closing) || SlurmArray::hasJob(jobs.array)) {
            const auto start = std::chrono::steady_clock::now();
            const BatchStatus status = BatchStatus::of(state_);
            // A look at a long list must not keep the file server busy.
            const auto cost =
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
            const auto pause = std::clamp(20 * cost, kShortestPause, kLongestPause);
            BatchCounts counts;
            counts.movies = status.movies;
            counts.made = status.made;
            counts.failed = status.failed;
            draw(counts, static_cast<double>(counts.done()) / static_cast<double>(std::max<size_t>(1, counts.movies)),
                 {});
            poll(nullptr, 0, static_cast<int>(pause.count()));
            // The jobs go on: who wants them to end tells Slurm.
            if (signals_.signal() != 0) {
                clearProgress();
                note(localized("the jobs {} and {} go on", jobs.array, jobs.closing));
                return kExitSignalled + signals_.signal();
            }
        }
        clearProgress();
        return sumUp();
    }

    const BatchOptions options_;
    const SignalWatch signals_;
    const std::filesystem::path manifest_;
    const StateFolder state_;
    std::optional<LineIndex> index_;
    /// That was told last in JSON.
    std::optional<size_t> toldDone_;
};

} // namespace

int runBatchCommand(const BatchOptions& options)
{
    return BatchCommand(options).run();
}

} // namespace stillora
