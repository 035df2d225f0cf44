#include "util/FeatureTests.h"

#include "platform/system/NSClassRegistry.h"

bool FeatureTests::isAtLeastMavericks()
{
    if (isAtLeastMavericks_ < 0)
        isAtLeastMavericks_ = registry_.hasClass("NSAppearance") && registry_.hasClass("NSStackView") &&
                              registry_.hasClass("NSURLComponents") &&
                              registry_.instancesRespondToSelector("NSProcessInfo", "endActivity:");
    return isAtLeastMavericks_ > 0;
}

bool FeatureTests::isAtLeastYosemite()
{
    return hasClass(isAtLeastYosemite_, "NSVisualEffectView");
}

bool FeatureTests::isAtLeastElCapitan()
{
    return hasClass(isAtLeastElCapitan_, "NSHapticFeedbackManager");
}

bool FeatureTests::supportsTouchBar()
{
    return hasClass(supportsTouchBar_, "NSTouchBar");
}

bool FeatureTests::hasClass(CachedAnswer& answer, const char* name) const
{
    if (answer < 0)
        answer = registry_.hasClass(name);
    return answer > 0;
}
