#pragma once

#include <stillora/Error.h>
#include <stillora/Movie.h>

#include "window/state/loop/Background.h"
#include "window/state/loop/MainLoop.h"

#include <functional>
#include <memory>

namespace stillora::window {

/// A movie that is being made in the background. Unlike `MovieJob` it can be let go without waiting for the service's
/// end: what is left of the work then ends by itself. Main thread.
class MovieWork final {
public:
    struct Handlers {
        /// The newest news alone.
        std::function<void(const MovieProgress&)> progressChanged;
        /// Once and last.
        std::function<void(Result<Movie>)> ended;
    };

    /// Starts at once.
    /// @param urgency  of low urgency, the service too stands back for other programs
    MovieWork(MainLoop& loop, MovieRequest request, Handlers handlers, Urgency urgency = Urgency::Usual);
    /// Cancels; no handler is called.
    ~MovieWork();
    MovieWork(const MovieWork&) = delete;
    MovieWork& operator=(const MovieWork&) = delete;

    /// Asks to stop; `ended` is still called.
    void cancel();
    /// Blocks until no process and no temporary file is left, for the end of the program.
    void finish();

private:
    struct Shared;

    const std::shared_ptr<Shared> shared_;
    Background background_;
};

} // namespace stillora::window
