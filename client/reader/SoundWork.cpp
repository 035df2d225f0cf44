#include "client/reader/SoundWork.h"

#include "platform/bytes/GivenFile.h"
#include "platform/files/NSURL.h"
#include "platform/sandbox/Sanitizers.h"

#include <cstdint>

namespace stillora {

namespace {

/// An MP3 of ten hours without an index, 576 MB, takes a second and a half; a slower machine gets ten times as long.
constexpr int64_t kUsualMilliseconds = 1900;
constexpr int64_t kBytesPerMillisecond = 30'000;
/// Sanitizers are slow.
constexpr int64_t kFactor = platform::kBuiltWithSanitizer ? 20 : 1;
constexpr int64_t kBytesPerBlock = 512;

} // namespace

std::chrono::milliseconds workForSound(const std::filesystem::path& file)
{
    struct stat status = {};
    const bool isKnown =
        platform::statForReading(platform::NSURL::fileURLWithPath(file.native(), false).path(), status);
    const int64_t bytes = isKnown ? status.st_blocks * kBytesPerBlock : 0;
    return std::chrono::milliseconds(kFactor * (kUsualMilliseconds + bytes / kBytesPerMillisecond));
}

} // namespace stillora
