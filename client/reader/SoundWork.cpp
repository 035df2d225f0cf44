#include "client/reader/SoundWork.h"

#include "platform/bytes/GivenFile.h"
#include "platform/files/NSURL.h"
#include "platform/sandbox/Sanitizers.h"

#include <cstdint>

namespace stillora {

namespace {

/// An MP3 of ten hours without an index, 576 MB, takes a second and a half; a slower machine gets ten times as long.
constexpr int64_t kUsualMilliseconds = 1500;
constexpr int64_t kBytesPerMillisecond = 30'000;
/// Speech that is packed as tightly as any takes a millisecond for 750 bytes, and a slower machine gets as much more.
constexpr int64_t kPackedBytesPerMillisecond = 100;
/// Sanitizers are slow.
constexpr int64_t kFactor = platform::kBuiltWithSanitizer ? 20 : 1;
constexpr int64_t kBytesPerBlock = 512;

/// As many bytes as the disk holds of it.
int64_t heldBytes(const std::filesystem::path& file)
{
    struct stat status = {};
    const bool isKnown =
        platform::statForReading(platform::NSURL::fileURLWithPath(file.native(), false).path(), status);
    return isKnown ? status.st_blocks * kBytesPerBlock : 0;
}

} // namespace

std::chrono::milliseconds workForSound(const std::filesystem::path& file)
{
    return std::chrono::milliseconds(kFactor * (kUsualMilliseconds + heldBytes(file) / kBytesPerMillisecond));
}

std::chrono::milliseconds workForSamples(const std::filesystem::path& file)
{
    return std::chrono::milliseconds(kFactor * (kUsualMilliseconds + heldBytes(file) / kPackedBytesPerMillisecond));
}

} // namespace stillora
