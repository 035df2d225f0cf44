#include "client/command/terminal/Terminal.h"

#include "client/text/Text.h"
#include "platform/foundation/LocaleEncoding.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr int kUsualColumns = 80;

/// Whether the line that was drawn last still stands there. Of all terminals, which take turns.
std::atomic<bool> isLineThere{false};

void writeAll(std::string_view text)
{
    while (!text.empty()) {
        const ssize_t count = write(STDERR_FILENO, text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        text.remove_prefix(static_cast<size_t>(count));
    }
}

/// What the terminal can do of a style.
ProgressStyle possibleStyle(ProgressStyle wish)
{
    if (wish != ProgressStyle::Bar)
        return wish;
    if (isatty(STDERR_FILENO) != 1)
        return ProgressStyle::None;
    const char* kind = getenv("TERM");
    return kind && *kind && std::string_view(kind) != "dumb" ? ProgressStyle::Bar : ProgressStyle::Lines;
}

/// Whether the terminal breaks lines anew when it gets narrower. Others cut them.
bool breaksLinesAnew()
{
    const char* kind = getenv("TERM");
    return getenv("TMUX") || getenv("VTE_VERSION") || getenv("KONSOLE_VERSION") ||
           (kind && (std::string_view(kind).starts_with("tmux") || std::string_view(kind) == "xterm-kitty" ||
                     std::string_view(kind) == "alacritty" || std::string_view(kind).starts_with("foot")));
}

} // namespace

Terminal::Terminal(ProgressStyle style)
    : style_(possibleStyle(style)),
      characters_(std::string_view(nl_langinfo(CODESET)) == "UTF-8" ? LineCharacters::UTF8 : LineCharacters::ASCII)
{}

Terminal::~Terminal()
{
    clearProgress();
}

int Terminal::columns() const
{
    winsize size = {};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
        return size.ws_col;
    return kUsualColumns;
}

/// A line that the terminal has broken, because it got narrower, stands on several rows now.
std::string Terminal::eraseLastLine(int columns) const
{
    const int width = displayWidth(lastLine_);
    if (columns < lastColumns_ && width > columns && breaksLinesAnew())
        return "\x1b[" + std::to_string((width - 1) / columns) + "A\r\x1b[J";
    return "\r\x1b[K";
}

void Terminal::drawProgress(const ProgressLineContent& content)
{
    if (style_ == ProgressStyle::Lines)
        if (const auto line = log_.lineFor(content, ProgressLog::Clock::now()))
            writeLine(*line);
    if (style_ != ProgressStyle::Bar)
        return;
    const int now = columns();
    ProgressLineContent shown = content;
    for (std::string* text : {&shown.title, &shown.count, &shown.timeLeft})
        *text = platform::representableInLocale(printable(*text));
    std::string line = progressLine(shown, now, characters_);
    if (isDrawn_ && isLineThere && line == lastLine_ && now == lastColumns_)
        return;
    writeAll(eraseLastLine(now) + platform::encodedForLocale(line));
    isDrawn_ = true;
    isLineThere = true;
    lastLine_ = std::move(line);
    lastColumns_ = now;
}

void Terminal::clearProgress()
{
    if (isDrawn_ && isLineThere)
        writeAll(eraseLastLine(columns()));
    isDrawn_ = false;
    isLineThere = false;
    lastLine_.clear();
}

void Terminal::eraseForStop() noexcept
{
    const int before = errno;
    if (isLineThere.exchange(false))
        writeAll("\r\x1b[K");
    errno = before;
}

void Terminal::writeLine(std::string_view line)
{
    clearProgress();
    writeAll(platform::encodedForLocale(printable(line)) + "\n");
}

} // namespace stillora
