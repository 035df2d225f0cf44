// Built twice: as a build with STILLORA_WATERMARK=ON has it, and as one with OFF.
#include "client/service/WatermarkChoice.h"

#include "platform/files/NSUserDefaults.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <string>

#include <gtest/gtest.h>

namespace stillora {
namespace {

class WatermarkChoiceTest : public testing::Test {
protected:
    const TemporaryFolder folder_;
    const EnvironmentVariable config_{"XDG_CONFIG_HOME", folder_.path()};
};

TEST_F(WatermarkChoiceTest, IsTheBuildsWhereNobodySaysAnything)
{
    EXPECT_EQ(drawsWatermark(Watermark::Usual), USUALLY_DRAWS_WATERMARK);
}

TEST_F(WatermarkChoiceTest, IsTheUsersWhereOneWasMade)
{
    auto& defaults = platform::NSUserDefaults::standardUserDefaults();
    for (const bool draws : {false, true}) {
        ASSERT_TRUE(defaults.setObjectForKey(draws, "drawsWatermark"));
        EXPECT_EQ(drawsWatermark(Watermark::Usual), draws);
    }
}

TEST_F(WatermarkChoiceTest, IsWhatAMovieAsksForBeforeAllElse)
{
    auto& defaults = platform::NSUserDefaults::standardUserDefaults();
    for (const bool draws : {false, true}) {
        ASSERT_TRUE(defaults.setObjectForKey(draws, "drawsWatermark"));
        EXPECT_TRUE(drawsWatermark(Watermark::Drawn));
        EXPECT_FALSE(drawsWatermark(Watermark::Absent));
    }
}

} // namespace
} // namespace stillora
