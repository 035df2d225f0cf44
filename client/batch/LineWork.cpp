#include "client/batch/LineWork.h"

#include "client/batch/PeakMemory.h"
#include "client/command/making/MoviePreparation.h"
#include "client/files/FreeName.h"
#include "client/text/FileReason.h"
#include "client/text/JSONValue.h"
#include "client/text/LocalizedText.h"

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fmt/format.h>
#include <sys/stat.h>

namespace stillora {

namespace {

using Clock = std::chrono::steady_clock;

/// Names that are tried for a movie whose own is taken.
constexpr int kMostNames = 100'000;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::optional<FileStamp> stampOf(const std::filesystem::path& file)
{
    struct stat status = {};
    if (stat(file.c_str(), &status) != 0)
        return std::nullopt;
    return FileStamp{status.st_size, status.st_mtim.tv_sec * 1'000'000'000 + status.st_mtim.tv_nsec};
}

bool isSameFile(const std::filesystem::path& a, const std::filesystem::path& b)
{
    struct stat first = {};
    struct stat second = {};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

/// Each is written once.
std::string nameOf(const std::optional<Receipt>& receipt)
{
    return receipt ? receipt->worker + receipt->made : std::string();
}

std::filesystem::path nameOf(const std::filesystem::path& wanted, int number)
{
    return wanted.parent_path() / fmt::format("{}.mov", numberedName(wanted.stem().native(), number));
}

} // namespace

std::string_view wordOf(LineOutcome::State state)
{
    switch (state) {
    case LineOutcome::State::Made:
        return "made";
    case LineOutcome::State::Unchanged:
        return "unchanged";
    case LineOutcome::State::Moved:
        return "moved";
    case LineOutcome::State::Altered:
        return "altered";
    case LineOutcome::State::Failed:
        return "failed";
    case LineOutcome::State::Held:
        return "held";
    case LineOutcome::State::Cancelled:
        return "cancelled";
    case LineOutcome::State::NoService:
        break;
    }
    return "noService";
}

LineWork::LineWork(const StateFolder& state, Worker& worker, const BatchLog& log, const Rules& rules,
                   KnownPieces& pieces)
    : state_(state), worker_(worker), log_(log), rules_(rules), knownPieces_(pieces)
{}

void LineWork::cancel() noexcept
{
    maker_.cancel();
}

LineOutcome LineWork::is(State state, std::string movie, std::string reason) const
{
    return {.state = state,
            .line = movie_->line,
            .name = movie_->name(),
            .movie = std::move(movie),
            .reason = std::move(reason),
            .peakBytes = peakBytes_,
            .hadReceipt = hadReceipt_};
}

LineOutcome LineWork::run(const ManifestMovie& movie)
{
    const auto start = Clock::now();
    pieces_.reset();
    piecesMade_ = 0;
    faultOfPiece_.reset();
    hasTracesOfPieces_ = false;
    hadReceipt_ = false;
    peakBytes_ = 0;
    fraction_ = 0;
    begin(movie);
    std::optional<LineOutcome> outcome = movie.split > 1 ? makePieces() : std::nullopt;
    if (!outcome)
        outcome = runOne(movie);
    outcome->seconds = secondsSince(start);
    // Also what a worker has left that was cut off here, or that came late with a piece.
    if (hasTracesOfPieces_ && (outcome->state == State::Made || outcome->state == State::Unchanged))
        removePieces();
    pieces_.reset();
    fraction_ = 0;
    return *outcome;
}

void LineWork::begin(const ManifestMovie& movie)
{
    movie_ = &movie;
    inputs_.reset();
    older_.reset();
    settings_ = settingsText(movie, rules_.folder);
}

std::optional<LineOutcome> LineWork::makePieces()
{
    const ManifestMovie& movie = *movie_;
    receiptAtStart_ = nameOf(Receipt::read(state_.receipt(movie.key)));
    const StateFolder::Traces traces = state_.look(movie.key);
    hasTracesOfPieces_ = traces.hasPieces;
    const bool isClean = traces.claims.empty() && !traces.hasDelivery;
    if (auto outcome = isClean ? known(traces) : std::nullopt)
        return outcome;
    // Who joins them, or puts the movie into its place, needs no more pieces.
    if (const int claim = traces.newestClaim(); claim > 0 && !worker_.isDead(state_.claim(movie.key, claim)))
        return is(State::Held);
    if (maker_.isCancelled())
        return is(State::Cancelled);
    pieces_ = traces.hasDelivery ? nullptr : lookIntoPieces();
    if (!pieces_ || pieces_->count < 2)
        return std::nullopt;
    hasTracesOfPieces_ = true;
    bool isWhole = true;
    for (size_t number = 1; number <= pieces_->count && !faultOfPiece_; ++number) {
        const ManifestMovie piece = pieceOf(movie, number);
        const LineOutcome outcome = runOne(piece);
        begin(movie);
        if (outcome.state == State::Cancelled || outcome.state == State::NoService)
            return is(outcome.state, {}, outcome.reason);
        piecesMade_ += outcome.state == State::Made;
        isWhole = isWhole && outcome.state != State::Held;
        if (outcome.state == State::Failed)
            faultOfPiece_ = outcome.reason;
    }
    return isWhole || faultOfPiece_ ? std::nullopt : std::optional(is(State::Held));
}

/// Null where it cannot be made, or need not be.
std::shared_ptr<const MovieInPieces> LineWork::lookIntoPieces()
{
    if (auto known = knownPieces_.find(movie_->key, settings_))
        return known;
    const auto goesOn = [this] { return !maker_.isCancelled(); };
    auto inputs = inputsOf(*movie_, rules_.folder, rules_.comparesContents, goesOn);
    auto request = inputs ? prepareMovie(movie_->options, goesOn) : Result<MovieRequest>(inputs.error());
    if (!request)
        return nullptr;
    auto found = std::make_shared<MovieInPieces>();
    found->key = movie_->key;
    found->settings = settings_;
    found->inputs = *std::move(inputs);
    found->count = pieceCount(movie_->split, *request);
    found->request = *std::move(request);
    knownPieces_.keep(found);
    return found;
}

/// Made as any movie is, but for a folder beside those of the movies.
ManifestMovie LineWork::pieceOf(const ManifestMovie& movie, size_t number) const
{
    ManifestMovie piece = movie;
    piece.key = StateFolder::keyOfPiece(movie.key, number);
    piece.piece = number;
    piece.split = pieces_->count;
    return piece;
}

LineOutcome LineWork::runOne(const ManifestMovie& movie)
{
    const auto start = Clock::now();
    begin(movie);
    if (isPiece())
        settings_ += fmt::format(" {}/{}", movie.piece, movie.split);
    if (maker_.isCancelled())
        return is(State::Cancelled);
    const StateFolder::Traces traces = state_.look(movie.key);
    hasTracesOfPieces_ = hasTracesOfPieces_ || traces.hasPieces;
    // What a dead worker has left is put in order, also where the movie is there.
    const bool isClean = traces.claims.empty() && !traces.hasDelivery;
    if (auto outcome = isClean ? known(traces) : std::nullopt)
        return *outcome;
    switch (worker_.take(movie.key)) {
    case Worker::Taking::Held:
        return is(State::Held);
    case Worker::Taking::Failed:
        return is(State::Failed, {},
                  localized("the movie could not be claimed in {}: {}", state_.path().native(),
                            reasonOfErrno(worker_.failure())));
    case Worker::Taking::Taken:
        break;
    }
    LineOutcome outcome = make();
    outcome.seconds = secondsSince(start);
    for (const std::string& predecessor : worker_.predecessors())
        removeWorkFolder(predecessor);
    worker_.release();
    return outcome;
}

std::optional<LineOutcome> LineWork::known(const StateFolder::Traces& traces)
{
    hadReceipt_ = hadReceipt_ || (traces.hasReceipt && !isPiece());
    older_ = traces.hasReceipt ? Receipt::read(state_.receipt(movie_->key)) : std::nullopt;
    if (older_ && isSame(*older_))
        return lookAtMovie(*older_);
    if (!traces.hasReceipt && traces.hasFailure && hasFailedSince()) {
        const auto text = StateFolder::read(state_.failure(movie_->key));
        JSONValue::Fault fault;
        const auto value = text ? JSONValue::read(*text, fault) : std::nullopt;
        return is(State::Failed, {}, value ? value->textOf("reason") : std::string());
    }
    return std::nullopt;
}

Result<MovieInputs> LineWork::lookAtInputs(bool withContents) const
{
    if (pieces_)
        return pieces_->inputs;
    return inputsOf(*movie_, rules_.folder, withContents, [this] { return !maker_.isCancelled(); });
}

bool LineWork::isSame(const Receipt& receipt)
{
    if (receipt.settings != settings_)
        return false;
    if (isPiece())
        return pieces_->inputs.digest() == receipt.inputDigest;
    const auto goesOn = [this] { return !maker_.isCancelled(); };
    const bool wantsContents = rules_.comparesContents && !receipt.contentDigest.empty();
    auto inputs = inputsOf(*movie_, rules_.folder, wantsContents, goesOn);
    if (!inputs)
        return false;
    inputs_ = *std::move(inputs);
    if (wantsContents)
        return inputs_->digestOfContents() == receipt.contentDigest;
    if (inputs_->digest() == receipt.inputDigest)
        return true;
    if (receipt.contentDigest.empty())
        return false;
    // Times changed, as by a copy: their contents decide where they are known.
    inputs = inputsOf(*movie_, rules_.folder, true, goesOn);
    return inputs && inputs->digestOfContents() == receipt.contentDigest;
}

std::optional<LineOutcome> LineWork::lookAtMovie(const Receipt& receipt) const
{
    const std::filesystem::path path = rules_.folder / receipt.movie;
    const auto stamp = stampOf(path);
    // Nobody else has anything to do with pieces.
    if (isPiece() && (!stamp || *stamp != receipt.movieStamp))
        return std::nullopt;
    if (!stamp && rules_.makesAgain)
        return std::nullopt;
    if (!stamp)
        return is(State::Moved, path.native(), localized("{} is not there any more", path.native()));
    if (*stamp == receipt.movieStamp)
        return is(State::Unchanged, path.native());
    const auto goesOn = [this] { return !maker_.isCancelled(); };
    if (stamp->bytes == receipt.movieStamp.bytes && digestOfFile(path, goesOn) == receipt.checksum)
        return is(State::Unchanged, path.native());
    if (rules_.makesAgain)
        return std::nullopt;
    return is(State::Altered, path.native(), localized("{} was changed by somebody else", path.native()));
}

bool LineWork::hasFailedSince() const
{
    const auto stamp = stampOf(state_.failure(movie_->key));
    return stamp && stamp->modified >= rules_.start;
}

/// With the claim.
LineOutcome LineWork::make()
{
    const StateFolder::Traces traces = state_.look(movie_->key);
    if (traces.hasDelivery) {
        const auto delivery = Receipt::read(state_.delivery(movie_->key));
        if (delivery && stampOf(delivery->waitsAt))
            return finish(*delivery);
        // It has its place and its receipt, or is lost.
        unlink(state_.delivery(movie_->key).c_str());
    }
    // Another worker may have come before since this one looked.
    if (auto outcome = known(traces))
        return *outcome;
    if (isPiece() && isJoined())
        return is(State::Held);
    const bool joins = pieces_ && !isPiece() && pieces_->count > 1 && !faultOfPiece_;
    auto finished = joins ? finishedPieces() : std::vector<std::filesystem::path>();
    if (!finished)
        return is(State::Held);
    log_.write(event("started"));
    auto receipt = render(*std::move(finished));
    LineOutcome outcome = receipt ? deliver(*std::move(receipt)) : failed(receipt.error());
    removeWorkFolder(worker_.name());
    logEnd(outcome);
    return outcome;
}

std::optional<std::vector<std::filesystem::path>> LineWork::finishedPieces() const
{
    std::vector<std::filesystem::path> files;
    for (size_t number = 1; number <= pieces_->count; ++number) {
        const auto receipt = Receipt::read(state_.receipt(StateFolder::keyOfPiece(movie_->key, number)));
        if (!receipt || receipt->inputDigest != pieces_->inputs.digest())
            return std::nullopt;
        files.push_back(rules_.folder / receipt->movie);
    }
    return files;
}

Result<MovieRequest> LineWork::requestOfMovie()
{
    if (!pieces_)
        return prepareMovie(movie_->options, [this] { return !maker_.isCancelled(); });
    return isPiece() ? requestOfPiece(pieces_->request, movie_->piece, pieces_->count) : pieces_->request;
}

Result<Receipt> LineWork::render(std::vector<std::filesystem::path> finished)
{
    const auto start = Clock::now();
    const auto goesOn = [this] { return !maker_.isCancelled(); };
    if (faultOfPiece_ && !isPiece())
        return Error{ErrorCode::Failed, {}, *faultOfPiece_};
    auto inputs = lookAtInputs(rules_.comparesContents);
    if (!inputs)
        return inputs.error();
    auto request = requestOfMovie();
    if (!request)
        return request.error();
    request->pieces = std::move(finished);
    secondsToCheck_ = secondsSince(start);
    std::error_code failure;
    const std::filesystem::path save = isPiece() ? folderOfPieces() : saveFolder();
    std::filesystem::create_directories(save, failure);
    request->saveFolder = workFolder(worker_.name());
    const auto startOfMaking = Clock::now();
    const auto movie = maker_.makeMovie(*request, *this);
    secondsToMake_ = secondsSince(startOfMaking);
    if (!movie)
        return movie.error();
    if (!movie->faults.empty())
        return Error{ErrorCode::Failed, movie->path,
                     localized("the movie is not as it should be: {}", movie->faults.front())};
    Receipt receipt;
    receipt.id = movie_->id;
    receipt.line = movie_->line;
    receipt.movie = isPiece() ? (save / fmt::format("{:04}.mov", movie_->piece)).native()
                              : (save / movie->path.filename()).native();
    receipt.movieStamp = stampOf(movie->path).value_or(FileStamp{});
    receipt.checksum = digestOfFile(movie->path, goesOn);
    receipt.settings = settings_;
    receipt.inputDigest = inputs->digest();
    receipt.contentDigest = rules_.comparesContents ? inputs->digestOfContents() : std::string();
    // Each piece would name all photos.
    if (!isPiece())
        receipt.inputs = std::move(inputs->files);
    receipt.worker = worker_.name();
    receipt.machine = Worker::machineName();
    receipt.seconds = secondsSince(start);
    receipt.peakBytes = peakBytes_;
    receipt.made = BatchLog::now();
    receipt.waitsAt = movie->path.native();
    if (older_) {
        receipt.replaced = (rules_.folder / older_->movie).native();
        receipt.replacedStamp = older_->movieStamp;
    }
    if (maker_.isCancelled())
        return Error{ErrorCode::Cancelled, {}, localized("stopped")};
    return receipt;
}

/// The file of the delivery decides between two that made the movie, as there is one alone.
LineOutcome LineWork::deliver(Receipt receipt)
{
    const std::filesystem::path file = state_.delivery(movie_->key);
    const int reason = worker_.putFirst(file, receipt.text());
    if (reason == EEXIST) {
        const auto other = Receipt::read(file);
        return other ? finish(*other) : is(State::Held);
    }
    if (reason != 0)
        return is(State::Failed, {}, fmt::format("{}: {}", file.native(), reasonOfErrno(reason)));
    // One whose lease had run out may come after another has delivered, and removed its traces.
    if (nameOf(Receipt::read(state_.receipt(movie_->key))) != nameOf(older_) || !worker_.stillHolds()) {
        unlink(file.c_str());
        return is(State::Held);
    }
    return finish(receipt);
}

/// Gives a movie that is whole its place; whoever comes does the same.
LineOutcome LineWork::finish(const Receipt& delivery)
{
    int failure = 0;
    const std::string path = place(delivery, failure);
    if (path.empty()) {
        unlink(state_.delivery(movie_->key).c_str());
        return failed(
            {ErrorCode::Failed, delivery.movie, fmt::format("{}: {}", delivery.movie, reasonOfErrno(failure))});
    }
    Receipt receipt = delivery;
    receipt.movie = pathBelow(path, rules_.folder);
    receipt.movieStamp = stampOf(path).value_or(delivery.movieStamp);
    receipt.waitsAt.clear();
    if (const int reason = worker_.put(state_.receipt(movie_->key), receipt.text()); reason != 0)
        return is(State::Failed, path, fmt::format("{}: {}", state_.path().native(), reasonOfErrno(reason)));
    unlink(state_.failure(movie_->key).c_str());
    removeWorkFolder(delivery.worker);
    unlink(state_.delivery(movie_->key).c_str());
    return is(State::Made, path);
}

/// @return where the movie is now; empty if it could not be put anywhere
std::string LineWork::place(const Receipt& delivery, int& failure) const
{
    struct stat status = {};
    if (stat(delivery.waitsAt.c_str(), &status) != 0) {
        failure = errno;
        return {};
    }
    if (status.st_nlink > 1)
        if (std::string path = placeOfLink(delivery); !path.empty())
            return path;
    if (!delivery.replaced.empty() && stampOf(delivery.replaced) == delivery.replacedStamp) {
        const std::string beside = delivery.waitsAt + ".link";
        unlink(beside.c_str());
        if (link(delivery.waitsAt.c_str(), beside.c_str()) == 0 &&
            rename(beside.c_str(), delivery.replaced.c_str()) == 0)
            return delivery.replaced;
    }
    for (int number = 1; number <= kMostNames; ++number) {
        const std::filesystem::path path = nameOf(delivery.movie, number);
        if (link(delivery.waitsAt.c_str(), path.c_str()) == 0 || isSameFile(delivery.waitsAt, path))
            return path.native();
        failure = errno;
        struct stat there = {};
        if (lstat(path.c_str(), &there) != 0)
            return {};
    }
    return {};
}

/// Where a worker has put the movie that did not come further.
std::string LineWork::placeOfLink(const Receipt& delivery) const
{
    if (!delivery.replaced.empty() && isSameFile(delivery.waitsAt, delivery.replaced))
        return delivery.replaced;
    for (int number = 1; number <= kMostNames; ++number) {
        const std::filesystem::path path = nameOf(delivery.movie, number);
        if (isSameFile(delivery.waitsAt, path))
            return path.native();
        if (struct stat there = {}; lstat(path.c_str(), &there) != 0)
            break;
    }
    return {};
}

LineOutcome LineWork::failed(const Error& error)
{
    if (error.code == ErrorCode::Cancelled || maker_.isCancelled())
        return is(State::Cancelled);
    // Who has lost the movie to another has nothing to tell of it.
    if (!worker_.stillHolds())
        return is(State::Held);
    if (error.code == ErrorCode::ServiceNotFound || error.code == ErrorCode::ServiceNotStarted)
        return is(State::NoService, {}, error.message);
    JSONWriter json;
    json.add("id", movie_->name()).add("line", static_cast<int64_t>(movie_->line)).add("reason", error.message);
    json.add("time", BatchLog::now()).add("machine", Worker::machineName());
    if (const int reason = worker_.put(state_.failure(movie_->key), json.text() + "\n"); reason != 0)
        return is(State::Failed, {}, fmt::format("{}; {}", error.message, reasonOfErrno(reason)));
    return is(State::Failed, {}, error.message);
}

JSONWriter LineWork::event(std::string_view stage) const
{
    JSONWriter json;
    json.add("stage", stage).add("id", movie_->name()).add("key", movie_->key);
    if (isPiece())
        json.add("piece", static_cast<int64_t>(movie_->piece)).add("pieces", static_cast<int64_t>(movie_->split));
    return json;
}

void LineWork::logEnd(const LineOutcome& outcome) const
{
    JSONWriter json = event(wordOf(outcome.state));
    json.add("secondsToCheck", secondsToCheck_).add("secondsToMake", secondsToMake_).add("peakBytes", peakBytes_);
    outcome.movie.empty() ? json.addNull("movie") : json.add("movie", outcome.movie);
    outcome.reason.empty() ? json.addNull("reason") : json.add("reason", outcome.reason);
    log_.write(json);
}

std::filesystem::path LineWork::saveFolder() const
{
    return movie_->options.saveFolder.value_or(usualSaveFolder()).lexically_normal();
}

/// Beside the movie's place, so that it only needs another name.
std::filesystem::path LineWork::workFolder(const std::string& worker) const
{
    return saveFolder() / fmt::format(".stillora-{}-{}", movie_->key.substr(0, 8), worker);
}

/// One for all workers. Hidden, as what is in there is of no use to anybody else.
std::filesystem::path LineWork::folderOfPieces() const
{
    return saveFolder() / fmt::format(".stillora-{}-pieces", movie_->key.substr(0, 8));
}

bool LineWork::isJoined() const
{
    const std::string movie = StateFolder::keyOfMovie(movie_->key);
    return nameOf(Receipt::read(state_.receipt(movie))) != receiptAtStart_;
}

void LineWork::removePieces() const
{
    state_.removePieces(movie_->key);
    std::error_code ignored;
    std::filesystem::remove_all(folderOfPieces(), ignored);
}

void LineWork::removeWorkFolder(const std::string& worker) const
{
    std::error_code ignored;
    std::filesystem::remove_all(workFolder(worker), ignored);
}

void LineWork::progressChanged(const MovieProgress& progress)
{
    // Of the stages, that of the pictures takes nearly all the time.
    if (!progress.isDeterminate || progress.total <= 1)
        return;
    const double done = std::clamp(progress.progress / progress.total, 0.0, 1.0);
    // Pieces are joined in no time.
    fraction_ = pieces_ && pieces_->count > 1
                    ? (static_cast<double>(piecesMade_) + (isPiece() ? done : 0)) / static_cast<double>(pieces_->count)
                    : done;
}

void LineWork::timePassed()
{
    peakBytes_ = std::max(peakBytes_, peakBytesOfChildren());
}

} // namespace stillora
