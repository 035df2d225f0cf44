#include "platform/connection/NSXPCConnection.h"
#include "platform/connection/NSXPCListener.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"
#include "platform/system/FatalErrors.h"
#include "platform/system/NSProcessInfo.h"
#include "service/ServiceArguments.h"
#include "service/ServiceConfinement.h"
#include "service/ServiceDelegate.h"
#include "service/morStilloraVideoCreator.h"
#include "util/UserSettings.h"

#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <malloc.h>
#include <memory>
#include <optional>

namespace {

/// What cancelled jobs get to come to their end in, once nobody listens any more. Some never do.
constexpr double kLastSeconds = 10;

/// Frames come and go by the dozen, each some megabytes: blocks of that size go back to the system when they are freed,
/// and the small ones are shared by few arenas, whose holes do not add up.
void limitMemory()
{
    mallopt(M_MMAP_THRESHOLD, 4 << 20);
    mallopt(M_TRIM_THRESHOLD, 16 << 20);
    mallopt(M_ARENA_MAX, 4);
}

/// A service that lives long looks into the user's settings anew for each client.
ServiceDelegate::CreatorFactory creatorFactory(std::optional<bool> drawsWatermark)
{
    return [drawsWatermark] {
        auto creator = std::make_shared<morStilloraVideoCreator>();
        creator->setDrawsWatermark(drawsWatermark ? *drawsWatermark : UserSettings::drawsWatermark().value_or(true));
        return creator;
    };
}

int give(const ServiceArguments::Answer& answer)
{
    std::FILE* const stream = answer.exitStatus == 0 ? stdout : stderr;
    const bool isWritten = std::fputs(answer.text.c_str(), stream) >= 0 && std::fflush(stream) == 0;
    return isWritten ? answer.exitStatus : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    platform::holdStandardDescriptors();
    const ServiceArguments arguments = ServiceArguments::read({argv + (argc > 0 ? 1 : 0), argv + argc});
    if (arguments.answer)
        return give(*arguments.answer);
    platform::endPlainlyOnFatalErrors("stillora-video-creator");
    limitMemory();
    // What is the user's own is read before anything is given up.
    std::setlocale(LC_MESSAGES, "");
    UserSettings::applyLanguage();
    platform::NSError error;
    if (!confineService(arguments.fileList, &error)) {
        std::fprintf(stderr, "stillora-video-creator: %s\n", error.localizedDescription.c_str());
        return EXIT_FAILURE;
    }
    // A client that is gone is an error of the write, not the end of the process. A terminal's interrupt is for the
    // client that was started there: it cancels its job and waits for the answer.
    std::signal(SIGPIPE, SIG_IGN);
    // A limit on the size of files is one too.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
    platform::NSProcessInfo::processInfo().setProcessName("Stillora");
    platform::NSBundle::mainBundle().setLocalizations(
        platform::installedPlace(platform::InstalledFolder::Shared, "locale"), "stillora");

    platform::NSXPCConnection::startThreads();
    const auto delegate = std::make_shared<ServiceDelegate>(creatorFactory(arguments.drawsWatermark));
    const auto listener = platform::NSXPCListener::serviceListener(&error);
    if (!listener) {
        std::fprintf(stderr,
                     "stillora-video-creator: %s\n"
                     "It is started by a client, or by socket activation: systemd-socket-activate -l PATH %s\n",
                     error.localizedDescription.c_str(), program_invocation_short_name);
        return EXIT_FAILURE;
    }
    listener->setDelegate(delegate);
    listener->resume();

    const bool isIdle = platform::DispatchQueue::runMainUntil(
        [] { return morStilloraVideoCreator::unansweredRequests() == 0; }, kLastSeconds);
    if (!isIdle)
        platform::NSLog("A job did not come to its end in time; the process ends without it");
    // Threads of the pools still run, the ends of connections among them, so nothing that they use is torn down.
    std::_Exit(EXIT_SUCCESS);
}
