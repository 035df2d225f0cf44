#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/FileDescriptor.h"

#include <cstdint>
#include <span>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

/// A regular file without a name that holds what is tried, for parsers that open their input themselves.
class FuzzedFile final {
public:
    explicit FuzzedFile(std::span<const uint8_t> bytes) : file_(memfd_create("fuzzed", MFD_CLOEXEC))
    {
        if (write(file_.get(), bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
            _exit(1);
    }

    std::string path() const { return "/proc/self/fd/" + std::to_string(file_.get()); }
    platform::NSURL url() const { return platform::NSURL::fileURLWithPath(path(), false); }

private:
    const platform::FileDescriptor file_;
};
