#include "client/command/Question.h"

#include "platform/foundation/NSString.h"

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

std::optional<QuestionAnswer> answerOf(std::string line)
{
    while (line.ends_with(' ') || line.ends_with('\r'))
        line.pop_back();
    line = platform::lowercaseASCII(line);
    if (line.empty() || line == "y" || line == "yes")
        return QuestionAnswer::Yes;
    return line == "n" || line == "no" ? std::optional(QuestionAnswer::No) : std::nullopt;
}

} // namespace

bool canAsk()
{
    return isatty(STDIN_FILENO) == 1 && isatty(STDERR_FILENO) == 1 && tcgetpgrp(STDIN_FILENO) == getpgrp();
}

QuestionAnswer ask(std::string_view question, const std::function<bool()>& isStopped)
{
    for (;;) {
        fmt::print(stderr, "{} [Y/n] ", question);
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
