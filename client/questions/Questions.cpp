#include "client/questions/Questions.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <string_view>

namespace stillora {

namespace {

/// Of a picture, as the decoders refuse larger ones.
constexpr double kMostPixels = 1 << 28;
/// More than what any file plays: three hundred years.
constexpr Seconds kLongest{1e10};
/// Of a row of pixels, in bytes.
constexpr size_t kMostPadding = 4096;
constexpr int kHighestRateHz = 100'000'000;
/// More than the largest frame has uncoded.
constexpr double kMostFrameBytes = 1e9;
/// More than there are kinds of.
constexpr size_t kMostFaults = 100;

bool isPictureSize(const Size& size)
{
    const auto isEdge = [](double edge) { return edge >= 1 && edge <= kMostPixels && edge == std::floor(edge); };
    return isEdge(size.width) && isEdge(size.height) && size.width * size.height <= kMostPixels;
}

bool isDate(const DateTaken& date)
{
    using namespace std::chrono;
    const bool isInYears = date.clock >= local_days(year(0) / 1 / 1) && date.clock < local_days(year(10000) / 1 / 1);
    return isInYears && (!date.offset || (*date.offset > -hours(48) && *date.offset < hours(48)));
}

/// "mp3", "pcm_s16le": a word that is shown as it is.
bool isFormatName(std::string_view name)
{
    return name.size() < 64 && std::ranges::all_of(name, [](unsigned char c) {
               return c < 0x80 && (std::isalnum(c) || c == '_' || c == '-' || c == '.');
           });
}

bool isLength(Seconds length)
{
    return length >= Seconds(0) && length <= kLongest;
}

bool isColor(const Color& color)
{
    return std::ranges::all_of(std::initializer_list<double>{color.red, color.green, color.blue},
                               [](double part) { return part >= 0 && part <= 1; });
}

bool isPlausible(const FileFacts& facts)
{
    if (facts.taken && !isDate(*facts.taken))
        return false;
    if (facts.kind == FileFacts::Kind::Photo && !isPictureSize(facts.size))
        return false;
    if (facts.cover &&
        (!isFormatName(facts.cover->format) || (!facts.cover->format.empty() && !isPictureSize(facts.cover->size))))
        return false;
    const auto isEdge = [](double edge) { return edge >= 0 && edge <= kMostPixels; };
    return isEdge(facts.size.width) && isEdge(facts.size.height) && isFormatName(facts.pictureFormat) &&
           isFormatName(facts.soundFormat) && isLength(facts.length) &&
           (!facts.orientation || (*facts.orientation >= 1 && *facts.orientation <= 8)) &&
           (!facts.averageColor || isColor(*facts.averageColor)) && facts.sampleRateHz >= 0 &&
           facts.sampleRateHz <= kHighestRateHz && facts.channels >= 0;
}

} // namespace

bool isPlausible(const PhotoLook& look)
{
    constexpr size_t kDigestLength = 64;
    return look.kind != PhotoLook::Kind::Good || (isPictureSize(look.size) && (!look.taken || isDate(*look.taken)) &&
                                                  look.fingerprint.size() <= kDigestLength);
}

bool isPlausible(const SoundMeasure& measure)
{
    return !measure.fault.empty() ||
           (measure.length > Seconds(0) && isLength(measure.length) && measure.sampleRateHz > 0);
}

bool isPlausible(const std::optional<Color>& color)
{
    return !color || isColor(*color);
}

bool isPlausible(const Result<PictureAnswer>& picture)
{
    if (!picture)
        return true;
    const platform::CGImage& image = picture->image;
    return isPictureSize({static_cast<double>(image.width), static_cast<double>(image.height)}) &&
           image.bytesPerRow >= image.width * 4 && image.bytesPerRow <= image.width * 4 + kMostPadding &&
           image.pixels.size() == image.bytesPerRow * image.height && picture->faceCount <= kMostPixels;
}

bool isPlausible(const Result<Seconds>& time)
{
    return !time || isLength(*time);
}

bool isPlausible(const Result<MovieLook>& movie)
{
    return !movie || movie->faults.size() <= kMostFaults;
}

bool isPlausible(const Abilities& abilities)
{
    return std::ranges::all_of(abilities.missingEncoders, isFormatName) &&
           std::ranges::all_of(abilities.missingDecoders, isFormatName) &&
           abilities.lacksOfConfinement.size() <= kMostFaults;
}

bool isPlausible(double frameBytes)
{
    return frameBytes >= 0 && frameBytes <= kMostFrameBytes;
}

bool isPlausible(const Result<SampledFrame>& frame)
{
    return !frame || (isPlausible(frame->bytes) && isLength(frame->time) && isLength(frame->processorTime));
}

bool isPlausible(const Result<FileFacts>& facts)
{
    return !facts || isPlausible(*facts);
}

} // namespace stillora
