#pragma once

#include <stillora/Movie.h>

#include "client/batch/BatchLog.h"
#include "client/batch/Receipt.h"
#include "client/batch/StateFolder.h"
#include "client/batch/Worker.h"
#include "client/batch/manifest/ManifestLine.h"
#include "client/batch/manifest/MovieInputs.h"
#include "client/batch/manifest/MoviePieces.h"

#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What has become of a line.
struct LineOutcome {
    enum class State {
        Made,
        /// It was made before, of the same files in the same way.
        Unchanged,
        /// It was made before, and is not where it was put.
        Moved,
        /// It was made before, and somebody has changed it.
        Altered,
        Failed,
        /// Another worker is at it.
        Held,
        Cancelled,
        /// There is no service, and no line can be made.
        NoService,
    };

    State state = State::Failed;
    size_t line = 0;
    std::string name = {};
    /// Absolute; of a movie that is there or was.
    std::string movie = {};
    /// One sentence, in the user's language.
    std::string reason = {};
    double seconds = 0;
    int64_t peakBytes = 0;
    /// It does not tell what movie it stands for.
    bool isUnreadable = false;
    /// Its movie was made before, of these files or of others.
    bool hadReceipt = false;
};

/// The word for programs.
std::string_view wordOf(LineOutcome::State state);

/// Makes the movie of one line after another, each once: claims it, makes it in a folder of the worker's own beside its
/// place, tells that it is whole, gives it its place by a link, and writes the receipt. Wherever that is cut off, the
/// next worker goes on from there. Of a movie of pieces, it makes those that nobody else makes, each in the same way,
/// and joins them once all are there. One thread, but for `cancel` and `fraction`.
class LineWork final : MovieMaker::Observer {
public:
    struct Rules {
        /// Of the manifest, absolute.
        std::filesystem::path folder;
        /// Inputs are compared by their contents.
        bool comparesContents = false;
        /// What was moved away or altered is made again, under a free name.
        bool makesAgain = false;
        /// A movie that failed since is not tried again; by the server's clock, in nanoseconds.
        int64_t start = 0;
    };

    /// @param pieces  of movies of several pieces, for all workers of this process
    LineWork(const StateFolder& state, Worker& worker, const BatchLog& log, const Rules& rules, KnownPieces& pieces);

    /// `Held`, too, while others make pieces of the movie.
    LineOutcome run(const ManifestMovie& movie);

    /// Any thread.
    void cancel() noexcept;
    /// Of the movie that is being made, from 0 to 1. Any thread.
    double fraction() const { return fraction_; }

private:
    using State = LineOutcome::State;

    LineOutcome is(State state, std::string movie = {}, std::string reason = {}) const;
    void begin(const ManifestMovie& movie);
    LineOutcome runOne(const ManifestMovie& movie);
    /// Looks at the pieces of the movie that was begun, and makes those that are left.
    /// @return why they cannot be joined now; nothing where they can be, or one of them could not be made
    std::optional<LineOutcome> makePieces();
    std::shared_ptr<const MovieInPieces> lookIntoPieces();
    ManifestMovie pieceOf(const ManifestMovie& movie, size_t number) const;
    Result<MovieRequest> requestOfMovie();
    /// @return nothing where one is not there
    std::optional<std::vector<std::filesystem::path>> finishedPieces() const;
    /// Whether another worker has made the movie since this one began, and has removed its pieces.
    bool isJoined() const;
    void removePieces() const;
    bool isPiece() const { return movie_->piece > 0; }
    /// What the receipt and the files say without a claim; nothing where the movie is to be made.
    std::optional<LineOutcome> known(const StateFolder::Traces& traces);
    std::optional<LineOutcome> lookAtMovie(const Receipt& receipt) const;
    bool isSame(const Receipt& receipt);
    Result<MovieInputs> lookAtInputs(bool withContents) const;
    bool hasFailedSince() const;
    LineOutcome make();
    /// @param finished  the pieces that are to be joined, if it has any
    Result<Receipt> render(std::vector<std::filesystem::path> finished);
    LineOutcome deliver(Receipt receipt);
    LineOutcome finish(const Receipt& delivery);
    LineOutcome failed(const Error& error);
    std::string place(const Receipt& delivery, int& failure) const;
    std::string placeOfLink(const Receipt& delivery) const;
    JSONWriter event(std::string_view stage) const;
    std::filesystem::path saveFolder() const;
    std::filesystem::path folderOfPieces() const;
    std::filesystem::path workFolder(const std::string& worker) const;
    void removeWorkFolder(const std::string& worker) const;
    void logEnd(const LineOutcome& outcome) const;

    void progressChanged(const MovieProgress& progress) override;
    void timePassed() override;

    const StateFolder& state_;
    Worker& worker_;
    const BatchLog& log_;
    const Rules rules_;
    KnownPieces& knownPieces_;
    const ManifestMovie* movie_ = nullptr;
    /// Of the movie, or of the movie of the piece; null for one that is made as a whole.
    std::shared_ptr<const MovieInPieces> pieces_;
    /// Of a movie of pieces, how many this worker has made, and how many there are.
    size_t piecesMade_ = 0;
    /// Why one of them could not be made.
    std::optional<std::string> faultOfPiece_;
    bool hasTracesOfPieces_ = false;
    bool hadReceipt_ = false;
    /// Which receipt the movie had before.
    std::string receiptAtStart_;
    std::optional<MovieInputs> inputs_;
    std::optional<Receipt> older_;
    std::string settings_;
    int64_t peakBytes_ = 0;
    double secondsToCheck_ = 0;
    double secondsToMake_ = 0;

    // Any thread.
    MovieMaker maker_;
    std::atomic<double> fraction_ = 0;
};

} // namespace stillora
