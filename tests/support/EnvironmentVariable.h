#pragma once

#include <cstdlib>
#include <optional>
#include <string>

/// Sets or removes an environment variable for the time of a test.
class EnvironmentVariable final {
public:
    EnvironmentVariable(std::string name, const std::optional<std::string>& value) : name_(std::move(name))
    {
        if (const char* old = getenv(name_.c_str()))
            old_ = old;
        set(value);
    }
    ~EnvironmentVariable() { set(old_); }
    EnvironmentVariable(const EnvironmentVariable&) = delete;
    EnvironmentVariable& operator=(const EnvironmentVariable&) = delete;

private:
    void set(const std::optional<std::string>& value) const
    {
        if (value)
            setenv(name_.c_str(), value->c_str(), 1);
        else
            unsetenv(name_.c_str());
    }

    const std::string name_;
    std::optional<std::string> old_;
};
