#include "service/ServiceArguments.h"

#include <charconv>
#include <system_error>

#ifndef SERVICE_VERSION
#error "the build gives the version"
#endif

namespace {

constexpr int kUsageStatus = 2;

constexpr std::string_view kUsage = R"(Usage: stillora-video-creator [--watermark | --no-watermark] [--files DESCRIPTOR]
       stillora-video-creator --help | --version
)";

constexpr std::string_view kHelp = R"(
Makes movies for its clients. It is started by a client, or by socket
activation: systemd-socket-activate -l PATH stillora-video-creator

  --watermark        write the watermark on the frames that carry it (default,
                     unless the user's settings say otherwise)
  --no-watermark     write it on none
  --files DESCRIPTOR put all files out of its own reach but those of the list
                     in this descriptor, as the program does that starts it
  -h, --help         show this help
  --version          show the version
)";

/// Names of strangers cannot do anything to a terminal.
std::string printable(std::string_view text)
{
    std::string result(text);
    for (char& letter : result)
        if (static_cast<unsigned char>(letter) < ' ' || letter == 127)
            letter = '?';
    return result;
}

ServiceArguments::Answer usageFault(std::string_view what, std::string_view argument)
{
    std::string text = "stillora-video-creator: ";
    return {text.append(what).append(" ").append(printable(argument)).append("\n").append(kUsage), kUsageStatus};
}

std::optional<int> descriptorOf(std::string_view text)
{
    int number = -1;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && number >= 0 ? std::optional(number)
                                                                                     : std::nullopt;
}

} // namespace

ServiceArguments ServiceArguments::read(const std::vector<std::string_view>& arguments)
{
    ServiceArguments result;
    for (auto next = arguments.begin(); next != arguments.end() && !result.answer; ++next) {
        const std::string_view argument = *next;
        if (argument == "--watermark" || argument == "--no-watermark")
            result.drawsWatermark = argument == "--watermark";
        else if (argument == "--help" || argument == "-h")
            result.answer = Answer{std::string(kUsage).append(kHelp), 0};
        else if (argument == "--version")
            result.answer = Answer{"stillora-video-creator " SERVICE_VERSION "\n", 0};
        else if (argument == "--files") {
            const std::string_view number = ++next == arguments.end() ? std::string_view() : *next;
            result.fileList = descriptorOf(number);
            if (!result.fileList)
                result.answer = usageFault("--files takes the number of a descriptor, not", number);
            if (next == arguments.end())
                break;
        } else
            result.answer = usageFault("there is no option", argument);
    }
    return result;
}
