#include <stillora/Sounds.h>

#include "platform/sandbox/Sanitizers.h"
#include "tests/support/TemporaryFolder.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using testing::IsEmpty;
using testing::SizeIs;

class SoundCheck : public testing::Test {
protected:
    std::string sound(const std::string& name, int seconds) const
    {
        const std::string path = folder_.path(name);
        const std::string command =
            "ffmpeg -v error -f lavfi -i sine=duration=" + std::to_string(seconds) + " '" + path + "'";
        EXPECT_EQ(std::system(command.c_str()), 0);
        return path;
    }

    std::string reasonFor(const SoundArgument& argument) const
    {
        const CheckedSounds checked = checkSounds({argument});
        EXPECT_THAT(checked.good, IsEmpty());
        return checked.bad.size() == 1 && checked.bad[0].path == argument.path ? checked.bad[0].reason : "not refused";
    }

    const TemporaryFolder folder_;
};

TEST_F(SoundCheck, RefusesASoundOfMoreHoursThanAnybodyHears)
{
    // One sample of a byte for each second.
    const auto withHours = [this](uint32_t hours) {
        const auto number = [](uint32_t value) { return std::string(reinterpret_cast<const char*>(&value), 4); };
        const uint32_t length = hours * 3600;
        const std::string head = "RIFF" + number(length + 36) + "WAVEfmt " + number(16) + std::string("\1\0\1\0", 4) +
                                 number(1) + number(1) + std::string("\1\0\x8\0", 4) + "data" + number(length);
        const std::string path = folder_.makeFile(std::to_string(hours) + ".wav", head);
        std::filesystem::resize_file(path, head.size() + length);
        return path;
    };
    EXPECT_EQ(reasonFor({withHours(1001), {}, {}}), "lasts longer than 1000 hours");
    const CheckedSounds checked = checkSounds({{withHours(999), {}, {}}});
    ASSERT_THAT(checked.good, SizeIs(1)) << checked.bad.front().reason;
    EXPECT_EQ(checked.good[0].length, 999h);
}

TEST_F(SoundCheck, MeasuresWholeFilesAndParts)
{
    const std::string wav = sound("a.wav", 10);
    const CheckedSounds checked =
        checkSounds({{wav, {}, {}}, {wav, 2.5s, 4s}, {wav, 6s, {}}, {wav, {}, 3s}, {wav, 0s, 10.01s}});
    EXPECT_THAT(checked.bad, IsEmpty());
    ASSERT_THAT(checked.good, SizeIs(5));
    EXPECT_FALSE(checked.good[0].selection);
    EXPECT_EQ(checked.good[0].length, 10s);
    EXPECT_EQ(checked.good[0].sampleRateHz, 44100);
    EXPECT_EQ(checked.good[1].selection->start, 2.5s);
    EXPECT_EQ(checked.good[1].length, 1.5s);
    EXPECT_EQ(checked.good[2].selection->end, 10s);
    EXPECT_EQ(checked.good[2].length, 4s);
    EXPECT_EQ(checked.good[3].selection->start, 0s);
    EXPECT_EQ(checked.good[3].length, 3s);
    EXPECT_EQ(checked.good[4].length, 10s) << "no more than there is";
}

TEST_F(SoundCheck, RefusesPartsThatAreNotThere)
{
    const std::string wav = sound("a.wav", 10);
    EXPECT_EQ(reasonFor({wav, 10s, 12s}), "is only 10 s long, and cannot be played from 10 s");
    EXPECT_EQ(reasonFor({wav, 90s, {}}), "is only 10 s long, and cannot be played from 1 min 30 s");
    EXPECT_EQ(reasonFor({wav, 5s, 11s}), "is only 10 s long, and cannot be played up to 11 s");
}

TEST_F(SoundCheck, RefusesWhatIsNoSound)
{
    EXPECT_EQ(reasonFor({folder_.path("gone.mp3"), {}, {}}), "No such file or directory");
    EXPECT_EQ(reasonFor({folder_.makeFile("empty.mp3", ""), {}, {}}), "is empty");
    EXPECT_EQ(reasonFor({folder_.makeFile("text.mp3", "la la la"), {}, {}}), "is no sound file that can be read");
    EXPECT_EQ(reasonFor({folder_.makeFolder("folder.mp3"), {}, {}}), "is not a regular file");
    ASSERT_EQ(mkfifo(folder_.path("pipe.mp3").c_str(), 0600), 0);
    EXPECT_EQ(reasonFor({folder_.path("pipe.mp3"), {}, {}}), "is not a regular file");
}

TEST_F(SoundCheck, TakesNoLongerOverNothingThanItIsWorth)
{
    if (platform::kBuiltWithSanitizer)
        GTEST_SKIP() << "has twenty times as long there, all of which it takes";
    const std::string path = sound("sparse.caf", 1);
    {
        // One sample a second: packets are many and short.
        std::fstream file(path, std::ios::binary | std::ios::in | std::ios::out);
        file.seekp(20);
        file.write("\x3F\xF0\0\0\0\0\0\0", 8);
    }
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 36), 0);
    // And a bit more, for what it holds.
    EXPECT_THAT(reasonFor({path, {}, {}}),
                testing::MatchesRegex(".*more than 1[.]5[0-9]* s of the processor's time, and a file that.*"));
}

TEST_F(SoundCheck, RefusesMoviesWithoutSound)
{
    const std::string movie = folder_.path("silent.mp4");
    ASSERT_EQ(std::system(("ffmpeg -v error -f lavfi -i testsrc -frames:v 5 -pix_fmt yuv420p " + movie).c_str()), 0);
    EXPECT_EQ(reasonFor({movie, {}, {}}), "has no sound");
}

// Both compilers must be able to say that a selection can be made of nothing.
TEST(SoundFacts, SelectsNothingUntilItIsToldAPart)
{
    SoundFacts facts;
    EXPECT_FALSE(facts.selection);
    EXPECT_EQ(facts.selection.emplace(), (SoundFacts::Selection{0s, 0s}));
}

} // namespace
