#include "client/batch/PeakMemory.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string>

#include <fmt/format.h>

namespace stillora {

namespace {

int64_t bytesInFile(const std::string& file, std::string_view name)
{
    std::ifstream lines(file);
    return bytesIn(lines, name);
}

} // namespace

int64_t bytesIn(std::istream& lines, std::string_view name)
{
    constexpr int64_t kKilobyte = 1024;
    for (std::string line; std::getline(lines, line);) {
        if (!line.starts_with(name) || !std::string_view(line).substr(name.size()).starts_with(':'))
            continue;
        const size_t digits = std::min(line.find_first_not_of(" \t", name.size() + 1), line.size());
        int64_t kilobytes = 0;
        std::from_chars(line.data() + digits, line.data() + line.size(), kilobytes);
        return std::clamp<int64_t>(kilobytes, 0, INT64_MAX / kKilobyte) * kKilobyte;
    }
    return 0;
}

int64_t peakBytesOfChildren()
{
    std::ifstream children("/proc/thread-self/children");
    int64_t most = 0;
    for (int pid = 0; children >> pid;)
        most = std::max(most, bytesInFile(fmt::format("/proc/{}/status", pid), "VmHWM"));
    return most;
}

int64_t availableBytes()
{
    return bytesInFile("/proc/meminfo", "MemAvailable");
}

} // namespace stillora
