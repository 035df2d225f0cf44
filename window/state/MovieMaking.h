#pragma once

#include <stillora/Error.h>
#include <stillora/Movie.h>
#include <stillora/Types.h>

#include "window/state/MovieOutlook.h"
#include "window/state/MovieWork.h"
#include "window/state/loop/MainLoop.h"
#include "window/state/loop/Signal.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// The movie that is being made, from the press of the button to its end. Main thread.
class MovieMaking final {
public:
    enum class State { Idle, Making, Cancelling, Made, Cancelled, Failed };

    MovieMaking(MainLoop& loop, MovieOutlook& outlook);

    /// @name What is proposed
    /// @{
    /// The document's title, or its name, or the folder's of its photos.
    static std::string proposedTitle(const DocumentSession& session, const MovieOutlook& outlook);
    /// Why a title cannot be one, a sentence; empty where it can.
    static std::string faultOfProposal(const std::string& title);
    /// @}

    /// Makes the movie as it is planned now; the document may change meanwhile. Only while none is made, and where it
    /// can be made.
    void start(const std::string& title, const std::filesystem::path& folder);
    /// The display may say so at once: `state` is `Cancelling` until nothing is left of it.
    void cancel();
    /// After the end: forgets it.
    void dismiss();

    State state() const { return state_; }
    bool isGoingOn() const { return state_ == State::Making || state_ == State::Cancelling; }

    /// @name While it is made
    /// @{
    /// What is done at the moment, in the user's language.
    const std::string& stage() const { return stage_; }
    /// From 0 to 1, of all of the work; nothing while it cannot be told.
    std::optional<double> fraction() const { return fraction_; }
    /// "about 2 minutes left"; empty while it cannot be told.
    const std::string& timeLeftText() const { return timeLeftText_; }
    /// The photo that is worked on, as a PNG file of the service's; empty where it told none.
    const Bytes& picture() const { return picture_; }
    /// @}

    /// @name At the end
    /// @{
    /// Of the movie; only where it was made.
    const std::filesystem::path& path() const { return path_; }
    /// What is off about it, one sentence each; as a rule nothing.
    const std::vector<std::string>& faults() const { return faults_; }
    /// Only where it failed: a sentence that names the file and the reason.
    const Error& error() const { return error_; }
    /// What can be done about the error; a sentence, or empty.
    std::string advice() const;
    /// @}

    Signal<> changed;

    /// Cancels and blocks until nothing is left, for the end of the program.
    void finish();

private:
    void progressed(const MovieProgress& progress);
    void ended(Result<Movie> made);

    MainLoop& loop_;
    MovieOutlook& outlook_;
    State state_ = State::Idle;
    std::chrono::steady_clock::time_point started_;
    std::string stage_;
    std::optional<double> fraction_;
    std::string timeLeftText_;
    Bytes picture_;
    std::filesystem::path path_;
    std::vector<std::string> faults_;
    Error error_;
    std::unique_ptr<MovieWork> work_;
};

/// What a person can do about an error; a sentence in the user's language, or empty where there is nothing to say.
std::string adviceFor(const Error& error);

} // namespace stillora::window
