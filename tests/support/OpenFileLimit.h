#pragma once

#include <sys/resource.h>

/// Lets the process have only so many files open for the time of a test.
class OpenFileLimit final {
public:
    explicit OpenFileLimit(rlim_t files)
    {
        getrlimit(RLIMIT_NOFILE, &old_);
        const rlimit limit{files, old_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    ~OpenFileLimit() { setrlimit(RLIMIT_NOFILE, &old_); }
    OpenFileLimit(const OpenFileLimit&) = delete;
    OpenFileLimit& operator=(const OpenFileLimit&) = delete;

private:
    rlimit old_{};
};
