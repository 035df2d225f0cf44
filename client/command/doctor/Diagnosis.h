#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What was found of one thing that is used when movies are made.
struct Finding {
    enum class State {
        Good,
        Missing,
        /// It is there, and does not do what it should.
        Broken,
    };
    enum class Need { Needed, Optional };

    /// For programs, "encoder.h264"; never changes.
    std::string_view identifier;
    /// In the user's language.
    std::string name;
    State state = State::Good;
    Need need = Need::Needed;
    /// What there is, or what is wrong.
    std::string detail = {};
    /// The Debian package that brings it; empty where none does.
    std::string_view package = {};

    bool isFault() const { return state != State::Good && need == Need::Needed; }
};

/// Looks at all of it: starts the rendering service and ends it, writes small files and removes them, and changes
/// nothing that stays. May take half a minute where something does not answer.
std::vector<Finding> diagnose();

} // namespace stillora
