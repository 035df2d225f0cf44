#include "client/sounds/SilentSound.h"

#include "platform/media/AVURLAsset.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

using namespace stillora;

namespace {

TEST(SilentSound, LastsAsLongAsAskedToTheSample)
{
    const TemporaryFolder folder;
    const std::string path = folder.path("silence.wav");
    ASSERT_TRUE(writeSilence(path, 12.345, 44100, 2));
    const platform::AVURLAsset asset(folder.url("silence.wav"));
    ASSERT_EQ(asset.tracks().size(), 1u);
    const platform::CMTime duration = asset.duration();
    EXPECT_EQ(duration.timescale, 44100);
    EXPECT_EQ(duration.value, 544415) << "12.345 seconds, rounded up to a sample";
}

TEST(SilentSound, HoldsNothingButZeros)
{
    const TemporaryFolder folder;
    ASSERT_TRUE(writeSilence(folder.path("silence.wav"), 0.01, 8000, 1));
    const std::string bytes = TemporaryFolder::contentsOf(folder.path("silence.wav"));
    ASSERT_EQ(bytes.size(), 44u + 160u);
    EXPECT_EQ(bytes.substr(44), std::string(160, '\0'));
    EXPECT_EQ(bytes.substr(0, 4), "RIFF");
}

TEST(SilentSound, TakesNoRoomForAnHour)
{
    const TemporaryFolder folder;
    ASSERT_TRUE(writeSilence(folder.path("silence.wav"), 3600, 48000, 2));
    struct stat status = {};
    ASSERT_EQ(stat(folder.path("silence.wav").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 44 + 3600LL * 48000 * 4);
    EXPECT_LT(status.st_blocks * 512, 1'000'000);
}

TEST(SilentSound, SaysWhereItCannotBeWritten)
{
    platform::NSError error;
    EXPECT_FALSE(writeSilence("/proc/silence.wav", 1, 44100, 1, &error));
    EXPECT_NE(error.localizedDescription.find("/proc/silence.wav"), std::string::npos);
}

} // namespace
