#include <stillora/Localization.h>

#include "client/command/CommandLine.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/system/FatalErrors.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <variant>

using namespace stillora;

int main(int argc, char** argv)
{
    // Threads share memory that was got early: one that gets none for itself would be ended by GLib, without sense.
    mallopt(M_ARENA_MAX, 2);
    platform::holdStandardDescriptors();
    // A reader that goes away is noticed when writing fails.
    std::signal(SIGPIPE, SIG_IGN);
    // So is a limit on the size of files.
    std::signal(SIGXFSZ, SIG_IGN);
    platform::endPlainlyOnFatalErrors("stillora");
    setUpLocalization();
    const Parsed<CommandCall> parsed = parseCommandLine({argv + (argc > 0 ? 1 : 0), argv + argc});
    const auto* call = std::get_if<CommandCall>(&parsed);
    const int status = call ? call->command->run(call->arguments) : give(std::get<CommandLineAnswer>(parsed));
    std::fflush(nullptr);
    // Threads of the pools may still run, so nothing that they use is torn down.
    std::_Exit(status);
}
