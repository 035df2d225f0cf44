#include "service/ServiceArguments.h"

#include "platform/foundation/LocalizedText.h"

#include <charconv>
#include <system_error>

#ifndef SERVICE_VERSION
#error "the build gives the version"
#endif

using platform::localized;
using platform::translatable;

namespace {

constexpr int kUsageStatus = 2;

constexpr const char* kUsage =
    translatable(R"(Usage: stillora-video-creator [--watermark | --no-watermark] [--files DESCRIPTOR]
                              [--part FIRST/COUNT] [--piece FILE]...
                              [--reuse RUNS:FILE]
       stillora-video-creator --help | --version
)");

constexpr const char* kHelp = translatable(R"(
Makes movies for its clients. It is started by a client, or by socket
activation: systemd-socket-activate -l PATH stillora-video-creator

  --watermark        write the watermark on the frames that carry it (default,
                     unless the user's settings say otherwise)
  --no-watermark     write it on none
  --files DESCRIPTOR put all files out of its own reach but those of the list
                     in this descriptor, as the program does that starts it
  --part FIRST/COUNT the photos of a request are some of a movie of COUNT
                     photos; the first of them has the number FIRST there,
                     counted from 0, which must be even
  --piece FILE       frames of a request, made before with --part; several of
                     these, in their order, are joined in place of the photos
  --reuse RUNS:FILE  copy frames of a request that would come out as those of
                     the movie FILE; a run is FIRST+COUNT@PLACE, as 0+9@1 for
                     nine frames from the first one on, which are those of
                     the movie from its second one on; runs by commas
  -h, --help         show this help
  --version          show the version
)");

/// Names of strangers cannot do anything to a terminal.
std::string printable(std::string_view text)
{
    std::string result(text);
    for (char& letter : result)
        if (static_cast<unsigned char>(letter) < ' ' || letter == 127)
            letter = '?';
    return result;
}

ServiceArguments::Answer usageFault(const std::string& fault)
{
    std::string text = "stillora-video-creator: ";
    return {text.append(fault).append("\n").append(localized(kUsage)), kUsageStatus};
}

std::optional<int> descriptorOf(std::string_view text)
{
    int number = -1;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && number >= 0 ? std::optional(number)
                                                                                     : std::nullopt;
}

/// Takes the number that a text begins with, and what must stand behind it.
/// @return nothing if that is not there
std::optional<size_t> takeNumber(std::string_view& text, char end)
{
    size_t number = 0;
    const auto [rest, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || rest == text.data() + text.size() || *rest != end)
        return std::nullopt;
    text.remove_prefix(static_cast<size_t>(rest + 1 - text.data()));
    return number;
}

/// "FIRST/COUNT"
std::optional<MoviePart> partOf(std::string text)
{
    text += '\n';
    std::string_view rest = text;
    const auto first = takeNumber(rest, '/');
    const auto count = first ? takeNumber(rest, '\n') : std::nullopt;
    const bool isFine = count && rest.empty() && *first % 2 == 0 && *first < *count;
    return isFine ? std::optional(MoviePart{*first, *count}) : std::nullopt;
}

/// "FIRST+COUNT@PLACE,FIRST+COUNT@PLACE:FILE"
std::optional<FrameSource> frameSourceOf(std::string_view text)
{
    // More than any movie has; what is counted is kept one by one.
    constexpr size_t kMaxPlace = 10'000'000;
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon + 1 == text.size())
        return std::nullopt;
    FrameSource source{platform::NSURL::fileURLWithPath(std::string(text.substr(colon + 1)), false), {}};
    std::string runs(text.substr(0, colon));
    runs += ',';
    for (std::string_view rest = runs; !rest.empty();) {
        const auto first = takeNumber(rest, '+');
        const auto count = first ? takeNumber(rest, '@') : std::nullopt;
        const auto place = count ? takeNumber(rest, ',') : std::nullopt;
        if (!place || *first > kMaxPlace || *count > kMaxPlace || *place > kMaxPlace)
            return std::nullopt;
        for (size_t i = 0; i < *count; ++i)
            if (!source.frames.emplace(*first + i, *place + i).second)
                return std::nullopt;
    }
    return source;
}

} // namespace

ServiceArguments ServiceArguments::read(const std::vector<std::string_view>& arguments)
{
    ServiceArguments result;
    for (auto next = arguments.begin(); next != arguments.end() && !result.answer; ++next) {
        const std::string_view argument = *next;
        const auto value = [&] { return next + 1 == arguments.end() ? std::string_view() : *++next; };
        if (argument == "--watermark" || argument == "--no-watermark")
            result.drawsWatermark = argument == "--watermark";
        else if (argument == "--help" || argument == "-h")
            result.answer = Answer{localized(kUsage).append(localized(kHelp)), 0};
        else if (argument == "--version")
            result.answer = Answer{"stillora-video-creator " SERVICE_VERSION "\n", 0};
        else if (argument == "--files") {
            const std::string_view number = value();
            result.fileList = descriptorOf(number);
            if (!result.fileList)
                result.answer =
                    usageFault(localized("--files takes the number of a descriptor, not {}", {printable(number)}));
        } else if (argument == "--part") {
            const std::string_view part = value();
            result.part = partOf(std::string(part));
            if (!result.part)
                result.answer = usageFault(
                    localized("--part takes an even number and a larger one, as 20/100, not {}", {printable(part)}));
        } else if (argument == "--piece") {
            result.pieces.emplace_back(value());
            if (result.pieces.back().empty())
                result.answer = usageFault(localized("--piece takes a file"));
        } else if (argument == "--reuse") {
            const std::string_view runs = value();
            result.frameSource = frameSourceOf(runs);
            if (!result.frameSource)
                result.answer =
                    usageFault(localized("--reuse takes runs and a file, as 0+9@1:a.mov, not {}", {printable(runs)}));
        } else
            result.answer = usageFault(localized("there is no option {}", {printable(argument)}));
    }
    return result;
}
