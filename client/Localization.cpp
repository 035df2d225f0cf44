#include <stillora/Localization.h>

#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/NSBundle.h"
#include "util/MORPalvineCommons.h"

#include <clocale>

namespace stillora {

std::string localized(std::string_view text)
{
    return platform::NSBundle::mainBundle().localizedStringForKey(text);
}

std::string lengthInWords(Seconds length)
{
    return MORPalvineCommons::soundtrackDurationStringForTimeInterval(length.count());
}

void setUpLocalization()
{
    // Not LC_NUMERIC: numbers of options and of JSON have a point in every language.
    std::setlocale(LC_CTYPE, "");
    std::setlocale(LC_MESSAGES, "");
    platform::NSBundle::mainBundle().setLocalizations(
        platform::installedPlace(platform::InstalledFolder::Shared, "locale"), "stillora");
}

} // namespace stillora
