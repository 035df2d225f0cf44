#include "client/reader/PhotoWork.h"

#include "platform/bytes/GivenFile.h"
#include "platform/files/NSURL.h"
#include "platform/sandbox/Sanitizers.h"

namespace stillora {

namespace {

// A photo of 24 megapixels and 5 MB gets 7 s: machines differ, and formats.
constexpr double kUsualMilliseconds = 1200;
constexpr double kBytesPerMillisecond = 4'000;
constexpr double kPixelsPerMillisecond = 5'000;
/// Sanitizers are slow.
constexpr double kFactor = platform::kBuiltWithSanitizer ? 20 : 1;

int64_t lengthOf(const std::filesystem::path& file)
{
    struct stat status = {};
    const bool isKnown =
        platform::statForReading(platform::NSURL::fileURLWithPath(file.native(), false).path(), status);
    return isKnown ? status.st_size : 0;
}

} // namespace

std::chrono::milliseconds workForPhoto(int64_t bytes, double pixels)
{
    const double milliseconds =
        kUsualMilliseconds + static_cast<double>(bytes) / kBytesPerMillisecond + pixels / kPixelsPerMillisecond;
    return std::chrono::milliseconds(static_cast<int64_t>(kFactor * milliseconds));
}

PhotoWork::PhotoWork(const std::filesystem::path& file) : bytes_(lengthOf(file))
{
    limit_.emplace(workForPhoto(bytes_, 0));
}

void PhotoWork::beginPixels(double pixels)
{
    limit_.emplace(workForPhoto(bytes_, pixels));
}

} // namespace stillora
