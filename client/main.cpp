#include "client/Localization.h"
#include "client/command/CommandLine.h"
#include "client/command/CreateCommand.h"
#include "client/command/FrameCommand.h"

#include <csignal>
#include <cstdio>

#include <fmt/format.h>

int main(int argc, char** argv)
{
    // A reader that goes away is noticed when writing fails.
    std::signal(SIGPIPE, SIG_IGN);
    setUpLocalization();
    const ParsedCommandLine parsed = parseCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc});
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed)) {
        fmt::print(answer->exitStatus == 0 ? stdout : stderr, "{}", answer->text);
        return std::fflush(stdout) == 0 ? answer->exitStatus : 1;
    }
    if (const auto* frame = std::get_if<FrameOptions>(&parsed))
        return runFrameCommand(*frame);
    return runCreateCommand(std::get<CreateOptions>(parsed));
}
