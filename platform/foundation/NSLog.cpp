#include "platform/foundation/NSLog.h"

#include "platform/foundation/Lock.h"
#include "platform/foundation/NSString.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace platform {

namespace {

using Sink = std::function<void(const std::string&)>;

struct SinkHolder {
    Lock lock;
    std::shared_ptr<const Sink> sink GUARDED_BY(lock);
};

SinkHolder& sinkHolder()
{
    // Never destroyed: what still runs while the process ends may have something to say.
    static auto& holder = *new SinkHolder;
    return holder;
}

/// The text on one line, without the control characters by which a file name could play tricks on a terminal.
std::string escapedLine(std::string_view text)
{
    static constexpr char kHexDigits[] = "0123456789abcdef";
    std::string line;
    for (const char character : stringByReplacingInvalidUTF8(text)) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '\n') {
            line += "\\n";
        } else if (character == '\r') {
            line += "\\r";
        } else if ((byte < 0x20 && character != '\t') || byte == 0x7F) {
            line += "\\x";
            line += kHexDigits[byte >> 4];
            line += kHexDigits[byte & 0xF];
        } else {
            line += character;
        }
    }
    return line;
}

/// Whether standard error is the stream that the journal opened for this program: JOURNAL_STREAM is "device:inode".
bool standardErrorIsJournal()
{
    const char* stream = getenv("JOURNAL_STREAM");
    struct stat status {};
    if (!stream || fstat(STDERR_FILENO, &status) != 0)
        return false;
    return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino) == stream;
}

} // namespace

void NSLog(std::string_view text)
{
    std::string line = escapedLine(text);
    std::shared_ptr<const Sink> sink;
    {
        SinkHolder& holder = sinkHolder();
        const LockGuard guard(holder.lock);
        sink = holder.sink;
    }
    if (sink) {
        (*sink)(line);
        return;
    }
    // The journal takes a priority in front; 5 is "notice".
    if (standardErrorIsJournal())
        line.insert(0, "<5>");
    line += '\n';
    // One write, so that lines of several threads do not mix.
    const char* rest = line.data();
    size_t left = line.size();
    while (left > 0) {
        const ssize_t written = write(STDERR_FILENO, rest, left);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        rest += written;
        left -= static_cast<size_t>(written);
    }
}

void logFailure(std::string_view operation, std::string_view message)
{
    std::string line(operation);
    line += " - ";
    line += message;
    NSLog(line);
}

void setLogSink(std::function<void(const std::string& line)> sink)
{
    auto shared = sink ? std::make_shared<const Sink>(std::move(sink)) : nullptr;
    SinkHolder& holder = sinkHolder();
    const LockGuard guard(holder.lock);
    holder.sink = std::move(shared);
}

} // namespace platform
