#include "client/Localization.h"
#include "client/command/CommandLine.h"
#include "client/command/CreateCommand.h"
#include "client/command/FrameCommand.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <fmt/format.h>

namespace {

int run(int argc, char** argv)
{
    const ParsedCommandLine parsed = parseCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc});
    if (const auto* answer = std::get_if<CommandLineAnswer>(&parsed)) {
        fmt::print(answer->exitStatus == 0 ? stdout : stderr, "{}", answer->text);
        return std::fflush(stdout) == 0 ? answer->exitStatus : 1;
    }
    if (const auto* frame = std::get_if<FrameOptions>(&parsed))
        return runFrameCommand(*frame);
    return runCreateCommand(std::get<CreateOptions>(parsed));
}

} // namespace

int main(int argc, char** argv)
{
    // A reader that goes away is noticed when writing fails.
    std::signal(SIGPIPE, SIG_IGN);
    // So is a limit on the size of files.
    std::signal(SIGXFSZ, SIG_IGN);
    setUpLocalization();
    const int status = run(argc, argv);
    std::fflush(nullptr);
    // Threads of the pools may still run, so nothing that they use is torn down.
    std::_Exit(status);
}
