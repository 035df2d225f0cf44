#include "util/UserSettings.h"

#include "platform/files/NSUserDefaults.h"
#include "platform/foundation/NSLocale.h"

#include <string>

std::optional<bool> UserSettings::drawsWatermark()
{
    return platform::NSUserDefaults::standardUserDefaults().boolForKey(kDrawsWatermarkKey);
}

void UserSettings::applyLanguage()
{
    const auto object = platform::NSUserDefaults::standardUserDefaults().objectForKey(kLanguageKey);
    const auto* const language = object ? object->as<std::string>() : nullptr;
    platform::setPreferredLanguage(language ? *language : "");
}
