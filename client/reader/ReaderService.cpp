#include "client/reader/ReaderService.h"

#include "client/reader/Answers.h"
#include "client/reader/Coding.h"
#include "client/reader/ReaderMessage.h"
#include "platform/bytes/GivenFile.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSLog.h"

#include <array>
#include <csignal>
#include <ctime>
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

/// Of the thread that answers a question, for the signal that its time is up.
thread_local int channelOfThread = -1;

/// Says that it was this question, and ends the program: what a decoder holds at this moment cannot be undone.
void timeIsUp(int)
{
    const ReaderMessage message;
    sendPart(channelOfThread, std::as_bytes(std::span(&message, 1)));
    _exit(0);
}

/// While it lives, the calling thread gets so much of the processor's time.
class WorkLimit final {
public:
    explicit WorkLimit(uint32_t milliseconds)
    {
        if (milliseconds == 0)
            return;
        sigevent event = {};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGXCPU;
        event._sigev_un._tid = gettid();
        if (timer_create(CLOCK_THREAD_CPUTIME_ID, &event, &timer_) != 0)
            return;
        isSet_ = true;
        itimerspec time = {};
        time.it_value.tv_sec = milliseconds / 1000;
        time.it_value.tv_nsec = static_cast<long>(milliseconds % 1000) * 1'000'000;
        timer_settime(timer_, 0, &time, nullptr);
    }
    ~WorkLimit()
    {
        if (isSet_)
            timer_delete(timer_);
    }
    WorkLimit(const WorkLimit&) = delete;
    WorkLimit& operator=(const WorkLimit&) = delete;

private:
    timer_t timer_{};
    bool isSet_ = false;
};

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
        const WorkLimit limit(message.milliseconds);
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
    channelOfThread = channel.get();
    while (answerNext(channel.get())) {
    }
}

} // namespace

bool ReaderService::run()
{
    std::signal(SIGXCPU, timeIsUp);
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
