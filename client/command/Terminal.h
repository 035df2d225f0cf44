#pragma once

#include "client/command/ProgressLine.h"

#include <string>
#include <string_view>

namespace stillora {

/// Standard error: a line that is drawn over and over where it is a terminal, and the lines that stay.
class Terminal final {
public:
    enum class ProgressLines { Shown, Hidden };

    /// A progress line is shown only on a terminal that can draw over a line.
    explicit Terminal(ProgressLines lines);
    /// Takes the progress line away.
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool showsProgress() const { return showsProgress_; }

    /// Draws over the last progress line, as wide as the terminal is now.
    void drawProgress(const ProgressLineContent& content);
    void clearProgress();

    /// A line that stays. Control characters of names cannot do anything.
    void writeLine(std::string_view line);

private:
    int columns() const;
    std::string eraseLastLine(int columns) const;

    const bool showsProgress_;
    const LineCharacters characters_;
    /// Also of an empty line, on a terminal that has no room for more.
    bool isDrawn_ = false;
    std::string lastLine_;
    int lastColumns_ = 0;
};

} // namespace stillora
