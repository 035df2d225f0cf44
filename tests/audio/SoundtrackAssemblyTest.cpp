#include "audio/SoundtrackAssembly.h"

#include "platform/system/NSWorkspace.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestSound.h"
#include "tests/support/TestStageContext.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/resource.h>
#include <vector>

using namespace platform;
using namespace testsound;

namespace {

constexpr const char* kOperation =
    "-[morStilloraVideoCreator finishedSoundtrackWithSoundtracks:totalVideoDuration:totalSoundtrackDuration:"
    "shouldLoopSoundtrack:error:]";
// Low, so that minutes of sound are made quickly.
constexpr int kRate = 8000;

class SoundtrackAssembly : public testing::Test {
protected:
    SoundtrackAssembly()
    {
        folder_.makeFolder("temporary");
        context_.emplace(folder_.url(), folder_.url("temporary"));
    }

    /// A file of a tone.
    NSURL makeFile(const std::string& name, double seconds, double frequency)
    {
        writeWav(folder_.path(name), makeTone(kRate, 1, static_cast<size_t>(seconds * kRate), frequency));
        return folder_.url(name);
    }

    MORSoundtrackPtr item(const std::string& name, double seconds, double frequency = 440,
                          SoundtrackSelection selection = {})
    {
        return MORSoundtrack::soundtrackWithURL(makeFile(name, seconds, frequency), selection);
    }

    AVURLAssetPtr assemble(const SoundtrackList& items, double video, double sound, bool loops = false)
    {
        return finishedSoundtrackWithSoundtracks(*context_, items, video, sound, loops, &error_);
    }

    /// Loudness of a stretch of the result relative to a sine of half scale: 1 is the tone at full volume.
    double volume(const Sound& sound, double start, double duration = 0.2) const
    {
        double sum = 0;
        const auto from = static_cast<size_t>(start * kRate);
        const auto count = static_cast<size_t>(duration * kRate);
        for (size_t i = 0; i < count; ++i)
            sum += double(sound.at(from + i)) * sound.at(from + i);
        return std::sqrt(sum / static_cast<double>(count)) / (0.5 / std::numbers::sqrt2);
    }

    /// Times that the tone goes from below to above zero in a second.
    int pitch(const Sound& sound, double start) const
    {
        int crossings = 0;
        const auto from = static_cast<size_t>(start * kRate);
        for (size_t i = from; i < from + kRate; ++i)
            crossings += sound.at(i) < 0 && sound.at(i + 1) >= 0;
        return crossings;
    }

    std::vector<std::string> temporaryFiles() const { return filesBelow(folder_.path("temporary")); }

    TemporaryFolder folder_;
    std::optional<TestStageContext> context_;
    LogRecorder log_;
    NSError error_;
};

TEST_F(SoundtrackAssembly, EmptyListYieldsNothingAndSendsNothing)
{
    EXPECT_FALSE(assemble({}, 10, 0));
    EXPECT_EQ(error_, NSError{});
    EXPECT_TRUE(context_->updates().empty());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(SoundtrackAssembly, ThreeItemsOf30SecondsWithAVideoOf40KeepTwoAndFadeTheSecond)
{
    const SoundtrackList items = {item("1.wav", 30, 300), item("2.wav", 30, 500), item("3.wav", 30, 700)};
    const auto finished = assemble(items, 40, 90);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->URL().lastPathComponent(), "stilloraFinishedAudio.m4a");
    EXPECT_EQ(finished->duration().value, 40 * kRate);
    const Sound heard = decodeWithFFmpeg(finished->URL().path());
    EXPECT_NEAR(pitch(heard, 10), 300, 1);
    EXPECT_NEAR(pitch(heard, 32), 500, 1);
    EXPECT_NEAR(volume(heard, 29), 1, 0.03);
    EXPECT_NEAR(volume(heard, 34.5), 1, 0.03);
    EXPECT_NEAR(volume(heard, 37.4), 0.5, 0.03);
    EXPECT_NEAR(volume(heard, 39.4), 0.1, 0.03);
    // The third was not converted; the converted files are gone, their folders stay.
    EXPECT_EQ(temporaryFiles().size(), 1U);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder_.path("temporary")), {}), 3);
}

TEST_F(SoundtrackAssembly, VideoOf4SecondsWithAnItemOf10HasAnEmptyListAndFails)
{
    EXPECT_FALSE(assemble({item("1.wav", 10)}, 4, 10));
    // Nothing is converted; the empty composition is exported as it is.
    EXPECT_EQ(error_.domain, kAVFoundationErrorDomain);
    EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kOperation) + " - writing failed"});
    EXPECT_TRUE(temporaryFiles().empty());
}

TEST_F(SoundtrackAssembly, ItemsOf38SecondsWithAVideoOf40AndLoopingAreUsedAsTheyAre)
{
    const auto finished = assemble({item("1.wav", 20, 300), item("2.wav", 18, 500)}, 40, 38, true);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 38 * kRate);
    EXPECT_NEAR(volume(decodeWithFFmpeg(finished->URL().path()), 37.5), 1, 0.03);
}

TEST_F(SoundtrackAssembly, ItemsExactlyFiveSecondsShortWithLoopingAreUsedAsTheyAre)
{
    const auto finished = assemble({item("1.wav", 3)}, 8, 3, true);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 3 * kRate);
}

TEST_F(SoundtrackAssembly, ItemsOf30SecondsWithAVideoOf40WithoutLoopingAreUsedAsTheyAre)
{
    const auto finished = assemble({item("1.wav", 30)}, 40, 30);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 30 * kRate);
    EXPECT_NEAR(volume(decodeWithFFmpeg(finished->URL().path()), 29.5), 1, 0.03);
}

TEST_F(SoundtrackAssembly, SameFileTwiceWithDifferentSelectionsPlaysTheFirstTwice)
{
    // The pitch tells the place: 300 in the first half, 900 in the second.
    writeWav(folder_.path("two.wav"), makeSound(kRate, 1, 20 * kRate, [](size_t frame, int) {
                 return 0.5 * std::sin(2 * std::numbers::pi * (frame < 10 * kRate ? 300 : 900) * double(frame) / kRate);
             }));
    const auto first = MORSoundtrack::soundtrackWithURL(folder_.url("two.wav"), {2, 8, 6});
    const auto second = MORSoundtrack::soundtrackWithURL(folder_.url("two.wav"), {12, 16, 4});
    const auto finished = assemble({first, second}, 60, 10);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 12 * kRate);
    const Sound heard = decodeWithFFmpeg(finished->URL().path());
    EXPECT_NEAR(pitch(heard, 3), 300, 1);
    EXPECT_NEAR(pitch(heard, 9), 300, 1);
}

TEST_F(SoundtrackAssembly, ItemWhoseSelectionIsZeroPlaysItsWholeFile)
{
    for (const SoundtrackSelection selection : {SoundtrackSelection{0, 0, 0}, kNoSelection}) {
        const auto finished = assemble({item("1.wav", 7, 440, selection)}, 60, 7);
        ASSERT_TRUE(finished) << error_.localizedDescription;
        EXPECT_EQ(finished->duration().value, 7 * kRate);
    }
}

TEST_F(SoundtrackAssembly, ItemOf3SecondsWithAVideoOf3FadesOverAllOfIt)
{
    const auto finished = assemble({item("1.wav", 3)}, 3, 3);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 3 * kRate);
    const Sound heard = decodeWithFFmpeg(finished->URL().path());
    EXPECT_NEAR(volume(heard, 0.65), 0.75, 0.04);
    EXPECT_NEAR(volume(heard, 1.4), 0.5, 0.04);
    EXPECT_NEAR(volume(heard, 2.15), 0.25, 0.04);
}

TEST_F(SoundtrackAssembly, LastItemShorterThanTheFadeFadesOnlyOverItsOwnPart)
{
    const auto finished = assemble({item("1.wav", 18, 300), item("2.wav", 4, 500)}, 20, 22);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    // 22 - 4 = 18 seconds lie before item 2, not less than 15: it is dropped, and item 1 alone is too short to fade.
    EXPECT_EQ(finished->duration().value, 18 * kRate);

    const auto both = assemble({item("3.wav", 14, 300), item("4.wav", 2, 500)}, 16, 15.9);
    ASSERT_TRUE(both) << error_.localizedDescription;
    const Sound heard = decodeWithFFmpeg(both->URL().path());
    EXPECT_NEAR(volume(heard, 13), 1, 0.03) << "an earlier item keeps its volume";
    EXPECT_NEAR(volume(heard, 14.4), 0.3, 0.03);
    EXPECT_NEAR(volume(heard, 15.4), 0.1, 0.03);
}

TEST_F(SoundtrackAssembly, RemainderEqualToTheThresholdDropsTheItem)
{
    // A video of 15 seconds: an item that starts at exactly 10 is not needed.
    const auto finished = assemble({item("1.wav", 10, 300), item("2.wav", 10, 500)}, 15, 20);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 10 * kRate);
}

TEST_F(SoundtrackAssembly, RemainderJustBelowTheThresholdKeepsTheItem)
{
    const auto finished = assemble({item("1.wav", 9.5, 300), item("2.wav", 10, 500)}, 15, 19.5);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 15 * kRate);
}

TEST_F(SoundtrackAssembly, RepeatedItemEndsTheListAtItsFirstPlace)
{
    const auto repeated = item("1.wav", 10, 300);
    const SoundtrackList items = {repeated, item("2.wav", 10, 500), repeated};
    // The walk stops at the third item, which is the first one.
    const auto finished = assemble(items, 28, 30);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 10 * kRate);
}

TEST_F(SoundtrackAssembly, LoopFlagPlaysNoPartWhereThereIsTooMuchSound)
{
    const auto finished = assemble({item("1.wav", 30)}, 20, 30, true);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 20 * kRate);
}

TEST_F(SoundtrackAssembly, SelectionIsCutToTheSample)
{
    const auto finished = assemble({item("1.wav", 10, 440, {1.25, 6.5, 5.25})}, 60, 5.25);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, int64_t(5.25 * kRate));
    const Sound wanted = makeTone(kRate, 1, 10 * kRate, 440);
    const Sound heard = decodeWithFFmpeg(finished->URL().path());
    EXPECT_GT(signalToNoise(heard, 0, wanted, size_t(1.25 * kRate), size_t(5.25 * kRate)), 25);
}

TEST_F(SoundtrackAssembly, MissingFileIsLoggedAndItsErrorPassedOn)
{
    const auto missing = MORSoundtrack::soundtrackWithURL(folder_.url("missing.mp3"), {});
    EXPECT_FALSE(assemble({missing}, 60, 10));
    EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kOperation) + " - trimmedconvertedurl == nil"});
    EXPECT_NE(error_.localizedDescription.find("missing.mp3"), std::string::npos);
}

TEST_F(SoundtrackAssembly, ItemWithoutALocationFailsWithoutAnError)
{
    EXPECT_FALSE(assemble({std::make_shared<MORSoundtrack>()}, 60, 10));
    EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kOperation) + " - trimmedconvertedurl == nil"});
    EXPECT_EQ(error_, NSError{});
}

TEST_F(SoundtrackAssembly, SelectionOfNoLengthFails)
{
    EXPECT_FALSE(assemble({item("1.wav", 10, 440, {3, 3, 0})}, 60, 10));
    EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kOperation) + " - trimmedconvertedurl == nil"});
    EXPECT_FALSE(error_.localizedDescription.empty());
}

TEST_F(SoundtrackAssembly, BadFilesOfEveryKindEndInTheirErrorWithNoFileLeft)
{
    folder_.makeFile("text.mp3", "no music at all");
    folder_.makeFile("empty.mp3", "");
    writeBytes(folder_.path("nothing.wav"), wavHeader(44100, 2, 0));
    writeBytes(folder_.path("norate.wav"), wavHeader(0, 2, 1000) + std::string(1000, '\1'));
    writeBytes(folder_.path("nochannels.wav"), wavHeader(44100, 0, 1000) + std::string(1000, '\1'));
    outputOf("ffmpeg -nostdin -v error -f lavfi -i color=red:s=64x64:r=2 -frames:v 5 -c:v mjpeg " +
             shellWord(folder_.path("silent.mov")));
    const auto good = item("good.wav", 3);
    for (const char* name : {"text.mp3", "empty.mp3", "nothing.wav", "norate.wav", "nochannels.wav", "silent.mov"}) {
        SCOPED_TRACE(name);
        error_ = {};
        log_.clear();
        const auto bad = MORSoundtrack::soundtrackWithURL(folder_.url(name), {});
        // The good one before it has been converted by then, and stays.
        EXPECT_FALSE(assemble({good, bad}, 60, 10));
        EXPECT_NE(error_.localizedDescription.find(name), std::string::npos) << error_.localizedDescription;
        EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kOperation) + " - trimmedconvertedurl == nil"});
        for (const std::string& file : temporaryFiles())
            EXPECT_TRUE(file.ends_with("/good.m4a")) << file;
    }
}

TEST_F(SoundtrackAssembly, SelectionsThatHoldNothingFailWithAnError)
{
    struct Row {
        const char* name;
        SoundtrackSelection selection;
    };
    for (const Row& row : {Row{"past the end", {20, 25, 5}}, Row{"of no length", {3, 3, 0}},
                           Row{"start after the end", {5, 3, -2}}, Row{"at the very end", {10, 12, 2}}}) {
        SCOPED_TRACE(row.name);
        error_ = {};
        EXPECT_FALSE(assemble({item("1.wav", 10, 440, row.selection)}, 60, 10));
        EXPECT_EQ(error_.domain, kAVFoundationErrorDomain);
        EXPECT_TRUE(temporaryFiles().empty());
    }
    // One that only reaches past the end plays what there is.
    const auto finished = assemble({item("1.wav", 10, 440, {8, 15, 7})}, 60, 7);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    EXPECT_EQ(finished->duration().value, 2 * kRate);
}

TEST_F(SoundtrackAssembly, PiecesOfDifferentRatesFollowEachOtherInTheFinishedSoundtrack)
{
    std::vector<MORSoundtrackPtr> items;
    double seconds = 0;
    for (const int rate : {44100, 8000, 48000}) {
        const std::string name = std::to_string(rate) + ".wav";
        // In phase with the one before.
        writeWav(folder_.path(name), makeSound(rate, 1, static_cast<size_t>(rate) * 2 + 1, [&](size_t frame, int) {
                     return 0.5 * std::sin(2 * std::numbers::pi * 300 * (seconds + double(frame) / rate));
                 }));
        seconds += (2.0 * rate + 1) / rate;
        items.push_back(MORSoundtrack::soundtrackWithURL(folder_.url(name), {}));
    }
    const auto finished = assemble({items.begin(), items.end()}, 60, seconds);
    ASSERT_TRUE(finished) << error_.localizedDescription;
    const Sound heard = decodeWithFFmpeg(finished->URL().path());
    ASSERT_EQ(heard.rateHz, 44100);
    EXPECT_EQ(finished->duration().value, std::lround(seconds * 44100));
    const Sound wanted = makeTone(44100, 1, static_cast<size_t>(seconds * 44100) + 1, 300);
    for (size_t from = 4096; from + 8192 < static_cast<size_t>(seconds * 44100); from += 4096)
        EXPECT_GT(signalToNoise(heard, from, wanted, from, 4096), 18) << from;
}

TEST_F(SoundtrackAssembly, FolderThatCannotBeMadeIsLogged)
{
    // An empty working list: nothing needs a folder before the export does.
    folder_.makeFile("file");
    TestStageContext context(folder_.url(), folder_.url("file"));
    EXPECT_FALSE(finishedSoundtrackWithSoundtracks(context, {item("1.wav", 10)}, 4, 10, false, &error_));
    EXPECT_EQ(log_.lines(),
              std::vector<std::string>{std::string(kOperation) + " - could not create temporary directory"});
    EXPECT_EQ(error_, NSError{});
}

TEST_F(SoundtrackAssembly, FolderIsMadeWithThoseAboveIt)
{
    // An empty working list, as above: the export comes as far as having nothing to write.
    TestStageContext context(folder_.url(), folder_.url("not/yet"));
    EXPECT_FALSE(finishedSoundtrackWithSoundtracks(context, {item("1.wav", 10)}, 4, 10, false, &error_));
    EXPECT_EQ(log_.lines(), std::vector<std::string>{std::string(kOperation) + " - writing failed"});
}

TEST_F(SoundtrackAssembly, FailuresNeedNoPlaceForTheirError)
{
    const auto missing = MORSoundtrack::soundtrackWithURL(folder_.url("missing.mp3"), {});
    EXPECT_FALSE(finishedSoundtrackWithSoundtracks(*context_, {missing}, 60, 10, false));
    EXPECT_FALSE(finishedSoundtrackWithSoundtracks(*context_, {item("1.wav", 10)}, 4, 10, false)) << "nothing to write";
    EXPECT_EQ(log_.lines().size(), 2U);
}

TEST_F(SoundtrackAssembly, CancelBeforeTheWorkYieldsNothing)
{
    context_->setIsCancelled(true);
    EXPECT_FALSE(assemble({item("1.wav", 10)}, 60, 10));
    EXPECT_EQ(error_, NSError{});
    EXPECT_TRUE(temporaryFiles().empty());
    EXPECT_TRUE(log_.lines().empty());
}

TEST_F(SoundtrackAssembly, CancelDuringAConversionTakesEffectAfterIt)
{
    int looks = 0;
    context_->onCancelledAsked = [&] {
        if (++looks == 2)
            context_->setIsCancelled(true);
    };
    EXPECT_FALSE(assemble({item("1.wav", 3, 300), item("2.wav", 3, 500)}, 60, 6));
    EXPECT_EQ(error_, NSError{});
    // The first piece was converted and stays; the second was not.
    ASSERT_EQ(temporaryFiles().size(), 1U);
    EXPECT_TRUE(temporaryFiles()[0].ends_with("/1.m4a"));
}

TEST_F(SoundtrackAssembly, CancelDuringTheExportLeavesThePieces)
{
    int looks = 0;
    context_->onCancelledAsked = [&] {
        // Before the work, after the conversion, then at the export.
        if (++looks == 3)
            context_->setIsCancelled(true);
    };
    EXPECT_FALSE(assemble({item("1.wav", 3)}, 60, 3));
    EXPECT_EQ(error_, NSError{});
    EXPECT_TRUE(log_.lines().empty());
    EXPECT_TRUE(std::ranges::any_of(temporaryFiles(), [](const auto& file) { return file.ends_with("/1.m4a"); }));
}

TEST_F(SoundtrackAssembly, FileThatPlaysTwiceIsConvertedOnceAndItsPieceTakenAway)
{
    const MORSoundtrackPtr twice = item("1.wav", 3);
    ASSERT_TRUE(assemble({twice, twice}, 60, 6));
    ASSERT_EQ(temporaryFiles().size(), 1U);
    EXPECT_TRUE(temporaryFiles()[0].ends_with("/stilloraFinishedAudio.m4a"));
}

TEST_F(SoundtrackAssembly, CancelDuringTheExportIsSeenBeforeItsEnd)
{
    int looks = 0;
    bool wasWhole = true;
    context_->onCancelledAsked = [&] {
        if (++looks != 3)
            return;
        wasWhole = std::ranges::any_of(temporaryFiles(),
                                       [](const auto& file) { return file.ends_with("/stilloraFinishedAudio.m4a"); });
        context_->setIsCancelled(true);
    };
    // Long enough to be looked at while it lasts.
    EXPECT_FALSE(assemble(SoundtrackList(40, item("1.wav", 30)), 1200, 1200));
    EXPECT_GE(looks, 3);
    EXPECT_FALSE(wasWhole);
}

TEST_F(SoundtrackAssembly, PieceThatCannotBeLaidIsLoggedAndItsErrorPassedOn)
{
    int looks = 0;
    context_->onCancelledAsked = [&] {
        // After the conversion, before the composition.
        if (++looks == 2)
            writeBytes(folder_.path("temporary/" + temporaryFiles().at(0)), "no sound");
    };
    EXPECT_FALSE(assemble({item("1.wav", 3)}, 60, 3));
    EXPECT_EQ(log_.lines(),
              std::vector<std::string>{std::string(kOperation) + " - adding track to composition failed"});
    EXPECT_EQ(error_.domain, kAVFoundationErrorDomain);
    EXPECT_EQ(looks, 2) << "nothing is exported";
}

TEST_F(SoundtrackAssembly, TellsOfItsTwoStagesWithoutAMeasureAndOfTheExportInPartsOfOne)
{
    // All that were queued are sent before the work goes on.
    context_->onCancelledAsked = [&] { (void)context_->updates(); };
    ASSERT_TRUE(assemble({item("1.wav", 30)}, 60, 30));
    const auto updates = context_->updates();
    ASSERT_GE(updates.size(), 3U);
    EXPECT_EQ(updates[0].title, "VideoCreationTitleCalculatingSoundtrackDuration");
    for (size_t i = 1; i < updates.size(); ++i)
        EXPECT_EQ(updates[i].title, "VideoCreationTitleConvertingAndTrimmingAssets") << i;
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(updates[i].progress, 0) << i;
        EXPECT_EQ(updates[i].total, 0) << i;
    }
    for (size_t i = 2; i < updates.size(); ++i) {
        EXPECT_GE(updates[i].progress, updates[i - 1].progress) << i;
        EXPECT_LE(updates[i].progress, 1) << i;
        EXPECT_EQ(updates[i].total, 1) << i;
    }
}

TEST_F(SoundtrackAssembly, UpdatesAreNotDeterminateCarryNoEstimateAndShowASoundFile)
{
    context_->onCancelledAsked = [&] { (void)context_->updates(); };
    ASSERT_TRUE(assemble({item("1.wav", 3)}, 60, 3));
    const auto updates = context_->updates();
    ASSERT_GE(updates.size(), 3U);
    for (const ProgressUpdate& update : updates) {
        EXPECT_FALSE(update.determinate);
        EXPECT_EQ(update.timeInterval, -2);
        EXPECT_EQ(update.image, NSWorkspace::sharedWorkspace().iconForFileType("m4a"));
    }
}

// Run by the next test alone, in a process of its own.
TEST_F(SoundtrackAssembly, DISABLED_LoopsUntilTheProcessIsStopped)
{
    assemble({item("1.wav", 3, 440, {0, 2, 2})}, 60, 2, true);
    std::puts("returned");
}

TEST_F(SoundtrackAssembly, LoopingMoreThanFiveSecondsShortNeverReturns)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const std::string memoryLimit; // these builds take more address space than any limit
#else
    const std::string memoryLimit = "ulimit -v 1000000; ";
#endif
    const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
    // Only the limit of two seconds of processor time ends it, by a signal, which the shell reports as 128 and more.
    const std::string command =
        "TMPDIR=" + shellWord(folder_.makeFolder("child")) + " sh -c \"ulimit -c 0; " + memoryLimit + "ulimit -t 2; " +
        shellWord(self) +
        " --gtest_also_run_disabled_tests "
        "--gtest_filter=SoundtrackAssembly.DISABLED_LoopsUntilTheProcessIsStopped; echo status \\$?\" 2>&1";
    const std::string output = outputOf(command);
    EXPECT_EQ(output.find("returned"), std::string::npos) << output;
    const size_t found = output.find("status ");
    ASSERT_NE(found, std::string::npos) << output;
    EXPECT_GE(std::stoi(output.substr(found + 7)), 128) << output;
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    EXPECT_GE(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec, 1) << "it kept a processor busy";
}

} // namespace
