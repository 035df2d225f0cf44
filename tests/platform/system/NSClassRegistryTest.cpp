#include "platform/system/NSClassRegistry.h"

#include <gtest/gtest.h>

using platform::NSClassRegistry;

TEST(NSClassRegistry, KnowsItsOwnFolderAlone)
{
    const NSClassRegistry registry;
    EXPECT_TRUE(registry.hasClass("NSProcessInfo"));
    EXPECT_TRUE(registry.instancesRespondToSelector("NSProcessInfo", "disableAutomaticTermination:"));
    EXPECT_FALSE(registry.instancesRespondToSelector("NSProcessInfo", "endActivity:"));
    for (const char* name : {"NSTouchBar", "NSVisualEffectView", "nsprocessinfo", "NSProcessInf", ""})
        EXPECT_FALSE(registry.hasClass(name)) << name;
}

TEST(NSClassRegistry, AddsClassesAndOperations)
{
    NSClassRegistry registry;
    registry.registerClass("NSTouchBar");
    registry.registerClass("NSProcessInfo", {"endActivity:"});
    EXPECT_TRUE(registry.hasClass("NSTouchBar"));
    EXPECT_FALSE(registry.instancesRespondToSelector("NSTouchBar", "endActivity:"));
    EXPECT_TRUE(registry.instancesRespondToSelector("NSProcessInfo", "endActivity:"));
    EXPECT_TRUE(registry.instancesRespondToSelector("NSProcessInfo", "processName")) << "what was there before stays";
}
