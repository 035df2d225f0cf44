#include "window/state/SettingsModel.h"

#include "client/text/LocalizedText.h"

#include <algorithm>

namespace stillora::window {

std::vector<SizeChoice> sizeChoices()
{
    return {
        {kAutomaticQuality, localized("As Suits the Photos"), localized("The largest that most photos fill")},
        {2160, localized("4K"), localized("3840 × 2160 pixels, for large televisions")},
        {1440, localized("Sharp"), localized("2560 × 1440 pixels, for computer screens")},
        {1080, localized("Full HD"), localized("1920 × 1080 pixels, for televisions and computers")},
        {720, localized("HD"), localized("1280 × 720 pixels, for phones and tablets")},
        {480, localized("Small"), localized("854 × 480 pixels, to be sent by mail")},
        {360, localized("Very Small"), localized("640 × 360 pixels, to be sent over slow lines")},
        {240, localized("Tiny"), localized("426 × 240 pixels, for a first look")},
        {kSmallestQuality, localized("As the Smallest Photo"), localized("The largest that every photo fills")},
    };
}

std::vector<CodecChoice> codecChoices()
{
    return {
        {"avc1", localized("Everywhere"), localized("H.264: browsers, phones, televisions, players")},
        {"hvc1", localized("On Newer Devices"),
         localized("HEVC: a smaller file; most phones and players, some browsers")},
        {"jpeg", localized("In Players and Editors"), localized("Motion JPEG: a large file; no browser")},
        {"apcn", localized("For Editing"), localized("ProRes 422: a very large file for editing programs")},
        {"apch", localized("For Editing, Best"), localized("ProRes 422 HQ: a larger file of better pictures")},
        {"apcs", localized("For Editing, Lighter"), localized("ProRes 422 LT: a smaller file for editing programs")},
        {"apco", localized("For Editing, Rough"),
         localized("ProRes 422 Proxy: the smallest file for editing programs")},
        {"ap4h", localized("For Studios"), localized("ProRes 4444: all of the colours, a huge file")},
        {"ap4x", localized("For Studios, Best"), localized("ProRes 4444 XQ: the largest file of all")},
    };
}

std::size_t indexOfSize(const std::vector<SizeChoice>& choices, std::int64_t quality)
{
    const auto found = std::ranges::find(choices, quality, &SizeChoice::quality);
    return found == choices.end() ? 0 : static_cast<std::size_t>(found - choices.begin());
}

std::size_t indexOfCodec(const std::vector<CodecChoice>& choices, const std::string& codec)
{
    const auto found = std::ranges::find(choices, codec, &CodecChoice::codec);
    return found == choices.end() ? 0 : static_cast<std::size_t>(found - choices.begin());
}

} // namespace stillora::window
