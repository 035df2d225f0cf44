#pragma once

#include "client/batch/StateFolder.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// How far a batch is, as its state folder tells.
struct BatchStatus {
    struct Working {
        /// Empty where the log does not tell.
        std::string id;
        std::string machine;
        int pid = 0;
        /// The number of the piece that is being made; 0 for a whole movie, and for one that is joined.
        size_t piece = 0;
        /// Since its last sign of life.
        double silentSeconds = 0;
        /// Its process is known to have ended.
        bool hasEnded = false;
    };
    struct Failure {
        std::string id;
        size_t line = 0;
        std::string reason;
    };

    /// Of the manifest, as it was looked at last; 0 where it was not.
    size_t movies = 0;
    size_t made = 0;
    size_t failed = 0;
    /// Pieces that are made, of movies that are not.
    size_t pieces = 0;
    std::vector<Working> working;
    /// Few; more are only counted.
    std::vector<Failure> failures;

    size_t left() const { return movies - std::min(movies, made + failed); }

    static constexpr size_t kMostFailures = 1000;

    /// Reads the state folder, and nothing else.
    static BatchStatus of(const StateFolder& state);
};

} // namespace stillora
