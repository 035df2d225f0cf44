#pragma once

#include "client/command/options/Arguments.h"
#include "client/command/terminal/Terminal.h"

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// The command line of `stillora batch`.
struct BatchOptions {
    enum class Task {
        Make,
        /// Look at every line, and make nothing.
        Check,
        /// Tell the state.
        Status,
        /// Have Slurm make them.
        Slurm,
        /// What the last job of Slurm does.
        SumUp,
    };

    /// As given.
    std::filesystem::path manifest;
    Task task = Task::Make;
    std::optional<int> jobs;
    /// Which of the lines, or of the tasks, counted from 1; nothing for all lines.
    std::optional<size_t> index;
    /// The environment variable that has told the index; empty where the command line has.
    std::string indexVariable;
    std::optional<size_t> tasks;
    bool stopsAtFailure = false;
    /// Also where lines are bad.
    bool keepsGoing = false;
    bool comparesContents = false;
    bool makesAgain = false;
    std::chrono::seconds lease{120};
    bool waits = false;
    std::vector<std::string> slurmOptions;
    bool isJSON = false;
    bool isQuiet = false;
    ProgressStyle progress = ProgressStyle::Bar;
};

/// Reads the arguments of `stillora batch`, and the index of an array's task from the environment. Touches no file.
Parsed<BatchOptions> parseBatch(const std::vector<std::string>& arguments);

} // namespace stillora
