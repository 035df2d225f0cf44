#pragma once

#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

/// In place of "constexpr": what a mutant may change is known only when the program runs.
#define MUTATED_CONSTANT

/// Whether the process plays the mutant of this number: the one that the environment variable STILLORA_MUTANT names.
///
/// Notes each number that is asked for, once, as a line of the file that STILLORA_MUTANTS_REACHED names, if it names
/// one. Any thread.
inline bool mutated(int number)
{
    constexpr int kMost = 1 << 16;
    static const char* const name = std::getenv("STILLORA_MUTANT");
    static const int chosen = name ? std::atoi(name) : -1;
    static const char* const reachedPath = std::getenv("STILLORA_MUTANTS_REACHED");
    static std::atomic<bool> isReached[kMost];
    if (reachedPath && !isReached[number % kMost].exchange(true, std::memory_order_relaxed)) {
        const std::string line = std::to_string(number) + "\n";
        const int file = open(reachedPath, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
        // One write is one line, whichever process writes it.
        (void)!write(file, line.data(), line.size());
        close(file);
    }
    return number == chosen;
}
