#pragma once

#include "platform/foundation/FileDescriptor.h"

#include <string>

#include <sys/stat.h>

namespace platform {

/// A file that another process has opened for this one, which may not open it itself. While it lives, whoever reads the
/// path in this process, or makes a file there, uses that file. Of several with one path the newest counts. Any thread.
class GivenFile final {
public:
    /// @param path  absolute, as readers name it
    /// @param file  opened for reading; where a file is to be made also for writing, and empty
    GivenFile(std::string path, FileDescriptor file);
    /// A file that could not be opened, which fails in the same way here.
    GivenFile(std::string path, int openErrno);
    ~GivenFile();
    GivenFile(const GivenFile&) = delete;
    GivenFile& operator=(const GivenFile&) = delete;

private:
    void enter(int openErrno);

    const std::string path_;
    const FileDescriptor file_;
};

/// Opens a file for reading, and waits for nothing. One that was given is not opened anew: both then have one offset,
/// so that it is read by places alone.
/// @return none on failure, which `errno` tells
[[nodiscard]] FileDescriptor openForReading(const std::string& path);

/// Makes a new file to be written and read, with the rights of any file. One that was given is taken as it is.
/// @return none on failure, or where there is a file already, which `errno` tells
[[nodiscard]] FileDescriptor makeForWriting(const std::string& path);

/// As stat(2), of the file that `openForReading` would open.
/// @return false on failure, which `errno` tells
[[nodiscard]] bool statForReading(const std::string& path, struct stat& status);

} // namespace platform
