#include "client/command/terminal/Question.h"

#include "client/text/LocalizedText.h"
#include "platform/foundation/LocaleEncoding.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <string>

#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

namespace stillora {

namespace {

constexpr int kPatienceMilliseconds = 200;

/// What was typed, without its end; nothing where there will be nothing more, or it is not waited for any longer.
std::optional<std::string> readLine(const std::function<bool()>& isStopped)
{
    std::string line;
    while (!isStopped()) {
        pollfd input = {STDIN_FILENO, POLLIN, 0};
        // A signal ends this, unlike reading.
        if (poll(&input, 1, kPatienceMilliseconds) <= 0)
            continue;
        // Byte by byte: what follows the line is for whoever reads next.
        char letter = 0;
        if (read(STDIN_FILENO, &letter, 1) != 1)
            return std::nullopt;
        if (letter == '\n')
            return line;
        line += letter;
    }
    return std::nullopt;
}

/// Whether a line is one of a list's words.
bool isOneOf(const std::string& line, std::string_view words)
{
    while (!words.empty()) {
        const std::string_view word = words.substr(0, words.find(' '));
        if (line == word)
            return true;
        words.remove_prefix(std::min(words.size(), word.size() + 1));
    }
    return false;
}

/// English is understood in every language.
constexpr std::string_view kYes = "y yes";
constexpr std::string_view kNo = "n no";

std::optional<QuestionAnswer> answerOf(std::string line)
{
    while (line.ends_with(' ') || line.ends_with('\r'))
        line.pop_back();
    line = platform::lowercaseASCII(line);
    // What is typed for yes, and for no, in small letters.
    if (line.empty() || isOneOf(line, kYes) || isOneOf(line, localized("y yes")))
        return QuestionAnswer::Yes;
    return isOneOf(line, kNo) || isOneOf(line, localized("n no")) ? std::optional(QuestionAnswer::No) : std::nullopt;
}

} // namespace

bool canAsk()
{
    return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

QuestionAnswer ask(std::string_view question, const std::function<bool()>& isStopped)
{
    for (;;) {
        fmt::print(stderr, "{}", platform::encodedForLocale(fmt::format("{} {} ", question, localized("[Y/n]"))));
        std::fflush(stderr);
        const auto line = readLine(isStopped);
        if (!line) {
            fmt::print(stderr, "\n");
            return isStopped() ? QuestionAnswer::Stopped : QuestionAnswer::No;
        }
        if (const auto answer = answerOf(*line))
            return *answer;
    }
}

} // namespace stillora
