#include "client/batch/PeakMemory.h"

#include <algorithm>
#include <fstream>
#include <string>

#include <fmt/format.h>

namespace stillora {

namespace {

/// The value of a line "NAME:  123 kB", in bytes.
int64_t valueOf(const std::string& file, const std::string& name)
{
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(name + ":"))
            return std::atoll(line.c_str() + name.size() + 1) * 1024;
    return 0;
}

} // namespace

int64_t peakBytesOfChildren()
{
    std::ifstream children("/proc/thread-self/children");
    int64_t most = 0;
    for (int pid = 0; children >> pid;)
        most = std::max(most, valueOf(fmt::format("/proc/{}/status", pid), "VmHWM"));
    return most;
}

int64_t availableBytes()
{
    return valueOf("/proc/meminfo", "MemAvailable");
}

} // namespace stillora
