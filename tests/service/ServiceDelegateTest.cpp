#include "service/ServiceDelegate.h"

#include "FakeStages.h"

#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/connection/NSXPCListener.h"
#include "tests/support/TestSockets.h"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <future>
#include <semaphore>
#include <sys/socket.h>
#include <thread>
#include <tuple>

using platform::DispatchQueue;
using platform::NSData;
using platform::NSError;
using platform::NSXPCConnection;
using platform::NSXPCListener;

namespace {

using namespace std::chrono_literals;
using Entries = std::vector<std::string>;

constexpr auto kDeadline = 30s;

struct Outcome {
    std::optional<NSData> movie;
    std::optional<NSError> error;
    bool isCancelled = false;
};

/// One update as text.
std::string text(const std::string& title, const std::optional<NSData>& image, bool determinate, double progress,
                 double total, double timeInterval)
{
    std::ostringstream stream;
    stream << title << (image ? " image" : "") << (determinate ? " determinate " : " ") << progress << "/" << total
           << " " << timeInterval;
    return stream.str();
}

class ProgressReceiver final : public morStilloraXPCCreatorUpdateProtocol {
public:
    void updateProgressWithTitle(const std::string& title, const std::optional<NSData>& image, bool determinate,
                                 double progress, double total, double timeInterval) override
    {
        journal.add(text(title, image, determinate, progress, total, timeInterval));
    }
    Journal journal;
};

/// The client's end, as the client library makes it.
struct Client {
    std::shared_ptr<ProgressReceiver> receiver = std::make_shared<ProgressReceiver>();
    platform::NSXPCConnectionPtr connection;

    explicit Client(int socket)
    {
        NSError error;
        connection = NSXPCConnection::connectionWithSocket(socket, &error);
        EXPECT_TRUE(connection) << error.localizedDescription;
        connection->setExportedInterface(morStilloraXPCCreatorUpdateProtocol::interface());
        connection->setExportedObject(receiver);
        connection->setRemoteObjectInterface(morStilloraVideoCreatorProtocol::interface());
        connection->resume();
    }
    ~Client() { connection->invalidate(); }
    VideoCreatorProxy proxy() { return VideoCreatorProxy(connection->remoteObjectProxy()); }

    std::future<Outcome> create(const TemporaryFolder& folder, size_t photoCount = 5, size_t soundtrackCount = 0)
    {
        auto promise = std::make_shared<std::promise<Outcome>>();
        proxy().createStillMotionVideoWithPhotos(
            photos(photoCount), soundtracks(soundtrackCount), 50, 5, false, 10, std::nullopt, 720, false, {},
            folder.bookmark(), folder.bookmark(),
            [promise](std::optional<NSData> movie, std::optional<NSError> error, bool isCancelled) {
                promise->set_value({std::move(movie), std::move(error), isCancelled});
            });
        return promise->get_future();
    }
};

Outcome get(std::future<Outcome> future)
{
    if (future.wait_for(kDeadline) != std::future_status::ready) {
        ADD_FAILURE() << "no answer";
        return {};
    }
    return future.get();
}

/// The service in this process, each connection over a socket pair of its own; a thread stands for the main one.
class DelegateTest : public testing::Test {
protected:
    DelegateTest() : main_([] { DispatchQueue::runMain(); }) {}
    ~DelegateTest() override
    {
        {
            // A client may be done before the service has heard of it.
            std::unique_lock guard(mutex_);
            EXPECT_TRUE(accepted_.wait_for(guard, kDeadline, [&] { return connections_.size() == asked_; }));
        }
        for (const auto& connection : connections_)
            connection->invalidate();
        DispatchQueue::main()->async([] { DispatchQueue::stopMain(); });
        main_.join();
    }

    /// A socket that is connected to the service.
    int connect()
    {
        if (!delegate_) {
            delegate_ = std::make_shared<ServiceDelegate>([this] { return fakes_.makeCreator(); });
            const int unused = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
            listener_ = NSXPCListener::listenerWithSocket(unused);
        }
        const auto [serviceEnd, clientEnd] = socketPair();
        ++asked_;
        DispatchQueue::global()->async([this, socket = serviceEnd] {
            const auto connection = NSXPCConnection::acceptedConnectionWithSocket(socket);
            EXPECT_TRUE(connection);
            EXPECT_TRUE(delegate_->listener(*listener_, connection));
            const std::lock_guard guard(mutex_);
            connections_.push_back(connection);
            accepted_.notify_all();
        });
        return clientEnd;
    }
    platform::NSXPCConnectionPtr connection(size_t index)
    {
        std::unique_lock guard(mutex_);
        EXPECT_TRUE(accepted_.wait_for(guard, kDeadline, [&] { return connections_.size() > index; }));
        return connections_[index];
    }
    std::shared_ptr<morStilloraVideoCreator> creator(size_t index)
    {
        return std::dynamic_pointer_cast<morStilloraVideoCreator>(connection(index)->exportedObject());
    }

    /// Before what a job's stages use goes. An answer that came over the connection does not say so to the thread
    /// sanitizer, which does not look into the library.
    static void waitForJobs()
    {
        const auto deadline = std::chrono::steady_clock::now() + kDeadline;
        while (morStilloraVideoCreator::unansweredRequests() > 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::yield();
    }

    /// Lets the video of every job last until the job is cancelled.
    /// @return released once for each that has begun
    std::shared_ptr<std::counting_semaphore<>> holdVideosUntilCancelled()
    {
        auto begun = std::make_shared<std::counting_semaphore<>>(0);
        fakes_.duringVideo = [begun](StageContext& context) {
            begun->release();
            while (!context.isCancelled())
                std::this_thread::yield();
        };
        return begun;
    }

    TemporaryFolder folder_;
    FakeStages fakes_{folder_.path()};
    LogRecorder log_;

private:
    std::shared_ptr<ServiceDelegate> delegate_;
    std::shared_ptr<NSXPCListener> listener_;
    std::mutex mutex_;
    std::condition_variable accepted_;
    std::vector<platform::NSXPCConnectionPtr> connections_;
    size_t asked_ = 0;
    std::thread main_;
};

/// A D-Bus library's client, for messages that this project's own never sends.
class PlainClient {
public:
    explicit PlainClient(int socket)
    {
        GSocket* object = g_socket_new_from_fd(socket, nullptr);
        GSocketConnection* stream = g_socket_connection_factory_create_connection(object);
        connection_ = g_dbus_connection_new_sync(
            G_IO_STREAM(stream), nullptr, G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT, nullptr, nullptr, nullptr);
        g_object_unref(stream);
        g_object_unref(object);
    }
    PlainClient(const PlainClient&) = delete;
    PlainClient& operator=(const PlainClient&) = delete;
    ~PlainClient()
    {
        g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_object_unref(connection_);
    }
    /// The reply, or "error name: message".
    std::string call(const char* method, const std::string& arguments)
    {
        GError* error = nullptr;
        GVariant* body = g_variant_parse(nullptr, arguments.c_str(), nullptr, nullptr, &error);
        EXPECT_TRUE(body) << error->message;
        GVariant* reply = g_dbus_connection_call_sync(connection_, nullptr, "/app/stillora/VideoCreator",
                                                      "app.stillora.morStilloraVideoCreatorProtocol", method, body,
                                                      nullptr, G_DBUS_CALL_FLAGS_NONE, G_MAXINT, nullptr, &error);
        std::string result;
        if (reply) {
            char* printed = g_variant_print(reply, FALSE);
            result = printed;
            g_free(printed);
            g_variant_unref(reply);
        } else {
            char* name = g_dbus_error_get_remote_error(error);
            g_dbus_error_strip_remote_error(error);
            result = std::string(name ? name : "local") + ": " + error->message;
            g_free(name);
            g_error_free(error);
        }
        return result;
    }

private:
    GDBusConnection* connection_ = nullptr;
};

/// A request as GVariant text with some of its arguments replaced.
std::string request(std::initializer_list<std::pair<size_t, std::string>> changes)
{
    std::vector<std::string> arguments{"@a(sa{sv}) []", "@a(sa{sv}) []", "1.0",    "1.0",    "false", "1.0", "''",
                                       "int64 720",     "false",         "@ay []", "@ay []", "@ay []"};
    for (const auto& [index, value] : changes)
        arguments[index] = value;
    std::string joined;
    for (const auto& argument : arguments)
        joined += (joined.empty() ? "(" : ", ") + argument;
    return joined + ")";
}

constexpr const char* kEmptyReply = "([], [], false)";

} // namespace

TEST_F(DelegateTest, ConfiguresAConnectionWithBothInterfacesAndACreator)
{
    Client client(connect());
    const auto exported = connection(0)->exportedInterface();
    EXPECT_EQ(exported->name(), "app.stillora.morStilloraVideoCreatorProtocol");
    const auto names = [&](size_t index) {
        Entries result;
        const auto* classes = exported->classesForSelector(kCreateStillMotionVideoSelector, index, false);
        for (size_t i = 0; classes && i < classes->size(); ++i)
            result.push_back((*classes)[i].name);
        return result;
    };
    EXPECT_EQ(names(0), Entries({"NSArray", "MORPhoto"}));
    EXPECT_EQ(names(1), Entries({"NSArray", "MORSoundtrack"}));
    for (const size_t index : {9, 10, 11})
        EXPECT_EQ(names(index), Entries({"NSData"}));
    for (const size_t index : {2, 3, 4, 5, 6, 7, 8})
        EXPECT_EQ(names(index), Entries());
    for (const size_t index : {0, 1, 2})
        EXPECT_EQ(exported->classesForSelector(kCreateStillMotionVideoSelector, index, true), nullptr);
    EXPECT_EQ(connection(0)->remoteObjectInterface()->name(), "app.stillora.morStilloraXPCCreatorUpdateProtocol");
    ASSERT_TRUE(creator(0));
    EXPECT_EQ(creator(0)->xpcConnection(), connection(0));
}

TEST_F(DelegateTest, MakesAMovieOverTheConnection)
{
    Client client(connect());
    const auto outcome = get(client.create(folder_, 6, 2));
    ASSERT_TRUE(outcome.movie) << (outcome.error ? outcome.error->localizedDescription : "no error");
    EXPECT_FALSE(outcome.error);
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_EQ(fakes_.journal.entries(),
              Entries({"assertion VideoCreationIOPMAssertionSleepNotice", "soundtrack 2 50. 5.", "video 6 720 10. none",
                       "combine video.mov soundtrack.m4a none"}));
}

TEST_F(DelegateTest, CarriesEachArgumentOverTheConnection)
{
    const TemporaryFolder temporary;
    const auto document = platform::NSURL::fileURLWithPath(folder_.makeFile("Rome.stillora"));
    Client client(connect());
    std::promise<void> answered;
    client.proxy().createStillMotionVideoWithPhotos(
        photos(7), soundtracks(3), 70, 30.5, true, 2.5, "avc1", 1080, true, document.bookmarkData().value(),
        folder_.bookmark(), temporary.bookmark(),
        [&](std::optional<NSData>, std::optional<NSError>, bool) { answered.set_value(); });
    ASSERT_EQ(answered.get_future().wait_for(kDeadline), std::future_status::ready);
    EXPECT_EQ(fakes_.journal.entries(),
              Entries({"assertion VideoCreationIOPMAssertionSleepNotice", "soundtrack 3 70. 30.5 loop",
                       "video 7 1080 2.5 avc1 reduce", "combine video.mov soundtrack.m4a Rome.stillora"}));
    EXPECT_EQ(creator(0)->destinationURL(), folder_.url());
    EXPECT_EQ(creator(0)->temporaryURL(), temporary.url());
}

TEST_F(DelegateTest, TellsAClientWhoseServiceHasGone)
{
    const auto begun = holdVideosUntilCancelled();
    Client client(connect());
    auto outcome = client.create(folder_);
    ASSERT_TRUE(begun->try_acquire_for(kDeadline));
    connection(0)->invalidate();
    const auto answered = get(std::move(outcome));
    EXPECT_FALSE(answered.movie);
    EXPECT_TRUE(answered.error);
    EXPECT_FALSE(answered.isCancelled);
    waitForJobs();
}

TEST_F(DelegateTest, CarriesAStagesErrorOverTheConnection)
{
    fakes_.videoFailure = NSError{"AVFoundationErrorDomain", -11833, "no encoder for \"none\""};
    Client client(connect());
    const auto outcome = get(client.create(folder_));
    EXPECT_FALSE(outcome.movie);
    EXPECT_EQ(outcome.error, fakes_.videoFailure);
    EXPECT_FALSE(outcome.isCancelled);
}

TEST_F(DelegateTest, AnswersAnEmptyPhotoListAtOnce)
{
    PlainClient client(connect());
    EXPECT_EQ(client.call("createStillMotionVideoWithPhotos", request({})), kEmptyReply);
    EXPECT_EQ(fakes_.journal.entries(), Entries());
}

TEST_F(DelegateTest, CancelsAJobThatRunsAndAnswersItOnce)
{
    const auto begun = holdVideosUntilCancelled();
    Client client(connect());
    auto outcome = client.create(folder_);
    ASSERT_TRUE(begun->try_acquire_for(kDeadline));
    client.proxy().cancelCreation();
    const auto answered = get(std::move(outcome));
    EXPECT_TRUE(answered.isCancelled);
    EXPECT_FALSE(answered.movie);
    EXPECT_TRUE(get(client.create(folder_)).isCancelled);
    waitForJobs();
}

TEST_F(DelegateTest, GivesASecondConnectionItsOwnCreatorSoThatACancelTouchesNoOtherJob)
{
    std::atomic<int> inside{0};
    std::atomic<bool> open{false};
    fakes_.duringVideo = [&](StageContext& context) {
        ++inside;
        while (!context.isCancelled() && !open)
            std::this_thread::yield();
    };
    Client one(connect());
    auto first = one.create(folder_);
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (inside < 1 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    Client other(connect());
    auto second = other.create(folder_);
    while (inside < 2 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_NE(creator(0), creator(1));
    one.proxy().cancelCreation();
    EXPECT_TRUE(get(std::move(first)).isCancelled);
    EXPECT_EQ(second.wait_for(0s), std::future_status::timeout);
    open = true;
    const auto outcome = get(std::move(second));
    EXPECT_FALSE(outcome.isCancelled);
    EXPECT_TRUE(outcome.movie);
    waitForJobs();
}

TEST_F(DelegateTest, RefusesWhatIsNotAllowedForEachRestrictedArgument)
{
    PlainClient client(connect());
    const struct {
        const char* name;
        size_t index;
        const char* value;
        const char* reason;
    } rows[] = {
        {"a soundtrack among the photos", 0, "[('MORSoundtrack', @a{sv} {})]",
         "argument 0 (photos), position 0: class \"MORSoundtrack\" is not allowed (allowed: MORPhoto)"},
        {"a foreign class among the photos", 0, "[('NSTask', {'launchPath': <'/bin/sh'>})]",
         "argument 0 (photos), position 0: class \"NSTask\" is not allowed (allowed: MORPhoto)"},
        {"photos that are data", 0, "@ay []", "argument 0 (photos): signature \"ay\" where \"a(sa{sv})\" is expected"},
        {"a photo among the soundtracks", 1, "[('MORPhoto', @a{sv} {})]",
         "argument 1 (soundtracks), position 0: class \"MORPhoto\" is not allowed (allowed: MORSoundtrack)"},
        {"a document that is text", 9, "'/home/user/a.stillora'",
         "argument 9 (documentURL): signature \"s\" where \"ay\" is expected"},
        {"a save folder that is a list", 10, "@a(sa{sv}) []",
         "argument 10 (saveURL): signature \"a(sa{sv})\" where \"ay\" is expected"},
        {"a temporary folder that is a number", 11, "int64 1",
         "argument 11 (temporaryURL): signature \"x\" where \"ay\" is expected"},
        {"a quality of 32 bits", 7, "720", "argument 7 (quality): signature \"i\" where \"x\" is expected"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(client.call("createStillMotionVideoWithPhotos", request({{row.index, row.value}})),
                  std::string("org.freedesktop.DBus.Error.InvalidArgs: createStillMotionVideoWithPhotos: ") +
                      row.reason)
            << row.name;
        // The connection stays usable.
        EXPECT_EQ(client.call("createStillMotionVideoWithPhotos", request({})), kEmptyReply) << row.name;
    }
    EXPECT_EQ(fakes_.journal.entries(), Entries());
}

TEST_F(DelegateTest, RefusesAPhotoOfWrongValues)
{
    PlainClient client(connect());
    const auto answer =
        client.call("createStillMotionVideoWithPhotos", request({{0, "[('MORPhoto', {'title': <int64 1>})]"}}));
    EXPECT_TRUE(answer.starts_with("org.freedesktop.DBus.Error.InvalidArgs: createStillMotionVideoWithPhotos: argument "
                                   "0 (photos), position 0: "))
        << answer;
    EXPECT_EQ(fakes_.journal.entries(), Entries());
}

TEST_F(DelegateTest, AnswersCancelCreationWithAnEmptyReply)
{
    PlainClient client(connect());
    EXPECT_EQ(client.call("cancelCreation", "()"), "()");
    EXPECT_EQ(client.call("createStillMotionVideoWithPhotos", request({})), "([], [], true)");
}

TEST_F(DelegateTest, CancelsTheJobOfAClientThatGoesAwayAndLetsGoOfItsCreator)
{
    std::binary_semaphore begun(0);
    std::binary_semaphore ended(0);
    fakes_.duringVideo = [&](StageContext& context) {
        begun.release();
        while (!context.isCancelled())
            std::this_thread::yield();
        ended.release();
    };
    std::weak_ptr<morStilloraVideoCreator> watch;
    {
        Client client(connect());
        (void)client.create(folder_);
        ASSERT_TRUE(begun.try_acquire_for(kDeadline));
        watch = creator(0);
    }
    ASSERT_TRUE(ended.try_acquire_for(kDeadline));
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!watch.expired() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(watch.expired());
    EXPECT_EQ(morStilloraVideoCreator::unansweredRequests(), 0U);
}

TEST_F(DelegateTest, DeliversTheRunningUpdateAndTheLastOfTenQueuedInQuickSuccession)
{
    Client client(connect());
    const auto service = creator(0);
    std::binary_semaphore begun(0);
    std::binary_semaphore open(0);
    for (int i = 0; i <= 10; ++i) {
        service->queueProgress([&, i]() -> std::optional<ProgressUpdate> {
            if (i == 0) {
                begun.release();
                open.acquire();
            }
            return ProgressUpdate{.title = "VideoCreationTitleCalculatingVideoSize",
                                  .image = nullptr,
                                  .determinate = true,
                                  .progress = static_cast<double>(i),
                                  .total = 10};
        });
        if (i == 0) {
            ASSERT_TRUE(begun.try_acquire_for(kDeadline));
        }
    }
    open.release();
    service->fbQ().waitUntilAllOperationsAreFinished();
    ASSERT_TRUE(client.receiver->journal.waitFor(2));
    // What came after the last would be on its way before this.
    EXPECT_TRUE(get(client.create(folder_, 0)).movie == std::nullopt);
    EXPECT_EQ(client.receiver->journal.entries(),
              Entries({"VideoCreationTitleCalculatingVideoSize determinate 0/10 -2",
                       "VideoCreationTitleCalculatingVideoSize determinate 10/10 -2"}));
}

TEST_F(DelegateTest, SendsTitlesAsTheirKeysNeverTranslated)
{
    Client client(connect());
    const auto service = creator(0);
    const Entries titles{"VideoCreationTitleCalculatingSoundtrackDuration",
                         "VideoCreationTitleConvertingAndTrimmingAssets",
                         "VideoCreationTitleCalculatingVideoSize",
                         "VideoCreationTitleRenderingVideo",
                         "VideoCreationTitleWritingVideo",
                         "VideoCreationCompositingVideoAndSoundtrack",
                         "VideoCreationWritingFinalVideo"};
    Entries expected;
    for (const auto& title : titles) {
        expected.push_back(title + " 0/0 -2");
        service->queueProgress([title] { return ProgressUpdate{.title = title, .image = nullptr}; });
        service->fbQ().waitUntilAllOperationsAreFinished();
    }
    ASSERT_TRUE(client.receiver->journal.waitFor(titles.size()));
    EXPECT_EQ(client.receiver->journal.entries(), expected);
}

TEST_F(DelegateTest, SendsTheSixValuesOfAnUpdateWithItsPicture)
{
    Client client(connect());
    auto pixels = std::make_shared<platform::CGImage>();
    *pixels = {.width = 2, .height = 2, .bytesPerRow = 8, .hasAlpha = false, .pixels = std::vector<uint8_t>(16, 128)};
    const auto image = std::make_shared<platform::NSImage>(pixels, platform::CGSize{});
    creator(0)->queueProgress([image] {
        return ProgressUpdate{.title = "VideoCreationTitleRenderingVideo",
                              .image = image,
                              .determinate = true,
                              .progress = 3,
                              .total = 40,
                              .timeInterval = 12.5};
    });
    ASSERT_TRUE(client.receiver->journal.waitFor(1));
    EXPECT_EQ(client.receiver->journal.entries(),
              Entries({"VideoCreationTitleRenderingVideo image determinate 3/40 12.5"}));
}

TEST_F(DelegateTest, SendsNoFurtherRenderingUpdateOnceCancelledThoughOthersMayStillArrive)
{
    Client client(connect());
    const auto service = creator(0);
    std::binary_semaphore begun(0);
    std::binary_semaphore open(0);
    service->fbQ().addOperationWithBlock([&] {
        begun.release();
        open.acquire();
    });
    ASSERT_TRUE(begun.try_acquire_for(kDeadline));
    // As the rendering stage asks when its update's turn has come.
    service->queueProgress([&]() -> std::optional<ProgressUpdate> {
        if (service->isCancelled())
            return std::nullopt;
        return ProgressUpdate{.title = "VideoCreationTitleRenderingVideo", .image = nullptr};
    });
    client.proxy().cancelCreation();
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!service->isCancelled() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    open.release();
    service->fbQ().waitUntilAllOperationsAreFinished();
    service->queueProgress([] { return ProgressUpdate{.title = "VideoCreationTitleWritingVideo", .image = nullptr}; });
    ASSERT_TRUE(client.receiver->journal.waitFor(1));
    EXPECT_EQ(client.receiver->journal.entries(), Entries({"VideoCreationTitleWritingVideo 0/0 -2"}));
}

TEST_F(DelegateTest, DropsUpdatesToAClientThatHasGone)
{
    std::shared_ptr<morStilloraVideoCreator> service;
    {
        Client client(connect());
        service = creator(0);
    }
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (connection(0)->isValid() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    service->queueProgress([] { return ProgressUpdate{.title = "VideoCreationTitleWritingVideo", .image = nullptr}; });
    service->fbQ().waitUntilAllOperationsAreFinished();
    EXPECT_EQ(log_.lines(), Entries());
}
