#pragma once

#include <filesystem>
#include <optional>

namespace stillora {

/// How much longer this machine works than the one whose figures timetables are made of: seconds of its processors for
/// each second that a timetable reckons with. Learned from movies that were made, so that the first estimate of the
/// next one is right. It is kept in a file, whose loss costs nothing but that. Any thread, and any number of processes.
class MachinePace final {
public:
    /// Of the user and this machine: a file in the user's folder for what can be made again.
    static MachinePace ofUser();

    /// @param file  made when it is needed
    explicit MachinePace(std::filesystem::path file);

    /// From 1/16 to 16; nothing before a movie was made.
    std::optional<double> known() const;

    /// A movie was made. What was known before counts as much. Little work is passed over, as it says little. Does
    /// nothing where the file cannot be written.
    ///
    /// @param seconds   of the processors
    /// @param reckoned  what its timetable reckoned with
    void learn(double seconds, double reckoned) const;

private:
    const std::filesystem::path file_;
};

} // namespace stillora
