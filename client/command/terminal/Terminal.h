#pragma once

#include "client/command/terminal/ProgressLine.h"
#include "client/command/terminal/ProgressLog.h"

#include <string>
#include <string_view>

namespace stillora {

/// How progress is told.
enum class ProgressStyle {
    /// One line that is drawn over and over; on a terminal that cannot do that, lines that stay; else nothing.
    Bar,
    /// Lines that stay, wherever they go.
    Lines,
    None,
};

/// Standard error: progress, and the lines that stay.
class Terminal final {
public:
    explicit Terminal(ProgressStyle style);
    /// Takes the progress line away.
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    bool showsProgress() const { return style_ != ProgressStyle::None; }

    /// Draws over the last progress line, as wide as the terminal is now, or writes a line if one is due.
    void drawProgress(const ProgressLineContent& content);
    void clearProgress();

    /// Takes the progress line away before the program is stopped; afterwards it is drawn anew. Safe in a signal
    /// handler.
    static void eraseForStop() noexcept;

    /// A line that stays. Control characters of names cannot do anything.
    void writeLine(std::string_view line);

private:
    int columns() const;
    std::string eraseLastLine(int columns) const;

    /// What can be done of what was asked for.
    const ProgressStyle style_;
    const LineCharacters characters_;
    /// Also of an empty line, on a terminal that has no room for more.
    bool isDrawn_ = false;
    std::string lastLine_;
    int lastColumns_ = 0;
    ProgressLog log_;
};

} // namespace stillora
