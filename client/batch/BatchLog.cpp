#include "client/batch/BatchLog.h"

#include "client/batch/Worker.h"

#include <chrono>
#include <ctime>

#include <fmt/format.h>

namespace stillora {

BatchLog::BatchLog(const std::filesystem::path& folder)
    : file_(
          open((folder / (Worker::machineName() + ".jsonl")).c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666))
{}

void BatchLog::write(const JSONWriter& event) const
{
    JSONWriter line;
    line.add("time", now()).add("machine", Worker::machineName()).add("pid", getpid());
    const std::string text = line.addAll(event).text() + "\n";
    // At once, so that lines of several processes do not mix. What cannot be logged must not keep a movie from being
    // made.
    if (::write(file_.get(), text.data(), text.size()) < 0)
        return;
}

std::string BatchLog::now()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm parts = {};
    gmtime_r(&seconds, &parts);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z", parts.tm_year + 1900, parts.tm_mon + 1,
                       parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec, milliseconds);
}

} // namespace stillora
