#include "client/reader/ReaderService.h"

#include "client/reader/Answers.h"
#include "client/reader/Coding.h"
#include "client/reader/ReaderMessage.h"
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

bool receiveAll(int channel, std::span<std::byte> bytes, platform::FileDescriptor* file = nullptr)
{
    while (!bytes.empty()) {
        const ssize_t received = receivePart(channel, bytes, file);
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

/// The file that came with a question, under the path that the question has for it.
std::unique_ptr<platform::GivenFile> givenFile(const ReaderMessage& message, std::span<const std::byte> question,
                                               platform::FileDescriptor file)
{
    if (!message.hasFile)
        return nullptr;
    const std::string path =
        platform::NSURL::fileURLWithPath(fileOfQuestion(message.number, question).native(), false).path();
    return file ? std::make_unique<platform::GivenFile>(path, std::move(file))
                : std::make_unique<platform::GivenFile>(path, message.openErrno);
}

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
    platform::FileDescriptor file;
    if (!receiveAll(channel, std::as_writable_bytes(std::span(&message, 1)), &file) ||
        message.length > kLongestQuestion)
        return false;
    Bytes question(message.length);
    if (!receiveAll(channel, question))
        return false;
    std::optional<Bytes> answer;
    {
        const auto given = givenFile(message, question, std::move(file));
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

bool ReaderService::run()
{
    WorkLimit::setUp();
    std::signal(SIGXFSZ, SIG_IGN);
    platform::setLogSink([](const std::string& line) { Log::shared().add(line); });
    std::array<std::byte, 1> news{};
    for (bool isFirst = true;; isFirst = false) {
        platform::FileDescriptor channel;
        const ssize_t received = receivePart(ReaderMessage::kControlDescriptor, news, &channel);
        if (received <= 0)
            return received == 0 || !isFirst;
        if (channel)
            std::jthread(answerAll, std::move(channel)).detach();
    }
}

} // namespace stillora
