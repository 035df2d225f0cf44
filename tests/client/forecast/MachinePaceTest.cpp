#include "client/forecast/MachinePace.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <cmath>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

class MachinePaceTest : public testing::Test {
protected:
    const TemporaryFolder folder_;
    const MachinePace pace_{folder_.path("a folder/pace")};
};

TEST_F(MachinePaceTest, IsUnknownBeforeTheFirstMovie)
{
    EXPECT_FALSE(pace_.known());
}

TEST_F(MachinePaceTest, IsWhatTheFirstMovieTook)
{
    pace_.learn(6, 2);
    EXPECT_NEAR(pace_.known().value_or(0), 3, 1e-4);
}

TEST_F(MachinePaceTest, GivesEachMovieAsMuchWeightAsAllBeforeIt)
{
    pace_.learn(8, 2);
    pace_.learn(2, 2);
    EXPECT_NEAR(pace_.known().value_or(0), 2, 1e-4) << "half as quick and twice as quick make one";
}

TEST_F(MachinePaceTest, LearnsNothingOfLittleWork)
{
    pace_.learn(6, 2);
    pace_.learn(9, 0.9);
    pace_.learn(0, 0);
    EXPECT_NEAR(pace_.known().value_or(0), 3, 1e-4);
}

TEST_F(MachinePaceTest, StaysWithinReason)
{
    pace_.learn(1e9, 1);
    EXPECT_EQ(pace_.known(), 16);
    const MachinePace quick(folder_.path("quick"));
    quick.learn(0, 5);
    EXPECT_NEAR(quick.known().value_or(0), 1.0 / 16, 1e-4);
}

TEST_F(MachinePaceTest, TakesNothingElseForAPace)
{
    for (const std::string text : {"", "fast", "0", "-2", "nan", "inf", "17", "0.01"}) {
        folder_.makeFile("a folder/pace", text);
        EXPECT_FALSE(pace_.known()) << text;
    }
    folder_.makeFile("a folder/pace", "0.5\n");
    EXPECT_EQ(pace_.known(), 0.5);
    folder_.makeFile("a folder/pace", "2" + std::string(1000, ' '));
    EXPECT_FALSE(pace_.known()) << "too long a text";
}

TEST_F(MachinePaceTest, LiesInTheFolderForWhatCanBeMadeAgain)
{
    const EnvironmentVariable cache("XDG_CACHE_HOME", folder_.path("cache"));
    MachinePace::ofUser().learn(4, 2);
    EXPECT_NEAR(MachinePace::ofUser().known().value_or(0), 2, 1e-4);
    EXPECT_TRUE(std::filesystem::is_directory(folder_.path("cache/stillora/pace")));
}

TEST_F(MachinePaceTest, DoesWithoutAPlaceForTheFile)
{
    const MachinePace nowhere(folder_.makeFile("file") + "/pace");
    nowhere.learn(4, 2);
    EXPECT_FALSE(nowhere.known());
}

} // namespace
