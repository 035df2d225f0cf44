#pragma once

#include <stillora/Movie.h>

#include "client/command/terminal/CommandOutput.h"
#include "client/command/terminal/SignalWatch.h"
#include "client/command/terminal/Terminal.h"
#include "client/processes/WorkingClock.h"
#include "client/text/JSONWriter.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// How far the work is, told to the user: a line on the terminal, or JSON on standard output.
class ProgressTeller final : public MovieMaker::Observer {
public:
    ProgressTeller(Terminal& terminal, bool isJSON) : terminal_(terminal), isJSON_(isJSON) {}

    /// Of a stage of this program.
    /// @param title  in the user's language
    void stepDone(const std::string& title, double fraction, size_t done, size_t total);
    /// How many photos were looked into.
    void photosChecked(size_t done, size_t total);
    /// Before the service's first word.
    void serviceStarts();

    void progressChanged(const MovieProgress& progress) override;
    void timePassed() override;

private:
    void writeJSON(const MovieProgress& progress) const;

    Terminal& terminal_;
    const bool isJSON_;
    const WorkingClock::time_point start_ = WorkingClock::now();
    ProgressLineContent content_;
    /// That were told last.
    std::optional<size_t> checkedPhotos_;
    std::optional<Seconds> timeLeft_;
    WorkingClock::time_point lastUpdate_ = start_;
};

/// What is common to the commands that take photos and sounds and make something of them: how they tell of their
/// progress and of their end, and how they stop. One at a time.
class MovieCommand final : public CommandOutput {
public:
    /// @param wish  the result ends a stream of events
    explicit MovieCommand(Wish wish);

    ProgressTeller& teller() { return teller_; }
    bool isCancelled() const { return maker_.isCancelled(); }

    /// Photos that are shown in part; one that occurs several times once.
    static std::vector<BadFile> damagedOf(const std::vector<PhotoFacts>& photos);
    /// Each with its path and its reason.
    static std::vector<JSONWriter> asJSON(const std::vector<BadFile>& files);
    /// Tells of photos that are shown in part.
    void noteDamaged(const std::vector<PhotoFacts>& photos);
    /// Takes out the photos that would be shown in part.
    static std::vector<BadFile> takeOutDamaged(std::vector<PhotoFacts>& photos);

    enum class BadInput { LeftOut, Refused, Stopped };
    /// What is to become of files that cannot be used: at a terminal they are named and the user is asked.
    BadInput decideOnBadInput(const std::vector<BadFile>& photos, const std::vector<BadFile>& sounds);

    /// For "Checking the photos".
    /// @return whether to go on
    bool photosChecked(size_t done, size_t total);

    /// Tells of a file or folder that is left out and why, now and in the result.
    void leaveOut(const BadFile& file);
    /// Tells what was passed over, now and in the result.
    void passOver(const std::string& sentence);
    /// What was left out and passed over, for the result.
    JSONWriter omissionsAsJSON() const;

    /// Photos in their order; tells of those that do not say when they were taken.
    std::vector<PhotoFacts> sorted(std::vector<PhotoFacts> photos, PhotoOrder order);

    struct Making {
        /// Tell the plan, start no service and make no folder.
        bool isPlanAlone = false;
        /// Where the plan's frames are drawn, if they are to be.
        std::optional<std::filesystem::path> contactSheet = std::nullopt;
        /// Copy no frame of a movie that was made lately.
        bool isFresh = false;
    };
    /// What is said of --skip-bad where files cannot be used.
    enum class Hint { None, SkipBad, SkipBadPhotos };

    /// @name More ends of a command: each tells it, and returns the program's exit status
    /// @{
    int stopped() { return CommandOutput::stopped(signals_.signal()); }
    int refuseBadInput(const std::vector<BadFile>& photos, const std::vector<BadFile>& sounds, Hint hint = Hint::None);

    /// Makes a movie of photos and sounds that were checked.
    /// @param title      the movie's name
    /// @param document   the document that they are of, if they are of one and the movie has its name
    /// @param saveFolder nothing for the one that the user has chosen
    int makeMovie(std::vector<PhotoFacts> photos, std::vector<SoundFacts> sounds, const MovieSettings& settings,
                  const std::string& title, const std::optional<std::filesystem::path>& document,
                  const std::optional<std::filesystem::path>& saveFolder, MovieUse use, const Making& making);
    /// @}

private:
    int tellPlan(const MovieRequest& request, const std::optional<std::filesystem::path>& contactSheet);
    /// Draws the frames; the exit status where that cannot be done.
    std::optional<int> drawContactSheet(const MovieRequest& request, const std::filesystem::path& file);
    int finish(const MovieRequest& request, const Result<Movie>& outcome);
    void tellBadInput(const std::vector<BadFile>& files);

    MovieMaker maker_;
    ProgressTeller teller_;
    const SignalWatch signals_;
    bool isBadInputTold_ = false;
    std::vector<BadFile> leftOut_;
    std::vector<std::string> passedOver_;
};

} // namespace stillora
