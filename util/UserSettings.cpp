#include "util/UserSettings.h"

#include "platform/files/NSUserDefaults.h"

std::optional<bool> UserSettings::drawsWatermark()
{
    return platform::NSUserDefaults::standardUserDefaults().boolForKey(kDrawsWatermarkKey);
}
