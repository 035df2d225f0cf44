#pragma once

#include "client/text/JSONWriter.h"
#include "platform/foundation/FileDescriptor.h"

#include <filesystem>
#include <string>

namespace stillora {

/// What happened on this machine, a line of JSON for each event, in one file for all its processes. Any thread.
class BatchLog final {
public:
    /// @param folder  of the logs
    explicit BatchLog(const std::filesystem::path& folder);

    /// Adds the time, the machine and the process.
    void write(const JSONWriter& event) const;

    /// ISO 8601, in UTC.
    static std::string now();

private:
    const platform::FileDescriptor file_;
};

} // namespace stillora
