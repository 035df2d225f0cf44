#pragma once

#include <stillora/Error.h>

#include "client/batch/manifest/ManifestReader.h"
#include "platform/foundation/FileDescriptor.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// Where each line of a manifest begins and by which key its movie is found, in a file: a task finds its line, and a
/// look at a batch its movies, without reading the manifest. 24 bytes for a line. One thread.
class LineIndex final {
public:
    struct Entry {
        int64_t offset : 48 = 0;
        /// How many tasks may share in the movie, each with a piece.
        uint64_t turns : 16 = 1;
        /// All zeros for a line that is blank or bad.
        std::array<std::byte, 16> key{};

        bool hasMovie() const { return key != std::array<std::byte, 16>{}; }
        /// 32 hexadecimal digits.
        std::string keyText() const;
    };

    /// The key in its digits; all zeros for what is none.
    static std::array<std::byte, 16> keyOf(const std::string& text);

    /// An empty one, in a file that is open for reading and writing.
    LineIndex(platform::FileDescriptor file, FileStamp manifest);

    /// An index that was finished. Nothing for what is none, or was cut off.
    static std::optional<LineIndex> open(const std::filesystem::path& file);

    /// @param key    as of a movie; empty for a line without one
    /// @param turns  how many tasks may share in it
    void add(int64_t offset, const std::string& key, size_t turns = 1);
    /// Writes what was added; nothing is added afterwards.
    /// @return 0, or what kept it from being written
    int finish();

    /// Of the manifest that it is of.
    const FileStamp& manifest() const { return manifest_; }
    size_t lineCount() const { return lineCount_; }
    size_t movieCount() const { return movieCount_; }
    /// Of all lines together; a line without a movie has one.
    size_t turnCount() const { return turnCount_; }

    struct Lines {
        size_t first = 1;
        /// Less than the first where there are none.
        size_t last = 0;
    };
    /// The lines that one of several tasks makes, which have turns alike: of a movie of several turns, several tasks.
    /// @param task  counted from 1
    Lines share(size_t task, size_t tasks) const;

    /// @param line  counted from 1, not more than there are
    std::optional<Entry> entry(size_t line) const;
    /// Hands over all entries in their order, a piece at a time; false stops.
    void forEach(const std::function<bool(size_t line, const Entry&)>& take) const;

    /// Tells each line whose key an earlier one has. Takes a few megabytes, and reads the file once for each quarter of
    /// a million lines.
    void forEachDuplicate(const std::function<void(size_t line, size_t earlier)>& tell) const;

private:
    bool flush();

    platform::FileDescriptor file_;
    FileStamp manifest_;
    size_t lineCount_ = 0;
    size_t movieCount_ = 0;
    size_t turnCount_ = 0;
    int failure_ = 0;
    std::vector<Entry> unwritten_;
};

} // namespace stillora
