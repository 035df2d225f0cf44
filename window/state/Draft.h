#pragma once

#include <stillora/Error.h>
#include <stillora/Types.h>

#include "window/state/MovieOutlook.h"
#include "window/state/MovieWork.h"
#include "window/state/document/DocumentSession.h"
#include "window/state/document/Items.h"
#include "window/state/loop/MainLoop.h"
#include "window/state/loop/Signal.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// A small movie of the document, made by the service into a folder of the cache, to be played in the window. Once it
/// was wanted, it is made anew when the document changes. Where that may be, it is made before anybody wants it, so
/// that it plays at once. Main thread.
class Draft final {
public:
    enum class State {
        /// Nobody wants one, though one may be made ahead.
        None,
        Making,
        /// It is there, and as the document is.
        Ready,
        Failed,
    };

    /// @param cache  made when a draft is made; a folder of this process in it goes with the object, and those that
    ///               processes which are gone have left
    Draft(MainLoop& loop, MovieOutlook& outlook, std::filesystem::path cache);
    ~Draft();
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;

    /// Has it made, unless it is there already or being made for somebody.
    void want();
    /// Nobody wants it any more: cancels what is being made. What is there stays until it is wanted again.
    void stop();

    /// Whether it is made before anybody wants it, once for every state of the document in which that is left alone for
    /// a moment, standing back for all other programs; where all files are known, of few photos, and of a short movie
    /// alone. Off at first. Cancels what nobody waits for.
    void setMakesAhead(bool makesAhead);
    /// Whether it is being made though nobody wants it yet.
    bool isMakingAhead() const { return isAhead_; }

    State state() const { return state_; }
    /// From 0 to 1 while it is made; nothing while that is not known.
    std::optional<double> fraction() const { return fraction_; }
    /// The movie; only where it is ready.
    const std::filesystem::path& path() const { return path_; }
    /// Why there is none; only where it failed.
    const Error& error() const { return error_; }
    Signal<> changed;

    /// @name Of the draft that is ready
    /// @{
    Seconds length() const;
    /// Which photo is shown at a time from the draft's start; nothing without one.
    std::optional<PhotoID> photoAt(Seconds time) const;
    /// When a photo comes; nothing for one that is not in it.
    std::optional<Seconds> startOf(PhotoID id) const;
    /// @}

private:
    void outlookChanged();
    bool isAsWanted() const;
    void makeSoon();
    void makeAheadSoon();
    bool isWorthMakingAhead() const;
    void make();
    void cancelWork();
    void progressed(const MovieProgress& progress);
    void take(Result<Movie> made);
    void setState(State state);

    MainLoop& loop_;
    MovieOutlook& outlook_;
    /// Of this process.
    const std::filesystem::path folder_;
    State state_ = State::None;
    bool isWanted_ = false;
    bool makesAhead_ = false;
    bool isAhead_ = false;
    /// Whether it is wanted and begins as soon as all files were looked at.
    bool waitsForFiles_ = false;
    /// How often making was put off; the last time counts.
    unsigned postponements_ = 0;
    std::chrono::steady_clock::time_point started_;
    std::optional<double> fraction_;
    std::filesystem::path path_;
    Error error_;
    /// What the draft that is ready, or the one that is made, is made of.
    std::optional<MovieRequest> made_;
    /// Of what was made, once for each.
    std::vector<PhotoID> photos_;
    std::unique_ptr<MovieWork> work_;
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    Connection outlookChanged_;
};

} // namespace stillora::window
