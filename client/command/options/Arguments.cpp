#include "client/command/options/Arguments.h"

#include "client/command/options/CreateOptions.h"
#include "client/command/options/HelpText.h"
#include "client/command/options/Suggestion.h"
#include "client/command/terminal/ExitStatus.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/LocaleEncoding.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include <fmt/format.h>
#include <getopt.h>

namespace stillora {

int give(const CommandLineAnswer& answer)
{
    std::FILE* const stream = answer.exitStatus == kExitDone ? stdout : stderr;
    fmt::print(stream, "{}", platform::encodedForLocale(answer.text));
    if (std::fflush(stream) != 0)
        return kExitFailed;
    return answer.exitStatus;
}

CommandLineAnswer usageError(const std::string& reason, const std::string& command)
{
    const std::string help = command.empty() ? "stillora --help" : fmt::format("stillora {} --help", command);
    return {fmt::format("stillora: {}\n{}\n", printable(reason), localized("Try '{}'.", help)), kExitUsage};
}

/// Hands a command's table to the C library's reader, and what that finds to a CommandArguments.
class ArgumentReader final {
public:
    ArgumentReader(const CommandForm& form, const std::vector<std::string>& arguments)
    {
        // The reader wants the program's name first, writable texts, and a null pointer last.
        texts_.emplace_back("stillora");
        texts_.insert(texts_.end(), arguments.begin(), arguments.end());
        for (std::string& text : texts_)
            pointers_.push_back(text.data());
        pointers_.push_back(nullptr);

        options_.push_back(&helpOption());
        options_.insert(options_.end(), form.options.begin(), form.options.end());
        for (const Option* option : options_) {
            longForms_.push_back({option->name.c_str(), option->takesValue() ? required_argument : no_argument, nullptr,
                                  kFirstLong + static_cast<int>(longForms_.size())});
            if (option->letter != 0)
                shortForms_ += fmt::format("{}{}", option->letter, option->takesValue() ? ":" : "");
        }
        longForms_.push_back({});
    }

    /// @param fault  what is wrong; empty if nothing is
    /// @return whether the help was asked for
    bool read(CommandArguments& into, std::string& fault)
    {
        // Starts anew.
        optind = 0;
        while (fault.empty()) {
            const int found = getopt_long(static_cast<int>(texts_.size()), pointers_.data(), shortForms_.c_str(),
                                          longForms_.data(), nullptr);
            if (found == -1)
                break;
            if (found == kOperand)
                into.operands_.emplace_back(optarg);
            else if (found == kUnknown)
                fault = faultOfUnknown();
            else if (found == kNoValue)
                fault = localized("{} needs a value", pointers_[static_cast<size_t>(optind - 1)]);
            else if (const Option& option = optionOf(found); &option == &helpOption())
                return true;
            else
                fault = take(option, into);
        }
        for (auto i = static_cast<size_t>(optind); fault.empty() && i < texts_.size(); ++i)
            into.operands_.emplace_back(pointers_[i]);
        return false;
    }

private:
    /// Above all letters.
    static constexpr int kFirstLong = 256;
    static constexpr int kOperand = 1;
    static constexpr int kUnknown = '?';
    static constexpr int kNoValue = ':';

    const Option& optionOf(int found) const
    {
        if (found >= kFirstLong)
            return *options_[static_cast<size_t>(found - kFirstLong)];
        return **std::find_if(options_.begin(), options_.end(),
                              [&](const Option* option) { return option->letter == found; });
    }

    std::string faultOfUnknown() const
    {
        if (optopt >= kFirstLong)
            return localized("--{} takes no value", optionOf(optopt).name);
        if (optopt != 0)
            return localized("there is no option -{}", static_cast<char>(optopt));
        std::string_view text = pointers_[static_cast<size_t>(optind - 1)];
        text = text.substr(0, text.find('='));
        std::vector<std::string> names;
        std::vector<std::string> candidates;
        for (const Option* option : options_) {
            names.push_back(option->name);
            if (option->name.starts_with(text.substr(2)))
                candidates.push_back("--" + option->name);
        }
        if (candidates.size() > 1)
            return localized("{} is the beginning of several options: {}", text, fmt::join(candidates, ", "));
        return withSuggestion(localized("there is no option {}", text), text.substr(2), names, "--");
    }

    static std::string take(const Option& option, CommandArguments& into)
    {
        std::vector<std::string>& values = into.values_[option.name];
        if (option.takesValue() && !option.isRepeatable && !values.empty())
            return localized("--{} is given twice", option.name);
        values.emplace_back(option.takesValue() ? optarg : "");
        return {};
    }

    std::vector<std::string> texts_;
    std::vector<char*> pointers_;
    std::vector<const Option*> options_;
    std::vector<option> longForms_;
    // What is no option is told in its place, and a missing value apart from an unknown option.
    std::string shortForms_ = "-:";
};

Parsed<CommandArguments> CommandArguments::read(std::string_view form, const std::vector<std::string>& arguments)
{
    CommandArguments result;
    std::string fault;
    const std::string command(form.substr(0, form.find(' ')));
    if (ArgumentReader(commandForm(form), arguments).read(result, fault))
        return CommandLineAnswer{helpOf(command, helpColumns()), kExitDone};
    if (!fault.empty())
        return usageError(fault, command);
    return result;
}

std::optional<std::string> CommandArguments::value(std::string_view option) const
{
    const auto found = values_.find(option);
    return found == values_.end() ? std::nullopt : std::optional(found->second.front());
}

std::vector<std::string> CommandArguments::values(std::string_view option) const
{
    const auto found = values_.find(option);
    return found == values_.end() ? std::vector<std::string>() : found->second;
}

std::optional<double> numberOf(std::string_view text)
{
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(number))
        return std::nullopt;
    return number;
}

std::optional<Seconds> timeOf(std::string_view text)
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
            return Seconds(seconds);
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

std::string readQuality(const std::string& given, int64_t& quality, std::string_view name)
{
    const std::string text = heightOf(given);
    const std::vector<std::string>& words = qualityWords();
    if (std::find(words.begin(), words.end(), text) == words.end())
        return withSuggestion(localized("{} takes {}, not \"{}\"", name, fmt::join(words, ", "), given), given, words);
    quality = text == kSmallestWord ? kSmallestQuality : kAutomaticQuality;
    std::from_chars(text.data(), text.data() + text.size(), quality);
    return {};
}

std::string heightOf(const std::string& typed)
{
    const std::string text = platform::lowercaseASCII(typed);
    if (text == "4k")
        return "2160";
    if (text.ends_with('p') && text.find_first_not_of("0123456789") == text.size() - 1)
        return text.substr(0, text.size() - 1);
    return typed;
}

std::string readWatermark(const CommandArguments& arguments, Watermark& watermark)
{
    const bool isWanted = arguments.has("watermark");
    const bool isUnwanted = arguments.has("no-watermark");
    if (isWanted && isUnwanted)
        return localized("--watermark and --no-watermark contradict each other");
    watermark = isWanted ? Watermark::Drawn : isUnwanted ? Watermark::Absent : Watermark::Usual;
    return {};
}

std::string readRange(const std::string& text, SoundArgument& sound, std::string_view name)
{
    const auto span = timeSpanOf(text);
    if (!span || (!span->start && !span->end))
        return localized("{} takes START-END in seconds or m:ss, of which one may be left out, not \"{}\"", name, text);
    if (span->endsBeforeItStarts())
        return localized("the range {} ends before it starts", text);
    sound.start = span->start;
    sound.end = span->end;
    return {};
}

namespace {

std::string faultOfMissing(OnlyOperand kind)
{
    switch (kind) {
    case OnlyOperand::File:
        return localized("no file was given");
    case OnlyOperand::Photo:
        return localized("no photo was given");
    case OnlyOperand::Sound:
        break;
    }
    return localized("no sound was given");
}

std::string faultOfSecond(OnlyOperand kind, const std::string& second)
{
    switch (kind) {
    case OnlyOperand::File:
        return localized("one file is taken, and {} is another argument", second);
    case OnlyOperand::Photo:
        return localized("one photo is taken, and {} is another argument", second);
    case OnlyOperand::Sound:
        break;
    }
    return localized("one sound is taken, and {} is another argument", second);
}

} // namespace

std::string readPNG(const std::string& text, std::string& path, std::string_view name)
{
    constexpr std::array<std::string_view, 10> kOtherPictures = {"avif", "bmp", "gif", "heic", "jpeg",
                                                                 "jpg",  "pdf", "tif", "tiff", "webp"};
    if (text.empty())
        return localized("{} takes the path of the PNG file to be made", name);
    const std::string extension = platform::lowercaseASCII(platform::pathExtension(text));
    if (std::ranges::count(kOtherPictures, extension) > 0)
        return localized("{} takes the path of a .png file, not of a .{} file", name, extension);
    path = text;
    return {};
}

std::string readOnly(const CommandArguments& arguments, OnlyOperand kind, std::string& path)
{
    const std::vector<std::string>& operands = arguments.operands();
    if (operands.empty() || operands.front().empty())
        return faultOfMissing(kind);
    path = operands.front();
    return operands.size() == 1 ? "" : faultOfSecond(kind, operands[1]);
}

std::string readSound(const CommandArguments& arguments, SoundArgument& sound)
{
    if (const auto range = arguments.value("range"))
        if (std::string fault = readRange(*range, sound); !fault.empty())
            return fault;
    std::string path;
    std::string fault = readOnly(arguments, OnlyOperand::Sound, path);
    sound.path = std::move(path);
    return fault;
}

} // namespace stillora
