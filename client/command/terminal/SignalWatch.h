#pragma once

namespace stillora {

class MovieMaker;

/// While it lives, SIGINT, SIGTERM and SIGHUP cancel a maker instead of ending the program, or are only noted where
/// there is none; a second one cancels it at once, and ends the program 0.3 seconds later whatever it does. SIGTSTP
/// (Ctrl-Z) stops the service with the program, and both go on together. Signals that were ignored at the start stay
/// so. One at a time.
class SignalWatch final {
public:
    SignalWatch();
    explicit SignalWatch(MovieMaker& maker);
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    /// The first signal that came; 0 if none did.
    int signal() const;

private:
    explicit SignalWatch(MovieMaker* maker);
};

} // namespace stillora
