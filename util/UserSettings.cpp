#include "util/UserSettings.h"

#include "platform/files/NSUserDefaults.h"

#include <string_view>

namespace {

constexpr std::string_view kDrawsWatermarkKey = "drawsWatermark";

} // namespace

std::optional<bool> UserSettings::drawsWatermark()
{
    return platform::NSUserDefaults::standardUserDefaults().boolForKey(kDrawsWatermarkKey);
}
