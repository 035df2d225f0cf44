#pragma once

#include <cstdlib>
#include <fmt/format.h>

/// Ends the program, with which every tool that looks for faults notices it, unless something holds that must.
inline void mustHold(bool holds, const char* what)
{
    if (holds)
        return;
    fmt::print(stderr, "does not hold: {}\n", what);
    std::abort();
}
