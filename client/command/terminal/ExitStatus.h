#pragma once

namespace stillora {

/// What the program returns; told in its help and its manual page. An interruption returns 128 and the signal's number.
enum ExitStatus {
    kExitDone = 0,
    kExitFailed = 1,
    kExitUsage = 2,
    kExitBadInput = 3,
    kExitNoService = 4,
    kExitFaultyMovie = 5,
    kExitSignalled = 128,
};

} // namespace stillora
