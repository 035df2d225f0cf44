#include "client/reader/ReaderService.h"

#include "client/questions/Coding.h"
#include "client/questions/ReaderMessage.h"
#include "client/reader/Answers.h"
#include "client/reader/WorkLimit.h"
#include "platform/bytes/GivenFile.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSLog.h"

#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

namespace stillora {

namespace {

/// A question is a few names and numbers, or a picture out of a sound file.
constexpr uint64_t kLongestQuestion = uint64_t{256} << 20;

bool receiveAll(int channel, std::span<std::byte> bytes, std::vector<platform::FileDescriptor>* files = nullptr)
{
    while (!bytes.empty()) {
        const ssize_t received = receivePart(channel, bytes, files);
        if (received <= 0)
            return false;
        bytes = bytes.subspan(static_cast<size_t>(received));
    }
    return true;
}

bool sendAll(int channel, std::span<const std::byte> bytes)
{
    while (!bytes.empty()) {
        const ssize_t sent = sendPart(channel, bytes);
        if (sent <= 0)
            return false;
        bytes = bytes.subspan(static_cast<size_t>(sent));
    }
    return true;
}

/// The files that came with a question, under the paths that the question has for them.
class GivenFiles final {
public:
    GivenFiles(const ReaderMessage& message, std::span<const std::byte> question,
               std::vector<platform::FileDescriptor> files)
    {
        const FilesOfQuestion paths = filesOfQuestion(message.number, question);
        auto next = files.begin();
        const auto take = [&] { return next == files.end() ? platform::FileDescriptor() : std::move(*next++); };
        if (message.hasFile && message.openErrno != 0)
            given_.push_back(std::make_unique<platform::GivenFile>(pathOf(paths.read), message.openErrno));
        else if (message.hasFile)
            give(paths.read, take());
        if (message.hasOutput)
            give(paths.written, take());
    }

private:
    static std::string pathOf(const std::filesystem::path& path)
    {
        return platform::NSURL::fileURLWithPath(path.native(), false).path();
    }
    void give(const std::filesystem::path& path, platform::FileDescriptor file)
    {
        if (file)
            given_.push_back(std::make_unique<platform::GivenFile>(pathOf(path), std::move(file)));
    }

    std::vector<std::unique_ptr<platform::GivenFile>> given_;
};

/// What is to be logged goes out with the next answer, whoever wrote it.
struct Log {
    platform::Lock lock;
    std::vector<std::string> lines GUARDED_BY(lock);

    static Log& shared()
    {
        // Never destroyed: lines may still be written while the process ends.
        static auto& log = *new Log;
        return log;
    }

    void add(const std::string& line)
    {
        const platform::LockGuard guard(lock);
        if (lines.size() < ReaderMessage::kMostLogLines)
            lines.push_back(line);
    }

    Bytes take()
    {
        const platform::LockGuard guard(lock);
        if (lines.empty())
            return {};
        Encoder encoder;
        encoder(std::exchange(lines, {}));
        return encoder.bytes();
    }
};

bool answerNext(int channel)
{
    ReaderMessage message;
    std::vector<platform::FileDescriptor> files;
    if (!receiveAll(channel, std::as_writable_bytes(std::span(&message, 1)), &files) ||
        message.length > kLongestQuestion)
        return false;
    Bytes question(message.length);
    if (!receiveAll(channel, question))
        return false;
    std::optional<Bytes> answer;
    {
        const GivenFiles given(message, question, std::move(files));
        const WorkLimit limit(std::chrono::milliseconds(message.milliseconds));
        answer = codedAnswer(message.number, question);
    }
    if (!answer)
        return false;
    const Bytes log = Log::shared().take();
    const ReaderMessage head{.number = 1, .logLength = log.size(), .length = answer->size()};
    return sendAll(channel, std::as_bytes(std::span(&head, 1))) && sendAll(channel, log) && sendAll(channel, *answer);
}

void answerAll(platform::FileDescriptor channel)
{
    WorkLimit::setChannelOfThread(channel.get());
    while (answerNext(channel.get())) {
    }
}

} // namespace

bool ReaderService::run(std::string_view version)
{
    // Whoever reads it may be gone.
    sendPart(ReaderMessage::kControlDescriptor, std::as_bytes(std::span(version)));
    WorkLimit::setUp();
    std::signal(SIGXFSZ, SIG_IGN);
    platform::setLogSink([](const std::string& line) { Log::shared().add(line); });
    std::array<std::byte, 1> news{};
    for (bool isFirst = true;; isFirst = false) {
        std::vector<platform::FileDescriptor> channels;
        const ssize_t received = receivePart(ReaderMessage::kControlDescriptor, news, &channels);
        if (received <= 0)
            return received == 0 || !isFirst;
        for (platform::FileDescriptor& channel : channels)
            std::jthread(answerAll, std::move(channel)).detach();
    }
}

} // namespace stillora
