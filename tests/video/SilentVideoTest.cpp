#include "video/SilentVideo.h"

#include "platform/files/NSFileManager.h"
#include "platform/foundation/Lock.h"
#include "platform/movie/MediaInspection.h"
#include "platform/system/NSWorkspace.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMovie.h"
#include "tests/video/TestVideoStageContext.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using platform::AVURLAssetPtr;
using platform::CGSize;
using platform::NSError;
using testing::Contains;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

constexpr size_t kWidth = 64;
constexpr size_t kHeight = 48;
constexpr std::chrono::seconds kDeadline{60};

/// Asks until `done` answers true.
bool waitUntil(const std::function<bool()>& done)
{
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

/// Of one title.
std::vector<ProgressUpdate> updatesOf(const TestVideoStageContext& context, const std::string& title)
{
    auto found = context.updates();
    std::erase_if(found, [&](const ProgressUpdate& update) { return update.title != title; });
    return found;
}

FrameRecord makeRecord(size_t index, size_t width = kWidth)
{
    return {.buffer = testmovie::makePlainFrame(width, kHeight, {static_cast<uint8_t>(index * 20), 100, 50}),
            .icon = std::make_shared<platform::NSImage>(nullptr, CGSize{static_cast<double>(index), 1}),
            .readBytes = 1000,
            .index = index};
}

PhotoList makePhotos(size_t count)
{
    PhotoList photos;
    for (size_t i = 0; i < count; ++i)
        photos.push_back(std::make_shared<MORPhoto>());
    return photos;
}

class SilentVideoTest : public testing::Test {
protected:
    SilentVideoTest()
    {
        // Not the number that writing begins with.
        context.setCurrentNeededPhotoIndex(12345);
        fakeStages(context);
    }

    /// Gives it a size, and frames that are there at once.
    void fakeStages(TestVideoStageContext& c)
    {
        c.videoSize = [this](const PhotoList& photos, uint64_t* total, PhotoList* failed) {
            *total = 1000 * photos.size();
            *failed = failedPhotos;
            return CGSize{kWidth, kHeight};
        };
        c.fillBufferArray = [this](VideoStageContext& stageContext, const PhotoList& photos, CGSize size) {
            EXPECT_EQ(size, (CGSize{kWidth, kHeight}));
            photosToRender = photos.size();
            auto frames = std::make_shared<FrameList>();
            for (const size_t index : indexes)
                frames->append(makeRecord(index));
            stageContext.setImageBuffers(frames);
        };
    }

    /// The indexes 0 to `count` - 1 are finished, in this order.
    void finishFrames(size_t count)
    {
        for (size_t i = 0; i < count; ++i)
            indexes.push_back(i);
    }

    AVURLAssetPtr write(size_t photoCount, NSError* error = nullptr, double durationPerPhoto = 3,
                        const std::optional<std::string>& codec = std::nullopt)
    {
        return videoWithPhotos(context, makePhotos(photoCount), 0, false, durationPerPhoto, codec, error,
                               processorCount);
    }

    /// Writes on a thread of its own.
    std::future<AVURLAssetPtr> writeMeanwhile(size_t photoCount)
    {
        return std::async(std::launch::async, [this, photoCount] { return write(photoCount); });
    }

    /// The movie files below the temporary folder.
    std::vector<std::string> movies() const
    {
        std::vector<std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path()))
            if (entry.is_regular_file())
                found.push_back(entry.path().native());
        return found;
    }

    TemporaryFolder folder;
    TestVideoStageContext context{folder.url(), platform::NSURL::fileURLWithPath(folder.makeFolder("temporary"), true)};
    uint64_t processorCount = 2;
    PhotoList failedPhotos;
    /// Of the frames that are there when production has been started.
    std::vector<size_t> indexes;
    std::atomic<size_t> photosToRender{0};
};

TEST_F(SilentVideoTest, TenPhotosOfThreeSecondsStandAtZeroThreeAndSoOnToTwentySevenSeconds)
{
    finishFrames(10);
    const LogRecorder log;
    const auto asset = write(10);
    ASSERT_TRUE(asset);
    EXPECT_EQ(asset->URL().lastPathComponent(), "videoWithoutSound.mov");
    const auto report = platform::inspectMedia(asset->URL());
    ASSERT_TRUE(report);
    ASSERT_EQ(report->tracks.size(), 1u);
    ASSERT_EQ(report->tracks[0].samples.size(), 10u);
    for (size_t i = 0; i < 10; ++i) {
        EXPECT_EQ(report->tracks[0].samples[i].presentationTime.value, static_cast<int64_t>(i) * 30000);
        EXPECT_EQ(report->tracks[0].samples[i].presentationTime.timescale, 10000);
        EXPECT_EQ(report->tracks[0].samples[i].duration.value, 30000);
    }
    EXPECT_EQ(report->tracks[0].codec, "jpeg") << "as no codec was wished for";
    EXPECT_TRUE(report->indexFirst);
    EXPECT_DOUBLE_EQ(platform::CMTimeGetSeconds(report->duration), 30);
    EXPECT_EQ(context.currentNeededPhotoIndex(), 9u);
    EXPECT_FALSE(context.imageBuffers());
    EXPECT_FALSE(context.isCancelled());
    EXPECT_THAT(log.lines(),
                Contains(ContainsRegex("^\\*!!\\* raw video file creation took [0-9]+\\.[0-9]{6} seconds$")));
}

TEST_F(SilentVideoTest, PutsTheMovieIntoAFolderOfItsOwnBelowTheTemporaryFolder)
{
    finishFrames(5);
    const auto first = write(5);
    const auto second = write(5);
    ASSERT_TRUE(first && second);
    const auto folderOf = [](const AVURLAssetPtr& asset) { return asset->URL().URLByDeletingLastPathComponent(); };
    EXPECT_EQ(folderOf(first).URLByDeletingLastPathComponent(), context.temporaryURL());
    EXPECT_EQ(folderOf(first).lastPathComponent().size(), 36u);
    EXPECT_NE(folderOf(first), folderOf(second));
}

TEST_F(SilentVideoTest, WritesFramesInPhotoOrderHoweverTheyWereFinished)
{
    indexes = {4, 2, 6, 0, 5, 1, 3};
    const auto asset = write(7, nullptr, 1, "avc1");
    ASSERT_TRUE(asset);
    const auto frames = testmovie::decode(asset->URL().path(), kWidth, kHeight);
    ASSERT_EQ(frames.size(), 7u);
    for (size_t i = 0; i < 7; ++i)
        EXPECT_NEAR(testmovie::pixelAt(frames[i], kWidth, 20, 20)[0], static_cast<int>(i) * 20, 4) << i;
}

TEST_F(SilentVideoTest, CutsTimesToWholeTenThousandths)
{
    finishFrames(5);
    const auto asset = write(5, nullptr, 0.7);
    ASSERT_TRUE(asset);
    const auto report = platform::inspectMedia(asset->URL());
    ASSERT_TRUE(report);
    std::vector<int64_t> times;
    for (const auto& sample : report->tracks.at(0).samples)
        times.push_back(sample.presentationTime.value);
    // 3 * 0.7 is a little less than 2.1.
    EXPECT_EQ(times, (std::vector<int64_t>{0, 7000, 14000, 20999, 28000}));
}

TEST_F(SilentVideoTest, WithThreePhotosTheWaitForFiveRecordsNeverEnds)
{
    finishFrames(3);
    auto result = writeMeanwhile(3);
    ASSERT_TRUE(waitUntil([&] { return photosToRender == 3; }));
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    EXPECT_EQ(context.imageBuffers()->count(), 3u) << "nothing was fed";
    // Two that never come otherwise let go of the thread.
    context.imageBuffers()->append(makeRecord(7));
    context.imageBuffers()->append(makeRecord(8));
    EXPECT_TRUE(result.get());
}

TEST_F(SilentVideoTest, ACancelBeforeFiveFramesAreFinishedWaitsForTheFifth)
{
    finishFrames(4);
    auto result = writeMeanwhile(8);
    ASSERT_TRUE(waitUntil([&] { return photosToRender == 8; }));
    context.setIsCancelled(true);
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    context.imageBuffers()->append(makeRecord(4));
    EXPECT_FALSE(result.get());
    EXPECT_TRUE(movies().empty());
}

TEST_F(SilentVideoTest, APhotoThatNeverYieldsARecordStopsTheFeedingAtItsIndexAndOnlyACancelEndsTheJob)
{
    indexes = {0, 1, 2, 4, 5, 6};
    auto result = writeMeanwhile(7);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 3; }));
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    EXPECT_EQ(context.currentNeededPhotoIndex(), 3u);
    EXPECT_EQ(context.imageBuffers()->count(), 3u);
    EXPECT_EQ(movies().size(), 1u);
    context.setIsCancelled(true);
    EXPECT_FALSE(result.get());
    EXPECT_TRUE(context.isCancelled());
    EXPECT_TRUE(movies().empty());
    EXPECT_FALSE(context.imageBuffers());
}

TEST_F(SilentVideoTest, TakesAFrameAsSoonAsItIsFinished)
{
    finishFrames(5);
    auto result = writeMeanwhile(8);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 5; }));
    for (const size_t index : {6u, 5u, 7u})
        context.imageBuffers()->append(makeRecord(index));
    EXPECT_TRUE(result.get());
}

TEST_F(SilentVideoTest, ACancelDuringWritingDeletesTheMovieAndReturnsNoneWithTheCancelledFlagSet)
{
    finishFrames(6);
    auto result = writeMeanwhile(9);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 6 && movies().size() == 1; }));
    context.setIsCancelled(true);
    // Also where the needed frame is there.
    if (const auto frames = context.imageBuffers())
        frames->append(makeRecord(6));
    NSError untouched;
    EXPECT_FALSE(result.get());
    EXPECT_TRUE(context.isCancelled());
    EXPECT_TRUE(movies().empty());
}

TEST_F(SilentVideoTest, ACancelLeavesTheErrorAsItWas)
{
    finishFrames(5);
    NSError error{"domain", 1, "text"};
    auto result = std::async(std::launch::async, [&] { return write(9, &error); });
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 5; }));
    context.setIsCancelled(true);
    EXPECT_FALSE(result.get());
    EXPECT_EQ(error, (NSError{"domain", 1, "text"}));
}

TEST_F(SilentVideoTest, WithoutPhotosNothingIsDone)
{
    context.videoSize = [](auto&&...) {
        ADD_FAILURE() << "asked for a size";
        return platform::kNSZeroSize;
    };
    NSError error;
    EXPECT_FALSE(write(0, &error));
    EXPECT_EQ(error, NSError{});
    EXPECT_FALSE(context.isCancelled());
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("temporary")));
}

TEST_F(SilentVideoTest, WithoutASizeNothingIsDone)
{
    context.videoSize = [](auto&&...) { return platform::kNSZeroSize; };
    NSError error;
    EXPECT_FALSE(write(9, &error));
    EXPECT_EQ(error, NSError{});
    EXPECT_EQ(photosToRender, 0u);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("temporary")));
}

TEST_F(SilentVideoTest, MakesTheTemporaryFolderThatItIsGiven)
{
    TestVideoStageContext away(folder.url(), platform::NSURL::fileURLWithPath(folder.path("not/there/yet"), true));
    fakeStages(away);
    finishFrames(5);
    const auto asset = videoWithPhotos(away, makePhotos(5), 0, false, 1, std::nullopt, nullptr, processorCount);
    ASSERT_TRUE(asset);
    EXPECT_TRUE(asset->URL().path().starts_with(folder.path("not/there/yet/"))) << asset->URL().path();
}

TEST_F(SilentVideoTest, SaysWhyItsFolderCannotBeMade)
{
    TestVideoStageContext inTheWay(folder.url(), platform::NSURL::fileURLWithPath(folder.makeFile("file"), true));
    fakeStages(inTheWay);
    const LogRecorder log;
    NSError error;
    EXPECT_FALSE(videoWithPhotos(inTheWay, makePhotos(6), 0, false, 3, std::nullopt, &error, processorCount));
    EXPECT_NE(error.code, 0);
    EXPECT_NE(error.localizedDescription.find("file"), std::string::npos);
    EXPECT_THAT(log.lines(), ElementsAre("-[morStilloraVideoCreator videoWithPhotos:quality:reduceBorders:"
                                         "durationPerPhoto:desiredCodec:error:] - could not create temporary dir"));
    EXPECT_FALSE(inTheWay.isCancelled());
    EXPECT_EQ(photosToRender, 0u);
    EXPECT_FALSE(videoWithPhotos(inTheWay, makePhotos(6), 0, false, 3, std::nullopt, nullptr, processorCount));
}

TEST_F(SilentVideoTest, AnUnknownCodecReturnsNoneWithoutAnErrorAndReadsAsCancelled)
{
    finishFrames(6);
    const LogRecorder log;
    NSError error{"domain", 1, "text"};
    EXPECT_FALSE(write(6, &error, 3, "none"));
    EXPECT_EQ(error, NSError{});
    EXPECT_TRUE(context.isCancelled());
    EXPECT_TRUE(movies().empty());
    EXPECT_EQ(context.imageBuffers(), nullptr);
    EXPECT_THAT(log.lines(), Contains(HasSubstr("there is no video codec \"none\"")));
    EXPECT_THAT(log.lines(), Not(Contains(HasSubstr("*!!*"))));
}

TEST_F(SilentVideoTest, AFrameThatCannotBeAppendedDeletesTheMovieAndReadsAsCancelled)
{
    finishFrames(5);
    auto result = writeMeanwhile(9);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 5; }));
    context.imageBuffers()->append(makeRecord(5, kWidth * 2));
    EXPECT_FALSE(result.get());
    EXPECT_TRUE(context.isCancelled());
    EXPECT_TRUE(movies().empty());
}

TEST_F(SilentVideoTest, DurationsThatAreNoneReadAsCancelled)
{
    finishFrames(6);
    for (const double duration : {0.0, -1.0, 1e-9, std::numeric_limits<double>::quiet_NaN()}) {
        context.setIsCancelled(false);
        EXPECT_FALSE(write(6, nullptr, duration)) << duration;
        EXPECT_TRUE(context.isCancelled());
        EXPECT_TRUE(movies().empty());
    }
}

TEST_F(SilentVideoTest, FailedPhotosAreNotWritten)
{
    const PhotoList photos = makePhotos(8);
    failedPhotos = {photos[2], photos[5]};
    finishFrames(6);
    const auto asset = videoWithPhotos(context, photos, 0, false, 2, std::nullopt, nullptr, processorCount);
    ASSERT_TRUE(asset);
    EXPECT_EQ(photosToRender, 6u);
    EXPECT_EQ(platform::inspectMedia(asset->URL()).value_or(platform::MediaReport{}).tracks.at(0).samples.size(), 6u);
}

TEST_F(SilentVideoTest, LetsGoOfFramesAsItWritesThem)
{
    std::vector<std::weak_ptr<platform::CVPixelBuffer>> buffers;
    std::mutex mutex;
    context.fillBufferArray = [&](VideoStageContext& c, const PhotoList& photos, CGSize) {
        auto frames = std::make_shared<FrameList>();
        // All but the last, so that the movie stays unfinished.
        for (size_t i = 0; i + 1 < photos.size(); ++i) {
            auto record = makeRecord(i);
            std::lock_guard guard(mutex);
            buffers.push_back(record.buffer);
            frames->append(std::move(record));
        }
        c.setImageBuffers(frames);
    };
    auto result = writeMeanwhile(12);
    EXPECT_TRUE(waitUntil([&] {
        std::lock_guard guard(mutex);
        return buffers.size() == 11 && std::ranges::all_of(buffers, [](const auto& b) { return b.expired(); });
    }));
    context.imageBuffers()->append(makeRecord(11));
    EXPECT_TRUE(result.get());
}

TEST_F(SilentVideoTest, ReportsEachFrameAndThenTheFinishing)
{
    finishFrames(5);
    auto result = writeMeanwhile(8);
    // One frame after the other, so that no update is replaced by the next one before it is sent; those of the first
    // five, which are written in one go, may be.
    for (size_t index = 5; index < 8; ++index) {
        ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == index; }));
        context.fbQ().waitUntilAllOperationsAreFinished();
        context.imageBuffers()->append(makeRecord(index));
    }
    ASSERT_TRUE(result.get());
    context.fbQ().waitUntilAllOperationsAreFinished();
    double last = 0;
    for (const auto& update : updatesOf(context, "VideoCreationTitleRenderingVideo")) {
        EXPECT_GT(update.progress, last);
        last = update.progress;
        EXPECT_TRUE(update.determinate);
        EXPECT_EQ(update.total, 8);
        ASSERT_TRUE(update.image);
        EXPECT_EQ(update.image->size().width, update.progress - 1) << "the icon of the photo itself";
    }
    const auto finishing = context.updates().back();
    EXPECT_EQ(finishing.title, "VideoCreationTitleWritingVideo");
    EXPECT_EQ(finishing.image, platform::NSWorkspace::sharedWorkspace().iconForFileType("mov"));
    EXPECT_FALSE(finishing.determinate);
    EXPECT_EQ(finishing.progress, 0);
    EXPECT_EQ(finishing.total, 0);
    EXPECT_EQ(finishing.timeInterval, -2);
}

TEST_F(SilentVideoTest, ReportsTheTimeThatIsLeftOnceItCanBeEstimated)
{
    finishFrames(5);
    processorCount = 5;
    const auto start = std::chrono::steady_clock::now();
    auto result = writeMeanwhile(8);
    for (size_t index = 5; index < 8; ++index) {
        ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == index; }));
        context.fbQ().waitUntilAllOperationsAreFinished();
        const auto updates = updatesOf(context, "VideoCreationTitleRenderingVideo");
        ASSERT_FALSE(updates.empty());
        const ProgressUpdate& last = updates.back();
        if (index < 7) {
            EXPECT_EQ(last.timeInterval, -1) << "after " << last.progress << " photos";
        } else {
            // Each of the seven photos took a seventh of the time so far, and one more is to come.
            const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
            EXPECT_EQ(last.progress, 7);
            EXPECT_GT(last.timeInterval, 0);
            EXPECT_LE(last.timeInterval, elapsed.count() / 7);
        }
        context.imageBuffers()->append(makeRecord(index));
    }
    ASSERT_TRUE(result.get());
}

TEST_F(SilentVideoTest, ARenderingUpdateDropsThoseThatWaitBehindIt)
{
    std::promise<void> gate;
    std::promise<void> waiting;
    std::atomic<int> sent{0};
    context.fbQ().addOperationWithBlock([&waiting, opened = gate.get_future()] {
        waiting.set_value();
        opened.wait();
    });
    waiting.get_future().wait();
    finishFrames(5);
    auto result = writeMeanwhile(6);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 5; }));
    context.fbQ().addOperationWithBlock([&] { ++sent; });
    gate.set_value();
    context.fbQ().waitUntilAllOperationsAreFinished();
    EXPECT_EQ(updatesOf(context, "VideoCreationTitleRenderingVideo").size(), 1u);
    EXPECT_EQ(sent, 0);
    context.imageBuffers()->append(makeRecord(5));
    EXPECT_TRUE(result.get());
}

TEST_F(SilentVideoTest, WritingDropsTheUpdatesOfTheStagesBeforeIt)
{
    std::promise<void> gate;
    std::promise<void> waiting;
    std::atomic<int> sent{0};
    context.fbQ().addOperationWithBlock([&waiting, opened = gate.get_future()] {
        waiting.set_value();
        opened.wait();
    });
    waiting.get_future().wait();
    context.fbQ().addOperationWithBlock([&] { ++sent; });
    // The first frame is missing, so that none is reported; that it is looked for shows that writing has begun.
    std::atomic<bool> isWriting{false};
    context.whenAskedForCancelled = [&] { isWriting = true; };
    indexes = {1, 2, 3, 4, 5};
    auto result = writeMeanwhile(6);
    ASSERT_TRUE(waitUntil([&] { return isWriting.load(); }));
    gate.set_value();
    context.fbQ().waitUntilAllOperationsAreFinished();
    EXPECT_EQ(sent, 0);
    context.imageBuffers()->append(makeRecord(0));
    EXPECT_TRUE(result.get());
}

TEST_F(SilentVideoTest, ACancelledJobSendsNoRenderingUpdatesOnceTheFlagIsSet)
{
    // Every update waits behind this one until the job has been cancelled.
    std::promise<void> gate;
    std::promise<void> waiting;
    context.fbQ().addOperationWithBlock([&waiting, opened = gate.get_future()] {
        waiting.set_value();
        opened.wait();
    });
    waiting.get_future().wait();
    finishFrames(5);
    auto result = writeMeanwhile(9);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 5; }));
    context.setIsCancelled(true);
    EXPECT_FALSE(result.get());
    gate.set_value();
    context.fbQ().waitUntilAllOperationsAreFinished();
    EXPECT_TRUE(context.updates().empty());
}

TEST_F(SilentVideoTest, TwoMoviesAtOnceAreBothWritten)
{
    TemporaryFolder otherFolder;
    TestVideoStageContext other(otherFolder.url(),
                                platform::NSURL::fileURLWithPath(otherFolder.makeFolder("temporary"), true));
    fakeStages(other);
    finishFrames(12);
    auto first = writeMeanwhile(12);
    const auto second = videoWithPhotos(other, makePhotos(12), 0, false, 1, "avc1", nullptr, processorCount);
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second);
}

TEST_F(SilentVideoTest, ItsWritingQueueHasItsLabelAndAttributes)
{
    const auto& attributes = videoWritingQueue()->attributes();
    EXPECT_EQ(videoWritingQueue()->label(), "app.stillora.VideoCreator.VideoCreationQueue");
    EXPECT_EQ(attributes.kind, platform::DispatchQueue::Kind::Serial);
    EXPECT_EQ(attributes.autoreleaseFrequency, platform::DispatchQueue::AutoreleaseFrequency::WorkItem);
    EXPECT_EQ(static_cast<unsigned>(attributes.qosClass), 25u);
    EXPECT_EQ(attributes.relativePriority, -1);
}

TEST_F(SilentVideoTest, OneQueueOfTheProcessWritesAllMoviesOneAfterAnother)
{
    // The first movie waits for its last frame, on the queue that the second one is written on too.
    finishFrames(5);
    auto first = writeMeanwhile(6);
    ASSERT_TRUE(waitUntil([&] { return context.currentNeededPhotoIndex() == 5; }));
    const TemporaryFolder otherFolder;
    TestVideoStageContext other(otherFolder.url(),
                                platform::NSURL::fileURLWithPath(otherFolder.makeFolder("temporary"), true));
    fakeStages(other);
    auto second = std::async(std::launch::async, [&] {
        return videoWithPhotos(other, makePhotos(5), 0, false, 1, std::nullopt, nullptr, processorCount);
    });
    EXPECT_EQ(second.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    EXPECT_EQ(other.currentNeededPhotoIndex(), 0u) << "nothing was fed";
    context.imageBuffers()->append(makeRecord(5));
    EXPECT_TRUE(first.get());
    EXPECT_TRUE(second.get());
}

TEST_F(SilentVideoTest, AThousandFramesAreWrittenFaithfully)
{
    finishFrames(1200);
    const auto asset = write(1200, nullptr, 0.1, "avc1");
    ASSERT_TRUE(asset);
    const auto report = platform::inspectMedia(asset->URL());
    ASSERT_TRUE(report);
    ASSERT_EQ(report->tracks.at(0).samples.size(), 1200u);
    EXPECT_TRUE(report->indexFirst);
    EXPECT_NEAR(platform::CMTimeGetSeconds(report->duration), 120, 0.0002);
}

TEST_F(SilentVideoTest, MakesAMovieOfRealPhotos)
{
    PhotoList photos;
    for (int i = 0; i < 6; ++i) {
        const std::string path = folder.path("photo" + std::to_string(i) + ".jpg");
        testmovie::outputOf("ffmpeg -v error -f lavfi -i color=c=" + std::string(i % 2 ? "blue" : "red") +
                            ":s=640x480 -frames:v 1 " + testmovie::shellWord(path) + " 2>&1");
        photos.push_back(std::make_shared<MORPhoto>());
        photos.back()->setPhotoURL(platform::NSURL::fileURLWithPath(path));
        photos.back()->setSize({640, 480});
        photos.back()->setFileSize(static_cast<int64_t>(std::filesystem::file_size(path)));
    }
    context.videoSize = nullptr;
    context.fillBufferArray = nullptr;
    const auto asset = videoWithPhotos(context, photos, 240, false, 2, "avc1");
    ASSERT_TRUE(asset);
    const auto frames = testmovie::decode(asset->URL().path(), 320, 240);
    ASSERT_EQ(frames.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        const auto color = testmovie::pixelAt(frames[i], 320, 200, 60);
        EXPECT_NEAR(color[0], i % 2 ? 0 : 254, 5) << i;
        EXPECT_NEAR(color[2], i % 2 ? 254 : 0, 5) << i;
    }
}

/// Ten photos of 100 bytes each, one every second.
TEST(RemainingTimeEstimate, WithEightProcessorsThereIsNoneBeforeIndexNine)
{
    RemainingTimeEstimate estimate(8, 12, 1200);
    for (uint64_t index = 0; index < 9; ++index)
        EXPECT_EQ(estimate.secondsLeftAfter(index, 100, static_cast<double>(index + 1)), -1) << index;
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(9, 100, 10), 2);
}

TEST(RemainingTimeEstimate, KeepsItsTotalUntilAFifthOfTheWay)
{
    RemainingTimeEstimate estimate(1, 20, 2000);
    EXPECT_EQ(estimate.secondsLeftAfter(0, 100, 1), -1);
    EXPECT_EQ(estimate.secondsLeftAfter(1, 100, 2), -1);
    // 300 of 2000 bytes in 3 seconds: 20 seconds in all.
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(2, 100, 3), 17);
    // Slower, but index 3 is no multiple of 20 / 5.
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(3, 100, 8), 12);
    // Index 4 is one: 500 bytes in 10 seconds make 40.
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(4, 100, 10), 30);
}

TEST(RemainingTimeEstimate, IsMadeAnewWithEachOfFivePhotos)
{
    RemainingTimeEstimate estimate(1, 5, 1000);
    (void)estimate.secondsLeftAfter(0, 50, 0.25);
    (void)estimate.secondsLeftAfter(1, 50, 0.5);
    // 200 bytes in a second: 5 in all.
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(2, 100, 1), 4);
    // 600 in two: 3.33, not 5.
    EXPECT_NEAR(estimate.secondsLeftAfter(3, 400, 2), 1.333, 0.001);
}

TEST(RemainingTimeEstimate, StartsAnewWhereItRanOut)
{
    RemainingTimeEstimate estimate(1, 20, 2000);
    (void)estimate.secondsLeftAfter(0, 100, 0.5);
    (void)estimate.secondsLeftAfter(1, 100, 1);
    // 300 bytes in 2 seconds: 13.33 seconds in all.
    EXPECT_NEAR(estimate.secondsLeftAfter(2, 100, 2), 11.333, 0.001);
    // The 15th second is past that: 1600 bytes are left, at 400 in 15 seconds.
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(3, 100, 15), 60);
    // The next one estimates anew, though its index is no multiple of four: 2000 bytes at 600 in 16 seconds.
    EXPECT_NEAR(estimate.secondsLeftAfter(5, 200, 16), 2000 * 16 / 600.0 - 16, 0.001);
}

TEST(RemainingTimeEstimate, KeepsATotalOfExactlyOneSecond)
{
    RemainingTimeEstimate estimate(1, 20, 2000);
    (void)estimate.secondsLeftAfter(0, 500, 0.125);
    (void)estimate.secondsLeftAfter(1, 250, 0.25);
    // 1000 of 2000 bytes in half a second.
    EXPECT_EQ(estimate.secondsLeftAfter(2, 250, 0.5), 0.5);
    EXPECT_EQ(estimate.secondsLeftAfter(3, 0, 0.75), 0.25);
}

TEST(RemainingTimeEstimate, IsUnknownForPhotosWithoutALength)
{
    RemainingTimeEstimate estimate(1, 20, 0);
    EXPECT_EQ(estimate.secondsLeftAfter(5, 1, 3), -1) << "one byte tells nothing";
    EXPECT_NE(estimate.secondsLeftAfter(6, 1, 3), -1);
}

TEST(RemainingTimeEstimate, SurvivesFewerPhotosThanFifths)
{
    RemainingTimeEstimate estimate(1, 4, 400);
    (void)estimate.secondsLeftAfter(0, 100, 1);
    (void)estimate.secondsLeftAfter(1, 100, 2);
    EXPECT_DOUBLE_EQ(estimate.secondsLeftAfter(2, 100, 3), 1);
}

TEST_F(SilentVideoTest, TellsTheDocumentsNameAsItsTitle)
{
    context.setDocumentURL(folder.url("Summer in Rome.slides"));
    finishFrames(5);
    const auto asset = write(5);
    ASSERT_TRUE(asset);
    EXPECT_EQ(testmovie::probe(asset->URL().path(), "format_tags=title"), (std::vector<std::string>{"Summer in Rome"}));
}

TEST_F(SilentVideoTest, CopiesFramesOfAnEarlierMovie)
{
    const auto hashesOf = [](const AVURLAssetPtr& movie) {
        return testmovie::outputOf("ffmpeg -v error -i " + testmovie::shellWord(movie->URL().path()) +
                                   " -c copy -f framehash -");
    };
    for (const char* codec : {"jpeg", "avc1"}) {
        indexes.clear();
        finishFrames(11);
        const auto whole = write(11, nullptr, 3, codec);
        ASSERT_TRUE(whole);
        const auto other = write(11, nullptr, 3, codec);
        // Those that are made are of both kinds that an encoder of H.264 tells apart, and of one alone.
        for (const std::vector<size_t>& made : std::vector<std::vector<size_t>>{{}, {7}, {0, 3, 4, 10}}) {
            indexes = made;
            TestVideoStageContext again(folder.url(), folder.url());
            fakeStages(again);
            FrameSource source{other->URL(), {}};
            for (size_t i = 0; i < 11; ++i)
                if (std::ranges::count(made, i) == 0)
                    source.frames.emplace(i, i);
            again.setFrameSource(source);
            const auto movie = videoWithPhotos(again, makePhotos(11), 0, false, 3, codec, nullptr, processorCount);
            ASSERT_TRUE(movie);
            EXPECT_EQ(hashesOf(movie), hashesOf(whole)) << codec << " " << made.size();
        }
    }
}

TEST_F(SilentVideoTest, MakesAllFramesWhereThoseOfAnEarlierMovieAreNotThere)
{
    finishFrames(11);
    const auto whole = write(11);
    ASSERT_TRUE(whole);
    for (const auto& [source, why] : std::vector<std::pair<FrameSource, std::string>>{
             {{folder.url("none.mov"), {{0, 0}}}, "none.mov"},
             {{whole->URL(), {{0, 11}}}, "has other frames than it is said to have"},
             {{whole->URL(), {{11, 0}}}, "has other frames than it is said to have"},
             {{whole->URL(), {}}, "has other frames than it is said to have"}}) {
        TestVideoStageContext again(folder.url(), folder.url());
        fakeStages(again);
        again.setFrameSource(source);
        LogRecorder log;
        EXPECT_TRUE(videoWithPhotos(again, makePhotos(11), 0, false, 3, std::nullopt, nullptr, processorCount));
        EXPECT_EQ(photosToRender, 11u);
        EXPECT_THAT(log.lines(), Contains(HasSubstr(why)));
    }
    // Without those photos that failed, the places are others.
    const PhotoList photos = makePhotos(12);
    failedPhotos = {photos[3]};
    TestVideoStageContext again(folder.url(), folder.url());
    fakeStages(again);
    again.setFrameSource({whole->URL(), {{0, 1}}});
    const auto movie = videoWithPhotos(again, photos, 0, false, 3, std::nullopt, nullptr, processorCount);
    ASSERT_TRUE(movie);
    EXPECT_TRUE(TemporaryFolder::contentsOf(movie->URL().path()) == TemporaryFolder::contentsOf(whole->URL().path()));
}

TEST_F(SilentVideoTest, KeepsNothingOfFramesThatWereCodedInAnotherWay)
{
    finishFrames(11);
    const auto jpeg = write(11);
    ASSERT_TRUE(jpeg);
    const size_t moviesBefore = movies().size();
    TestVideoStageContext again(folder.url(), folder.url());
    fakeStages(again);
    again.setFrameSource({jpeg->URL(), {{0, 0}}});
    LogRecorder log;
    EXPECT_FALSE(videoWithPhotos(again, makePhotos(11), 0, false, 3, "avc1", nullptr, processorCount));
    EXPECT_TRUE(again.isCancelled());
    EXPECT_THAT(log.lines(), Contains(HasSubstr("was coded by another version of the encoder")));
    EXPECT_EQ(movies().size(), moviesBefore);
}

TEST_F(SilentVideoTest, JoinsPiecesInPlaceOfFrames)
{
    // The same frames as one movie, and as two of 6 and 5.
    finishFrames(11);
    const auto whole = write(11);
    ASSERT_TRUE(whole);
    const auto piece = [&](size_t first, size_t count) {
        indexes.clear();
        TestVideoStageContext other(folder.url(), folder.url());
        fakeStages(other);
        other.fillBufferArray = [=](VideoStageContext& stage, const PhotoList&, CGSize) {
            auto frames = std::make_shared<FrameList>();
            for (size_t i = 0; i < count; ++i) {
                FrameRecord record = makeRecord(first + i);
                record.index = i;
                frames->append(std::move(record));
            }
            stage.setImageBuffers(frames);
        };
        return videoWithPhotos(other, makePhotos(count), 0, false, 3, std::nullopt, nullptr, processorCount)->URL();
    };
    const auto first = piece(0, 6);
    const auto second = piece(6, 5);
    const std::string expected = testmovie::outputOf("ffmpeg -v error -i " + testmovie::shellWord(whole->URL().path()) +
                                                     " -c copy -f framehash -");
    context.setPieces({first, second});
    const auto joined = write(11);
    ASSERT_TRUE(joined);
    EXPECT_EQ(testmovie::outputOf("ffmpeg -v error -i " + testmovie::shellWord(joined->URL().path()) +
                                  " -c copy -f framehash -"),
              expected);
    context.finish();
    EXPECT_FALSE(updatesOf(context, "VideoCreationTitleRenderingVideo").empty());

    const size_t moviesBefore = movies().size();
    for (const auto& [pieces, why] : std::vector<std::pair<std::vector<platform::NSURL>, std::string>>{
             {{first}, "the pieces hold 6 frames together, instead of 11"},
             {{first, folder.url("none.mov")}, "none.mov"}}) {
        TestVideoStageContext other(folder.url(), folder.url());
        fakeStages(other);
        other.setPieces(pieces);
        LogRecorder log;
        EXPECT_FALSE(videoWithPhotos(other, makePhotos(11), 0, false, 3, std::nullopt, nullptr, processorCount));
        EXPECT_TRUE(other.isCancelled());
        EXPECT_THAT(log.lines(), Contains(HasSubstr(why)));
        EXPECT_EQ(movies().size(), moviesBefore) << "nothing is left of it";
    }
    // The writer takes no frame of a piece more than there are photos.
    TestVideoStageContext other(folder.url(), folder.url());
    fakeStages(other);
    other.setPieces({first, second});
    EXPECT_FALSE(videoWithPhotos(other, makePhotos(10), 0, false, 3, std::nullopt, nullptr, processorCount));
    EXPECT_EQ(movies().size(), moviesBefore);
}

} // namespace
