#include <stillora/Waveform.h>

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"

#include <algorithm>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;
using namespace testsound;
using testing::ElementsAre;

class Waveform : public testing::Test {
protected:
    SoundFacts sound(double seconds) const
    {
        const std::string path = folder_.path("a.wav");
        const auto frames = static_cast<size_t>(seconds * 8000);
        writeWav(path, makeSound(8000, 1, frames, [](size_t frame, int) { return frame % 20 < 10 ? 0.5 : -0.5; }));
        return {path, std::nullopt, Seconds(seconds), 8000};
    }

    static std::optional<ErrorCode> codeOf(const auto& result)
    {
        return result ? std::nullopt : std::optional(result.error().code);
    }

    const TemporaryFolder folder_;
    const WorkProgress stop_ = [](uint64_t) { return false; };
};

TEST_F(Waveform, IsAPNGFile)
{
    const auto picture = drawWaveform(sound(1), {.width = 40, .height = 20});
    ASSERT_TRUE(picture) << picture.error().message;
    ASSERT_GT(picture->size(), 8U);
    EXPECT_EQ(std::to_integer<char>((*picture)[1]), 'P');
}

TEST_F(Waveform, IsAlsoGivenAsLevels)
{
    const std::string path = folder_.path("steps.wav");
    // Ever louder: parts that are equally loud would share one place.
    writeWav(path, makeSound(8000, 1, 24000, [](size_t frame, int) { return static_cast<double>(frame) / 24000; }));
    const auto levels = waveformLevels({path, std::nullopt, 3s, 8000}, 30);
    ASSERT_TRUE(levels) << levels.error().message;
    ASSERT_EQ(levels->size(), 30U);
    EXPECT_LT((*levels)[0], 0.05);
    EXPECT_GT((*levels)[5], 0.1);
    EXPECT_LT((*levels)[5], (*levels)[14]);
    EXPECT_LT((*levels)[14], (*levels)[24]);
    EXPECT_GT((*levels)[24], 0.5);
    EXPECT_LE(*std::ranges::max_element(*levels), 1);
    EXPECT_EQ(codeOf(waveformLevels(sound(1), 0)), ErrorCode::OutOfRange);
}

TEST_F(Waveform, IsRefusedWhereNobodyCouldDrawIt)
{
    EXPECT_EQ(codeOf(drawWaveform(sound(1), {.width = 0, .height = 20})), ErrorCode::OutOfRange);
    EXPECT_EQ(codeOf(drawWaveform(sound(1), {.width = 20, .height = 16385})), ErrorCode::OutOfRange);
    const auto gone = drawWaveform({folder_.path("gone.wav"), std::nullopt, 1s, 8000});
    ASSERT_FALSE(gone);
    EXPECT_EQ(gone.error().file, folder_.path("gone.wav"));
    EXPECT_THAT(gone.error().message, testing::HasSubstr("gone.wav"));
}

TEST_F(Waveform, StopsWhenItIsAskedTo)
{
    EXPECT_EQ(codeOf(drawWaveform(sound(60), {}, stop_)), ErrorCode::Cancelled);
}

TEST_F(Waveform, ConversionThatIsStoppedLeavesNothingBehind)
{
    // Longer than it takes to be asked for the first time.
    EXPECT_EQ(codeOf(convertSound(sound(3600), folder_.path("new"), stop_)), ErrorCode::Cancelled);
    EXPECT_THAT(folder_.entries(), ElementsAre("a.wav"));
}

TEST_F(Waveform, ConversionNeverReplacesAFile)
{
    const SoundFacts source = sound(1);
    uint64_t bytes = 0;
    for (const char* name : {"a.m4a", "a-2.m4a"}) {
        const auto file = convertSound(source, folder_.path());
        ASSERT_TRUE(file) << file.error().message;
        EXPECT_EQ(file->path, folder_.path(name));
        EXPECT_EQ(file->bytes, std::filesystem::file_size(file->path));
        bytes += file->bytes;
    }
    EXPECT_GT(bytes, 0U);
}

TEST_F(Waveform, ConversionPassesOverALinkThatLeadsNowhere)
{
    const SoundFacts source = sound(1);
    for (const char* name : {"a.m4a", "a-2.m4a"})
        std::filesystem::create_symlink("/nowhere/at/all", folder_.path(name));
    const auto file = convertSound(source, folder_.path());
    ASSERT_TRUE(file) << file.error().message;
    EXPECT_EQ(file->path, folder_.path("a-3.m4a"));
    EXPECT_TRUE(std::filesystem::is_symlink(folder_.path("a.m4a")));
}

TEST_F(Waveform, ConversionToAFileKeepsItsNameAndReplacesNothing)
{
    const SoundFacts source = sound(1);
    const auto file = convertSoundToFile(source, folder_.path("b.m4a"));
    ASSERT_TRUE(file) << file.error().message;
    EXPECT_EQ(file->path, folder_.path("b.m4a"));
    EXPECT_EQ(file->bytes, std::filesystem::file_size(file->path));
    EXPECT_EQ(codeOf(convertSoundToFile(source, folder_.path("b.m4a"))), ErrorCode::FileExists);
    EXPECT_EQ(codeOf(convertSoundToFile(sound(3600), folder_.path("c.m4a"), stop_)), ErrorCode::Cancelled);
    EXPECT_THAT(folder_.entries(), testing::UnorderedElementsAre("a.wav", "b.m4a"));
}

TEST_F(Waveform, CutTellsWhereOnlyAConversionHelps)
{
    SoundFacts part = sound(2);
    part.selection = SoundFacts::Selection{0s, 1s};
    EXPECT_EQ(codeOf(trimSound(part, folder_.path("b.m4a"))), ErrorCode::NeedsEncoding);
    EXPECT_THAT(folder_.entries(), ElementsAre("a.wav"));
}

} // namespace
