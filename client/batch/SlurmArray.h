#pragma once

#include <stillora/Error.h>

#include "client/batch/StateFolder.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// A batch as an array of jobs of Slurm: the scripts of its tasks and of the job that sums up, and the programs that
/// submit and follow them. The queue, its limits and its restarts are Slurm's.
class SlurmArray final {
public:
    struct Wish {
        /// Absolute.
        std::filesystem::path manifest;
        /// Of all lines.
        size_t turns = 0;
        /// How many tasks share the lines; nothing for as many as turns, or as Slurm and its owner like.
        std::optional<size_t> tasks;
        /// Options of "stillora batch" for each task.
        std::vector<std::string> taskOptions;
        /// Options of sbatch, for all jobs.
        std::vector<std::string> options;
    };

    struct Jobs {
        std::string array;
        std::string closing;
        size_t tasks = 0;
    };

    /// Writes the scripts into the state folder and submits them.
    /// @return an error with what sbatch said
    static Result<Jobs> submit(const StateFolder& state, const Wish& wish);

    /// Whether Slurm still has the job, waiting or running. An answer that does not come counts as yes.
    static bool hasJob(const std::string& job);

    /// @name What Slurm's programs write, remarks included
    /// @{
    /// From "scontrol show config".
    /// @return the number that the indexes of arrays end before, at least 2; Slurm's own usual one where none is told
    static size_t endOfArrays(std::string_view written);
    /// From "sbatch --parsable".
    /// @return the job's number, digits alone; nothing where none is told
    static std::optional<std::string> jobIn(std::string_view written);
    /// @}

private:
    SlurmArray() = delete;
};

} // namespace stillora
