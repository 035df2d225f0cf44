#pragma once

#include "platform/bytes/ByteSource.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"
#include "platform/libav/MediaInput.h"
#include "platform/sound/SoundTimeline.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace platform {

/// What can be copied into an MPEG-4 file as it is.
enum class SoundCodec { Other, AAC, ALAC };

/// A sound track and how it is stored.
struct SoundFacts {
    NSURL url;
    /// The file that was looked at. What is known holds for this one alone.
    FileState file;
    /// The same, while somebody keeps it open.
    std::weak_ptr<const FileBytes> opened;
    int streamIndex = 0;
    int sampleRateHz = 0;
    /// As read: 1 or 2; more channels are mixed down to 2.
    int channels = 0;
    SoundTimeline timeline = {};

    /// @name For copying packets
    /// @{
    /// Other: not copyable. AAC is of the low complexity kind, with at most two channels.
    SoundCodec codec = SoundCodec::Other;
    /// The decoder's configuration.
    std::vector<uint8_t> configuration = {};
    /// Samples that a packet decodes to; every packet but the last has as many.
    int packetLength = 0;
    /// @}
};

/// Never changed once they are shared: any thread.
using SoundFactsPtr = std::shared_ptr<const SoundFacts>;

/// Looks at a file's sound track; files without an index are scanned.
/// @return null if the file cannot be read, has no sound or the sound is empty; `error` tells which
[[nodiscard]] SoundFactsPtr readSoundFacts(const NSURL& url, std::optional<int> streamIndex, NSError* error = nullptr);

/// What is known of a sound stream of an opened file. Reads from `input`, which was opened without edit lists; its
/// position is then undefined.
SoundFacts soundFactsOf(AVFormatContext& input, const AVStream& stream, const NSURL& url,
                        const std::optional<MovieBoxes>& boxes, TimelinePrecision precision);

/// Opens the file that was looked at, for reading from its start.
[[nodiscard]] InputPtr openSound(const SoundFacts& facts, NSError* error = nullptr);

/// Whether packets come with a header of their own (ADTS), which goes away when they are copied.
bool isADTS(const AVFormatContext& input);

/// Stores an error that says what the file lacks; false, for use in a `return`.
bool failNoSound(NSError* error, const NSURL& url, const std::string& why);

} // namespace platform
