#include "platform/connection/NSXPCConnection.h"
#include "platform/connection/NSXPCListener.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/LocaleEncoding.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSLog.h"
#include "platform/foundation/NSString.h"
#include "platform/system/FatalErrors.h"
#include "platform/system/NSProcessInfo.h"
#include "platform/vips/PictureLibrary.h"
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
#include <string>
#include <utility>
#include <vector>

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
ServiceDelegate::CreatorFactory creatorFactory(const ServiceArguments& arguments)
{
    std::vector<platform::NSURL> pieces;
    for (const std::string& piece : arguments.pieces)
        pieces.push_back(platform::NSURL::fileURLWithPath(piece, false));
    return [drawsWatermark = arguments.drawsWatermark, part = arguments.part, pieces = std::move(pieces),
            frameSource = arguments.frameSource] {
        auto creator = std::make_shared<morStilloraVideoCreator>();
        creator->setDrawsWatermark(drawsWatermark ? *drawsWatermark : UserSettings::drawsWatermark().value_or(true));
        creator->setPart(part);
        creator->setPieces(pieces);
        creator->setFrameSource(frameSource);
        return creator;
    };
}

/// To whoever started the program, in the charset of their terminal. It ends then: for a job, nothing is changed.
bool tell(const std::string& text, std::FILE* stream)
{
    std::setlocale(LC_CTYPE, "");
    const std::string bytes = platform::encodedForLocale(platform::stringByReplacingInvalidUTF8(text));
    return std::fputs(bytes.c_str(), stream) >= 0 && std::fflush(stream) == 0;
}

int give(const ServiceArguments::Answer& answer)
{
    return tell(answer.text, answer.exitStatus == 0 ? stdout : stderr) ? answer.exitStatus : EXIT_FAILURE;
}

int refuse(const std::string& reason)
{
    (void)tell("stillora-video-creator: " + reason + "\n", stderr);
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    platform::holdStandardDescriptors();
    // What is the user's own is read before anything is given up.
    std::setlocale(LC_MESSAGES, "");
    UserSettings::applyLanguage();
    platform::NSBundle::mainBundle().setLocalizations(
        platform::installedPlace(platform::InstalledFolder::Shared, "locale"), "stillora");
    const ServiceArguments arguments = ServiceArguments::read({argv + (argc > 0 ? 1 : 0), argv + argc});
    if (arguments.answer)
        return give(*arguments.answer);
    platform::endPlainlyOnFatalErrors("stillora-video-creator");
    limitMemory();
    platform::settlePictureLibrary();
    platform::NSError error;
    if (!confineService(arguments.fileList, &error))
        return refuse(error.localizedDescription);
    // A client that is gone is an error of the write, not the end of the process. A terminal's interrupt is for the
    // client that was started there: it cancels its job and waits for the answer.
    std::signal(SIGPIPE, SIG_IGN);
    // A limit on the size of files is one too.
    std::signal(SIGXFSZ, SIG_IGN);
    std::signal(SIGINT, SIG_IGN);
    platform::NSProcessInfo::processInfo().setProcessName("Stillora");

    platform::NSXPCConnection::startThreads();
    const auto delegate = std::make_shared<ServiceDelegate>(creatorFactory(arguments));
    const auto listener = platform::NSXPCListener::serviceListener(&error);
    if (!listener)
        return refuse(error.localizedDescription + "\n" +
                      platform::localized(
                          "It is started by a client, or by socket activation: systemd-socket-activate -l PATH {}",
                          {program_invocation_short_name}));
    listener->setDelegate(delegate);
    listener->resume();

    const bool isIdle = platform::DispatchQueue::runMainUntil(
        [] { return morStilloraVideoCreator::unansweredRequests() == 0; }, kLastSeconds);
    if (!isIdle)
        platform::NSLog("A job did not come to its end in time; the process ends without it");
    // Threads of the pools still run, the ends of connections among them, so nothing that they use is torn down.
    std::_Exit(EXIT_SUCCESS);
}
