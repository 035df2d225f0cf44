#include "client/command/Arguments.h"

#include "client/Text.h"
#include "client/command/CreateOptions.h"
#include "client/command/ExitStatus.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace {

constexpr std::array<int64_t, 7> kQualities{240, 360, 480, 720, 1080, 1440, 2160};

} // namespace

int give(const CommandLineAnswer& answer)
{
    std::FILE* const stream = answer.exitStatus == kExitDone ? stdout : stderr;
    fmt::print(stream, "{}", answer.text);
    if (std::fflush(stream) != 0)
        return kExitFailed;
    return answer.exitStatus;
}

CommandLineAnswer usageError(const std::string& reason, const std::string& command)
{
    return {fmt::format("stillora: {}\nTry 'stillora {}--help'.\n", printable(reason),
                        command.empty() ? "" : command + " "),
            kExitUsage};
}

std::optional<CommandLineAnswer> readArguments(CLI::App& app, const std::vector<std::string>& arguments,
                                               const std::string& command, std::string (*help)())
{
    try {
        // CLI11 takes them from the end.
        std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
        app.parse(reversed);
    } catch (const CLI::CallForHelp&) {
        return CommandLineAnswer{help(), kExitDone};
    } catch (const CLI::ParseError& failure) {
        return usageError(failure.what(), command);
    }
    return std::nullopt;
}

std::optional<double> numberOf(std::string_view text)
{
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        return std::nullopt;
    return number;
}

std::optional<double> timeOf(std::string_view text)
{
    double seconds = 0;
    bool isFirst = true;
    for (int part = 0; part < 3; ++part) {
        const size_t colon = text.find(':');
        const std::string_view number = text.substr(0, colon);
        const bool isWhole = number.find_first_not_of("0123456789") == std::string_view::npos;
        const auto value = number.empty() || number[0] == '-' ? std::nullopt : numberOf(number);
        // Only the last part may have a fraction, and only the first may be 60 or more.
        if (!value || *value < 0 || (colon != std::string_view::npos && !isWhole) || (!isFirst && *value >= 60))
            return std::nullopt;
        seconds = seconds * 60 + *value;
        if (colon == std::string_view::npos)
            return seconds;
        text.remove_prefix(colon + 1);
        isFirst = false;
    }
    return std::nullopt;
}

std::optional<TimeSpan> timeSpanOf(std::string_view text)
{
    const size_t hyphen = text.find('-');
    if (hyphen == std::string_view::npos)
        return std::nullopt;
    const std::string_view start = text.substr(0, hyphen);
    const std::string_view end = text.substr(hyphen + 1);
    const TimeSpan span{timeOf(start), timeOf(end)};
    if ((!start.empty() && !span.start) || (!end.empty() && !span.end))
        return std::nullopt;
    return span;
}

SoundArgument soundOf(const std::string& text)
{
    const size_t at = text.rfind('@');
    const auto span = at == std::string::npos ? std::nullopt : timeSpanOf(std::string_view(text).substr(at + 1));
    if (!span)
        return {text, std::nullopt, std::nullopt};
    return {text.substr(0, at), span->start, span->end};
}

std::string readQuality(const std::string& text, int64_t& quality)
{
    if (text == "auto") {
        quality = CreateOptions::kAutomaticQuality;
        return {};
    }
    for (const int64_t each : kQualities)
        if (text == std::to_string(each)) {
            quality = each;
            return {};
        }
    return fmt::format("--quality takes auto, {}, not \"{}\"", fmt::join(kQualities, ", "), text);
}
