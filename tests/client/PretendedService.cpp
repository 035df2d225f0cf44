// A rendering service that behaves as its first word of STILLORA_PRETENDED_SERVICE tells; made for the tests of its
// client. What it was asked for is written to the file that STILLORA_PRETENDED_REQUEST names. What it "makes" is a copy
// of the movie STILLORA_PRETENDED_MOVIE, or of "8.mov" in that folder where it was sent 8 photos.

#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/connection/NSXPCListener.h"
#include "platform/dispatch/DispatchQueue.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSLog.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <sys/socket.h>
#include <unistd.h>

namespace {

using platform::NSData;
using platform::NSURL;

/// The socket that the client has handed over.
constexpr int kSocket = 3;

std::string setting(const char* name)
{
    const char* value = getenv(name);
    return value ? value : "";
}

class PretendedCreator final : public morStilloraVideoCreatorProtocol {
public:
    explicit PretendedCreator(const platform::NSXPCConnectionPtr& connection) : connection_(connection) {}

    void createStillMotionVideoWithPhotos(PhotoList photos, SoundtrackList soundtracks, double totalVideoDuration,
                                          double totalSoundtrackDuration, bool shouldLoopSoundtrack,
                                          double durationPerPhoto, const std::optional<std::string>& desiredCodec,
                                          int64_t quality, bool shouldReduceBorders, const NSData& documentURL,
                                          const NSData& saveURL, const NSData& temporaryURL, Reply reply) override
    {
        const auto document = NSURL::URLByResolvingBookmarkData(documentURL);
        const auto save = NSURL::URLByResolvingBookmarkData(saveURL);
        const auto temporary = NSURL::URLByResolvingBookmarkData(temporaryURL);
        std::ofstream record(setting("STILLORA_PRETENDED_REQUEST"));
        record << "argument " << setting("STILLORA_PRETENDED_ARGUMENT") << "\n";
        record << "photos " << photos.size() << "\nvideo " << totalVideoDuration << "\nperPhoto " << durationPerPhoto
               << "\nsounds " << soundtracks.size() << "\nsound " << totalSoundtrackDuration << "\nloop "
               << shouldLoopSoundtrack << "\ncodec " << desiredCodec.value_or("none") << "\nquality " << quality
               << "\nreduce " << shouldReduceBorders << "\ndocument "
               << (document ? document->lastPathComponent() : "none") << "\n";
        for (const auto& photo : photos)
            record << "photo " << (photo->photoURL() ? photo->photoURL()->path() : "none") << " " << photo->size().width
                   << "x" << photo->size().height << " " << photo->fileSize() << "\n";
        for (const auto& sound : soundtracks)
            record << "soundtrack " << (sound->soundtrackURL() ? sound->soundtrackURL()->lastPathComponent() : "none")
                   << " " << sound->selection().start << "-" << sound->selection().end << "\n";
        record.close();
        // The replies of the real service come from another thread too.
        std::thread([this, photoCount = photos.size(), save, temporary, document, reply = std::move(reply)]() mutable {
            run(photoCount, save.value(), temporary.value(), document.value(), std::move(reply));
        }).detach();
    }

    void cancelCreation() override { isCancelled_ = true; }

private:
    void tell(const std::string& title, double progress, double total, double timeInterval)
    {
        if (const auto connection = connection_.lock())
            ProgressReceiverProxy(connection->remoteObjectProxy())
                .updateProgressWithTitle(title, std::nullopt, true, progress, total, timeInterval);
    }

    void waitForCancel()
    {
        while (!isCancelled_)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    void run(size_t photoCount, const NSURL& save, const NSURL& temporary, const NSURL& document, Reply reply)
    {
        const std::string behaviour = setting("STILLORA_PRETENDED_SERVICE");
        tell("VideoCreationTitleRenderingVideo", 1, 4, 2.5);
        if (behaviour == "makes") {
            const std::string name = platform::stringByDeletingPathExtension(document.lastPathComponent()) + ".mov";
            const std::string movie = save.path() + "/" + name;
            std::filesystem::path copied = setting("STILLORA_PRETENDED_MOVIE");
            if (is_directory(copied))
                copied /= std::to_string(photoCount) + ".mov";
            std::filesystem::copy_file(copied, movie);
            reply(NSURL::fileURLWithPath(movie, false).bookmarkDataOfPathAlone(), std::nullopt, false);
        } else if (behaviour == "claims") {
            reply(NSURL::fileURLWithPath(save.path() + "/nothing.mov", false).bookmarkDataOfPathAlone(), std::nullopt,
                  false);
        } else if (behaviour == "waits") {
            std::ofstream(temporary.path() + "/started");
            waitForCancel();
            reply(std::nullopt, std::nullopt, true);
        } else if (behaviour == "ignores") {
            // Also that its client goes away.
            for (;;)
                pause();
        } else if (behaviour == "choosesASize") {
            tell("VideoCreationTitleCalculatingVideoSize", 2, 4, -1);
            reply(std::nullopt, std::nullopt, true);
        } else if (behaviour == "hasChosenASize") {
            tell("VideoCreationTitleCalculatingVideoSize", 4, 4, -1);
            reply(std::nullopt, std::nullopt, true);
        } else if (behaviour == "fails") {
            reply(std::nullopt, platform::NSError{"AVFoundationErrorDomain", -11829, "song.mp3 is damaged"}, false);
        } else if (behaviour == "shrugs") {
            platform::logFailure("-[morStilloraVideoCreator videoWithPhotos:]", "could not create assetWriter");
            reply(std::nullopt, std::nullopt, true);
        } else if (behaviour == "babbles") {
            // By several at once, so that there is always more than was read; short lines take the longest to read.
            std::string much;
            while (much.size() < 60'000)
                much += "a\n";
            const auto babble = [&much] {
                while (write(STDERR_FILENO, much.data(), much.size()) > 0) {
                }
            };
            const std::array<std::jthread, 3> others{std::jthread(babble), std::jthread(babble), std::jthread(babble)};
            babble();
        } else if (behaviour == "floods") {
            for (;;)
                tell("VideoCreationTitleRenderingVideo", 1, 4, 2.5);
        } else if (behaviour == "hangsUp") {
            shutdown(kSocket, SHUT_WR);
            for (;;)
                pause();
        } else if (behaviour == "dies") {
            platform::NSLog("about to die");
            raise(SIGKILL);
        } else if (behaviour == "leaves") {
            _exit(7);
        } else if (behaviour == "grows") {
            // Longer without a word than the client's patience, but not without a sign of life.
            std::ofstream file(temporary.path() + "/conversion.m4a", std::ios::binary);
            for (int i = 0; i < 20; ++i) {
                file << std::string(1000, 'x') << std::flush;
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
            reply(std::nullopt, platform::NSError{"Test", 1, "grown"}, false);
        }
    }

    const std::weak_ptr<platform::NSXPCConnection> connection_;
    std::atomic<bool> isCancelled_{false};
};

class Delegate final : public platform::NSXPCListenerDelegate {
public:
    bool listener(platform::NSXPCListener&, const platform::NSXPCConnectionPtr& connection) override
    {
        auto interface = morStilloraVideoCreatorProtocol::interface();
        const auto allow = [&](size_t index, platform::NSXPCClass item) {
            interface->setClasses({platform::NSXPCClass::array(), std::move(item)}, kCreateStillMotionVideoSelector,
                                  index, false);
        };
        allow(0, morStilloraVideoCreatorProtocol::photoClass());
        allow(1, morStilloraVideoCreatorProtocol::soundtrackClass());
        connection->setExportedInterface(interface);
        connection->setRemoteObjectInterface(morStilloraXPCCreatorUpdateProtocol::interface());
        connection->setExportedObject(std::make_shared<PretendedCreator>(connection));
        // From here on it reads nothing and says nothing.
        if (setting("STILLORA_PRETENDED_SERVICE") == "freezes")
            raise(SIGSTOP);
        connection->resume();
        return true;
    }
};

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1)
        setenv("STILLORA_PRETENDED_ARGUMENT", argv[1], 1);
    if (setting("STILLORA_PRETENDED_SERVICE") == "refuses") {
        std::fputs("no socket for me\n", stderr);
        return 1;
    }
    const auto delegate = std::make_shared<Delegate>();
    const auto listener = platform::NSXPCListener::serviceListener();
    if (!listener)
        return 1;
    listener->setDelegate(delegate);
    listener->resume();
    // One that ignores everything stays although its client is gone.
    while (setting("STILLORA_PRETENDED_SERVICE") == "ignores")
        pause();
    return 0;
}
