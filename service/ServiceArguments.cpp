#include "service/ServiceArguments.h"

#ifndef SERVICE_VERSION
#error "the build gives the version"
#endif

namespace {

constexpr int kUsageStatus = 2;

constexpr std::string_view kUsage = R"(Usage: stillora-video-creator [--watermark | --no-watermark]
       stillora-video-creator --help | --version
)";

constexpr std::string_view kHelp = R"(
Makes movies for its clients. It is started by a client, or by socket
activation: systemd-socket-activate -l PATH stillora-video-creator

  --watermark        write the watermark on the frames that carry it (default,
                     unless the user's settings say otherwise)
  --no-watermark     write it on none
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

ServiceArguments::Answer faultOf(std::string_view argument)
{
    std::string text = "stillora-video-creator: there is no option ";
    return {text.append(printable(argument)).append("\n").append(kUsage), kUsageStatus};
}

} // namespace

ServiceArguments ServiceArguments::read(const std::vector<std::string_view>& arguments)
{
    ServiceArguments result;
    for (const std::string_view argument : arguments) {
        if (argument == "--watermark" || argument == "--no-watermark")
            result.drawsWatermark = argument == "--watermark";
        else if (argument == "--help" || argument == "-h")
            result.answer = Answer{std::string(kUsage).append(kHelp), 0};
        else if (argument == "--version")
            result.answer = Answer{"stillora-video-creator " SERVICE_VERSION "\n", 0};
        else
            result.answer = faultOf(argument);
        if (result.answer)
            break;
    }
    return result;
}
