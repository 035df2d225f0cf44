#include "util/UserSettings.h"

#include "platform/files/NSUserDefaults.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

TEST(UserSettings, TellOfTheWatermarkOnlyWhatTheUserHasChosen)
{
    const TemporaryFolder folder;
    const EnvironmentVariable config{"XDG_CONFIG_HOME", folder.path()};
    auto& defaults = platform::NSUserDefaults::standardUserDefaults();
    EXPECT_EQ(UserSettings::drawsWatermark(), std::nullopt);
    for (const bool draws : {false, true}) {
        ASSERT_TRUE(defaults.setObjectForKey(draws, "drawsWatermark"));
        EXPECT_EQ(UserSettings::drawsWatermark(), draws);
    }
    ASSERT_TRUE(defaults.setObjectForKey(std::string("no"), "drawsWatermark"));
    EXPECT_EQ(UserSettings::drawsWatermark(), std::nullopt) << "of another kind";
}
