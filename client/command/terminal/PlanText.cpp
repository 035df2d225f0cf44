#include "client/command/terminal/PlanText.h"

#include "client/command/terminal/SoundSentence.h"
#include "client/text/LocalizedText.h"
#include "client/text/Text.h"

#include <algorithm>
#include <cmath>

#include <fmt/format.h>

namespace stillora {

namespace {

std::string reasonOfHeight(const MovieRequest& request, Size frame)
{
    if (static_cast<double>(request.quality) == frame.height)
        return localized("as asked for");
    if (request.quality != kAutomaticQuality)
        return localized("the largest that the smallest photo covers");
    const size_t count = request.photos.size();
    const size_t suited = count - photosSmallerThanFrame(frame, request.photos).size();
    return suited == count ? localized("suits every photo") : localized("suits {} of {} photos", suited, count);
}

/// No more figures than an estimate has.
Seconds roundedEstimate(Seconds time)
{
    constexpr double kTenths = 10;
    return Seconds(time.count() < kTenths ? std::max(std::round(time.count() * kTenths), 1.0) / kTenths
                                          : std::round(time.count()));
}

} // namespace

std::string planText(const MovieRequest& request, const std::optional<MovieForecast>& forecast)
{
    const size_t count = request.photos.size();
    const Size frame = frameSizeForQuality(request.quality, request.photos);
    std::string text =
        localizedCount(count, "{1}: {0} photo of {2}, {3}", "{1}: {0} photos of {2}, {3}", printable(request.title),
                       secondsText(request.plan.timePerPhoto), secondsText(request.plan.totalVideoDuration));
    text += "\n";
    text += localized("{:.0f} x {:.0f}: {}", frame.width, frame.height, reasonOfHeight(request, frame)) + "\n";
    const std::string sound = soundSentence(request.plan, request.sounds);
    text += (sound.empty() ? localized("sound: none") : printable(sound)) + "\n";
    if (forecast)
        text += localized("about {}, made in about {}", bytesText(forecast->bytes),
                          secondsText(roundedEstimate(forecast->time))) +
                "\n";
    for (size_t i = 0; i < count; ++i)
        text += fmt::format("{:>4}  {}\n", i + 1, printable(request.photos[i].path.native()));
    return text;
}

} // namespace stillora
