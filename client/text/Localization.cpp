#include <stillora/Localization.h>

#include "client/text/LocalizedText.h"
#include "platform/foundation/InstalledFiles.h"
#include "platform/foundation/NSBundle.h"
#include "platform/foundation/NSString.h"
#include "util/MORPalvineCommons.h"
#include "util/UserSettings.h"

#include <clocale>
#include <cstdlib>
#include <string_view>

namespace stillora {

namespace {

std::string filledIn(const std::string& text, std::string_view english, fmt::format_args values)
{
    try {
        return fmt::vformat(text, values);
    } catch (const fmt::format_error&) {
        return fmt::vformat(english, values);
    }
}

/// The locale's name, as the environment tells it for characters.
std::string_view localeOfCharacters()
{
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const char* name = getenv(variable); name && *name)
            return name;
    return {};
}

/// "de_DE.UTF-8", "de_DE.utf8".
bool namesUTF8(std::string_view locale)
{
    const std::string charset = platform::lowercaseASCII(std::string(locale.substr(locale.find('.') + 1)));
    return charset.starts_with("utf-8") || charset.starts_with("utf8");
}

} // namespace

std::string localized(std::string_view text)
{
    return platform::NSBundle::mainBundle().localizedStringForKey(text);
}

std::string localizedFormat(fmt::string_view text, fmt::format_args values)
{
    const std::string_view english(text.data(), text.size());
    return filledIn(localized(english), english, values);
}

std::string localizedFormatForCount(uint64_t count, fmt::string_view one, fmt::string_view many,
                                    fmt::format_args values)
{
    const std::string_view oneText(one.data(), one.size());
    const std::string_view manyText(many.data(), many.size());
    return filledIn(platform::NSBundle::mainBundle().localizedStringForCount(count, oneText, manyText),
                    count == 1 ? oneText : manyText, values);
}

std::string lengthInWords(Seconds length)
{
    return MORPalvineCommons::soundtrackDurationStringForTimeInterval(length.count());
}

void setUpLocalization()
{
    // Not LC_NUMERIC: numbers of options and of JSON have a point in every language.
    // A locale that is not installed tells its charset all the same.
    if (!std::setlocale(LC_CTYPE, "") && namesUTF8(localeOfCharacters()))
        std::setlocale(LC_CTYPE, "C.UTF-8");
    std::setlocale(LC_MESSAGES, "");
    UserSettings::applyLanguage();
    platform::NSBundle::mainBundle().setLocalizations(
        platform::installedPlace(platform::InstalledFolder::Shared, "locale"), "stillora");
}

} // namespace stillora
