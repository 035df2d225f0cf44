#pragma once

#include "client/forecast/MovieTimetable.h"

#include <optional>
#include <string_view>

namespace stillora {

/// How long a movie still takes: the timetable tells which part of the work is done, and the clock how quickly this
/// machine does it. Sound and pictures each have their own pace: how they stand to each other differs from machine to
/// machine, and from one sound to the next. Knows neither a service nor a clock of its own: `elapsed` is the time since
/// the start of the service, and never less than in the call before.
class RemainingTime final {
public:
    /// @param machinePace  how many times as long as in the timetable work usually takes on this machine; nothing where
    ///                     that is not known
    explicit RemainingTime(MovieTimetable timetable, std::optional<double> machinePace = std::nullopt);

    /// The service told how far it is.
    /// @param stage  its key of the stage; one that tells nothing of the time is passed over
    void progressed(std::string_view stage, double progress, double total, Seconds elapsed);

    /// So much converted sound was seen, of which the service tells nothing. Until it does tell of something else.
    void soundGrew(double bytes, Seconds elapsed);

    /// @return until the movie is in its place; nothing in the first moments, and until the service has answered
    std::optional<Seconds> left(Seconds elapsed) const;

private:
    std::optional<double> placeOf(std::string_view stage, double progress, double total) const;
    void answered(Seconds elapsed);
    void reached(double place, Seconds elapsed);
    void beganPictures(double place, Seconds elapsed);
    double paceAt(double place, Seconds elapsed, double expected) const;
    Seconds endByPace(double place, Seconds elapsed) const;
    double nextPlace() const;

    const MovieTimetable timetable_;
    /// What is done now: first sound, then pictures.
    struct Part {
        double start = 0;
        double end = 0;
        Seconds startedAt{0};
        /// Before anything of it is seen.
        double expectedPace = 1;
    };
    Part part_;
    bool isOfPictures_ = false;
    /// When the service told something for the first time.
    std::optional<Seconds> answeredAt_;
    /// In the timetable; where the service was when it told last.
    double place_ = 0;
    Seconds reachedAt_{0};
    /// When all is done, by the clock of `elapsed`.
    Seconds end_{0};
};

} // namespace stillora
