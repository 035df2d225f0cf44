#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/Handle.h"
#include "platform/sound/SoundFacts.h"

#include <cstdint>
#include <cstdio>
#include <memory>
#include <span>
#include <vector>

namespace platform {

/// Writes one sound track's packets as an M4A file: media first, index last, exact to the sample by an edit list. Keeps
/// four bytes a packet in memory. One thread at a time.
class M4AFile final {
public:
    struct Format {
        SoundCodec codec = SoundCodec::AAC;
        int sampleRateHz = 0;
        int channels = 0;
        std::vector<uint8_t> configuration;
        int packetLength = 0;
    };

    /// Makes a new file; fails if there is one.
    [[nodiscard]] static std::unique_ptr<M4AFile> create(const NSURL& url, Format format, NSError* error = nullptr);
    /// An unfinished file is left as it is.
    ~M4AFile();

    [[nodiscard]] bool append(std::span<const uint8_t> packet, NSError* error = nullptr);

    /// Writes the index and closes the file.
    ///
    /// @param start   samples at the start that do not play: the encoder's delay and what was cut off
    /// @param length  samples that play after them
    [[nodiscard]] bool finish(int64_t start, int64_t length, NSError* error = nullptr);

private:
    M4AFile(NSURL url, Format format, Handle<std::FILE, std::fclose> file);
    [[nodiscard]] bool write(std::span<const uint8_t> bytes, NSError* error);

    const NSURL url_;
    const Format format_;
    Handle<std::FILE, std::fclose> file_;
    std::vector<uint32_t> sizes_;
    int64_t mediaBytes_ = 0;
};

} // namespace platform
