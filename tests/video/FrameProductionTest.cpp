#include "video/FrameProduction.h"

#include "platform/faces/CIDetector.h"
#include "platform/media/AVAsset.h"
#include "platform/writer/AVAssetWriter.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestMovie.h"
#include "tests/support/TestPicture.h"
#include "tests/video/TestVideoStageContext.h"

#include <future>
#include <gtest/gtest.h>

#include <algorithm>

using platform::CGImage;
using platform::CGRect;
using platform::CGSize;
using test::Color;
using test::kBlue;
using test::kGreen;
using test::kRed;
using test::kWhite;

namespace {

constexpr const char* kOperation =
    "-[morStilloraVideoCreator _fillBufferArrayUsingPhotos:maxVidSize:reduceBorders:] - ";
constexpr Color kBlack = {0, 0, 0};
constexpr int kLossy = 4;

CGImage pixelsOf(const FrameRecord& record)
{
    auto& buffer = *record.buffer;
    CGImage image;
    image.width = buffer.width();
    image.height = buffer.height();
    image.bytesPerRow = buffer.bytesPerRow();
    EXPECT_EQ(buffer.lockBaseAddress(), platform::kCVReturnSuccess);
    image.pixels.assign(buffer.baseAddress(), buffer.baseAddress() + image.bytesPerRow * image.height);
    buffer.unlockBaseAddress();
    return image;
}

std::string numbered(int number)
{
    std::string name = "p";
    name += std::to_string(number);
    return name + ".jpg";
}

class FaceAt final : public platform::CIDetector {
public:
    explicit FaceAt(std::vector<CGRect> faces) : faces_(std::move(faces)) {}
    std::vector<CGRect> featuresInImage(const CGImage&) override { return faces_; }

private:
    const std::vector<CGRect> faces_;
};

class FrameProductionTest : public testing::Test {
protected:
    ~FrameProductionTest() override { platform::CIDetector::setFaceDetectorFactory({}); }

    MORPhotoPtr photo(const std::string& name, const test::Picture& picture, std::optional<int> orientation = {})
    {
        test::writeFile(folder_.path(name), test::jpegBytes(picture, {.orientation = orientation}));
        const bool isTurned = orientation && *orientation >= 5;
        return photoAt(folder_.path(name), isTurned ? picture.height : picture.width,
                       isTurned ? picture.width : picture.height);
    }

    static MORPhotoPtr photoAt(const std::string& path, size_t width, size_t height)
    {
        auto item = std::make_shared<MORPhoto>();
        item->setPhotoURL(test::url(path));
        item->setSize({static_cast<double>(width), static_cast<double>(height)});
        item->setFileSize(4321);
        return item;
    }

    void produce(const PhotoList& photos, CGSize size, bool reduceBorders = false)
    {
        fillBufferArray(context_, photos, size, reduceBorders);
        context_.finish();
    }

    /// A photo without the watermark: the second of three.
    FrameRecord unmarkedFrame(const MORPhotoPtr& item, CGSize size, bool reduceBorders = false)
    {
        const auto other = photo("other.jpg", test::plain(16, 16, kRed));
        produce({other, item, photo("third.jpg", test::plain(16, 16, kRed))}, size, reduceBorders);
        auto record = context_.imageBuffers()->take(1);
        EXPECT_TRUE(record);
        return record ? *record : FrameRecord{};
    }

    const TemporaryFolder folder_;
    TestVideoStageContext context_;
};

} // namespace

TEST_F(FrameProductionTest, MakesARecordOfEachPhoto)
{
    PhotoList photos;
    for (int i = 0; i < 6; ++i)
        photos.push_back(photo(numbered(i), test::plain(160, 120, {40 * i, 100, 50})));
    produce(photos, {320, 240});
    ASSERT_EQ(context_.imageBuffers()->count(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        const auto record = context_.imageBuffers()->take(i);
        ASSERT_TRUE(record);
        EXPECT_EQ(record->index, i);
        EXPECT_EQ(record->readBytes, 4321);
        EXPECT_EQ(record->buffer->width(), 320u);
        EXPECT_EQ(record->buffer->height(), 240u);
        EXPECT_EQ(record->buffer->baseAddress(), nullptr) << "unlocked";
        test::expectColor(pixelsOf(*record), 160, 100, {40 * static_cast<int>(i), 100, 50}, kLossy);
    }
}

TEST_F(FrameProductionTest, BeginsWithANewListAndMakesNothingOfNoPhotos)
{
    const auto before = std::make_shared<FrameList>();
    context_.setImageBuffers(before);
    produce({}, {320, 240});
    ASSERT_NE(context_.imageBuffers(), nullptr);
    EXPECT_NE(context_.imageBuffers(), before);
    EXPECT_EQ(context_.imageBuffers()->count(), 0u);
}

TEST_F(FrameProductionTest, CentresALandscapeBetweenBlackBorders)
{
    const auto record = unmarkedFrame(photo("a.jpg", test::quadrants(4000, 3000)), {1280, 720});
    const CGImage image = pixelsOf(record);
    EXPECT_EQ(test::extentOfOthers(image, kBlack), (CGRect{{160, 0}, {960, 720}}));
    test::expectColor(image, 400, 180, kRed, kLossy);
    test::expectColor(image, 880, 180, kGreen, kLossy);
    test::expectColor(image, 400, 540, kBlue, kLossy);
    test::expectColor(image, 880, 540, kWhite, kLossy);
    for (size_t y = 0; y < 720; y += 31)
        for (size_t x = 0; x < 1280; x += 17)
            ASSERT_EQ(image.row(y)[4 * x], 0xFF);
}

TEST_F(FrameProductionTest, ShowsASmallPhotoAtItsOwnSize)
{
    const auto record = unmarkedFrame(photo("a.jpg", test::quadrants(640, 480)), {1280, 720});
    EXPECT_EQ(test::extentOfOthers(pixelsOf(record), kBlack), (CGRect{{320, 120}, {640, 480}}));
}

TEST_F(FrameProductionTest, ShowsTheMiddleBandWhereBordersAreReduced)
{
    const auto record = unmarkedFrame(photo("a.jpg", test::gradient(4000, 3000)), {1280, 720}, true);
    const CGImage image = pixelsOf(record);
    EXPECT_EQ(test::extentOfOthers(image, kBlack), (CGRect{{0, 0}, {1280, 720}}));
    const test::Picture whole = test::gradient(1280, 960);
    for (const size_t y : {10u, 360u, 710u}) {
        const uint8_t* const expected = whole.at(640, y + 120);
        test::expectColor(image, 640, y, {expected[0], expected[1], expected[2]}, kLossy);
    }
}

TEST_F(FrameProductionTest, MovesTheBandToAFaceNearTheTop)
{
    // Thumbnail of 1280 x 960; the face lies right below the upper edge, which the band reaches first.
    platform::CIDetector::setFaceDetectorFactory([] {
        return std::make_unique<FaceAt>(std::vector<CGRect>{{{600, 860}, {80, 80}}});
    });
    const auto record = unmarkedFrame(photo("a.jpg", test::gradient(4000, 3000)), {1280, 720}, true);
    const CGImage image = pixelsOf(record);
    const test::Picture whole = test::gradient(1280, 960);
    for (const size_t y : {10u, 360u, 710u}) {
        const uint8_t* const expected = whole.at(640, y);
        test::expectColor(image, 640, y, {expected[0], expected[1], expected[2]}, kLossy);
    }
}

TEST_F(FrameProductionTest, CentresTheUnionOfFacesWhereThereIsRoom)
{
    // Thumbnail of 1280 x 2560; two faces around 300 from the bottom.
    platform::CIDetector::setFaceDetectorFactory([] {
        return std::make_unique<FaceAt>(std::vector<CGRect>{{{500, 400}, {80, 80}}, {{700, 440}, {80, 100}}});
    });
    const auto record = unmarkedFrame(photo("a.jpg", test::gradient(1500, 3000)), {1280, 720}, true);
    const CGImage image = pixelsOf(record);
    const test::Picture whole = test::gradient(1280, 2560);
    // The middle of the faces, at 470, lies in the middle of the frame: the band begins at 110.
    for (const size_t y : {10u, 360u, 710u}) {
        const uint8_t* const expected = whole.at(640, 2560 - 110 - 720 + y);
        test::expectColor(image, 640, y, {expected[0], expected[1], expected[2]}, kLossy);
    }
}

TEST_F(FrameProductionTest, LooksForNoFaceWithoutReducingBorders)
{
    std::atomic<int> asked = 0;
    platform::CIDetector::setFaceDetectorFactory([&]() -> std::unique_ptr<platform::CIDetector> {
        ++asked;
        return nullptr;
    });
    unmarkedFrame(photo("a.jpg", test::quadrants(800, 600)), {320, 240}, false);
    EXPECT_EQ(asked, 0);
    unmarkedFrame(photo("b.jpg", test::quadrants(800, 500)), {320, 240}, true);
    EXPECT_GE(asked, 1);
}

TEST_F(FrameProductionTest, TurnsAPhotoUpright)
{
    const auto record = unmarkedFrame(photo("a.jpg", test::quadrants(800, 600), 6), {1280, 720});
    const CGImage image = pixelsOf(record);
    EXPECT_EQ(test::extentOfOthers(image, kBlack), (CGRect{{370, 0}, {540, 720}}));
    test::expectColor(image, 500, 180, kBlue, kLossy);
    test::expectColor(image, 780, 180, kRed, kLossy);
}

TEST_F(FrameProductionTest, ShowsTransparentPartsBlack)
{
    test::Picture picture{80, 60, 4, std::vector<uint8_t>(80 * 60 * 4)};
    for (size_t y = 0; y < 60; ++y)
        for (size_t x = 0; x < 80; ++x)
            std::ranges::copy(std::array<uint8_t, 4>{200, 100, 40, static_cast<uint8_t>(x < 40 ? 128 : 0)},
                              picture.at(x, y));
    test::save(picture, folder_.path("a.png"));
    const auto record = unmarkedFrame(photoAt(folder_.path("a.png"), 80, 60), {80, 60});
    const CGImage image = pixelsOf(record);
    test::expectColor(image, 20, 30, {100, 50, 20}, 2);
    test::expectColor(image, 60, 30, kBlack, 0);
    EXPECT_EQ(image.row(30)[4 * 60], 0xFF);
}

TEST_F(FrameProductionTest, MarksTheFramesThatCarryTheWatermark)
{
    PhotoList photos;
    for (int i = 0; i < 20; ++i)
        photos.push_back(photo(numbered(i), test::plain(320, 240, {120, 120, 120})));
    for (const bool drawsWatermark : {true, false}) {
        context_.setDrawsWatermark(drawsWatermark);
        produce(photos, {320, 240});
        for (size_t i = 0; i < 20; ++i) {
            const CGImage image = pixelsOf(*context_.imageBuffers()->take(i));
            bool isMarked = false;
            for (size_t y = 120; y < 240; ++y)
                for (size_t x = 0; x < 320; ++x)
                    isMarked = isMarked || std::abs(test::pixel(image, x, y)[0] - 120) > kLossy;
            EXPECT_EQ(isMarked, drawsWatermark && (i == 0 || i == 19 || (i >= 6 && i <= 14))) << i;
        }
    }
}

TEST_F(FrameProductionTest, MarksTheFramesOfAPartByTheirPlacesInTheMovie)
{
    PhotoList photos;
    for (int i = 0; i < 6; ++i)
        photos.push_back(photo(numbered(i), test::plain(320, 240, {120, 120, 120})));
    context_.setPart({4, 20});
    produce(photos, {320, 240});
    for (size_t i = 0; i < 6; ++i) {
        const CGImage image = pixelsOf(*context_.imageBuffers()->take(i));
        bool isMarked = false;
        for (size_t y = 120; y < 240; ++y)
            for (size_t x = 0; x < 320; ++x)
                isMarked = isMarked || std::abs(test::pixel(image, x, y)[0] - 120) > kLossy;
        EXPECT_EQ(isMarked, i >= 2) << i;
    }
}

TEST_F(FrameProductionTest, StandsTheTwoLinesOfTheWatermarkAtTheirHeights)
{
    for (const auto& [height, first, second] : {std::tuple<int, int, int>{720, 108, 18}, {360, 54, 9}, {240, 36, 6}}) {
        const auto size = static_cast<size_t>(height);
        produce({photo("a.jpg", test::plain(16 * size / 9, size, {120, 120, 120}))},
                {16.0 * height / 9, static_cast<double>(height)});
        const CGImage image = pixelsOf(*context_.imageBuffers()->take(0));
        // Rows, counted from the bottom, that hold anything of the text.
        std::vector<int> rows;
        for (size_t y = 0; y < image.height; ++y)
            for (size_t x = 0; x < image.width; ++x)
                if (std::abs(test::pixel(image, x, y)[0] - 120) > 10) {
                    rows.insert(rows.begin(), static_cast<int>(image.height - 1 - y));
                    break;
                }
        ASSERT_FALSE(rows.empty());
        const double fontSize = height / 10.0;
        const auto gap = std::ranges::adjacent_find(rows, [](int a, int b) { return b > a + 1; });
        ASSERT_NE(gap, rows.end()) << "two lines with a gap between them";
        // The letters stand on a base line about a fifth of the size above the box, from where they reach about three
        // quarters of it upwards. The lower line may have letters below its base line.
        EXPECT_NEAR(*(gap + 1), first + 0.21 * fontSize, 0.06 * fontSize + 2) << height;
        EXPECT_NEAR(rows.back(), first + 0.95 * fontSize, 0.06 * fontSize + 2) << height;
        EXPECT_GE(rows.front(), second - 1) << height;
        EXPECT_NEAR(*gap, second + 0.95 * fontSize, 0.08 * fontSize + 2) << height;
    }
}

TEST_F(FrameProductionTest, MakesAnIconOfThePhoto)
{
    const auto record = unmarkedFrame(photo("a.jpg", test::quadrants(800, 400)), {320, 240});
    ASSERT_NE(record.icon, nullptr);
    EXPECT_EQ(record.icon->size(), (CGSize{53, 26.5}));
    test::expectColor(*record.icon->image(), 10, 6, kRed, kLossy);
    test::expectColor(*record.icon->image(), 42, 20, kWhite, kLossy);
    EXPECT_EQ(unmarkedFrame(photo("b.jpg", test::quadrants(400, 800)), {320, 240}).icon->size(), (CGSize{26.5, 53}));
}

TEST_F(FrameProductionTest, GivesAPhotoThatOccursTwiceTheIndexOfItsFirstPlace)
{
    const auto twice = photo("a.jpg", test::plain(64, 64, kRed));
    const auto once = photo("b.jpg", test::plain(64, 64, kBlue));
    produce({once, twice, twice}, {64, 64});
    EXPECT_EQ(context_.imageBuffers()->count(), 3u);
    EXPECT_TRUE(context_.imageBuffers()->take(0));
    EXPECT_TRUE(context_.imageBuffers()->take(1));
    EXPECT_TRUE(context_.imageBuffers()->take(1));
    EXPECT_FALSE(context_.imageBuffers()->contains(2));
}

TEST_F(FrameProductionTest, LogsAPhotoThatCannotBeOpenedAndMakesNoFrame)
{
    const LogRecorder log;
    const auto url = test::url(folder_.path("missing file.jpg"));
    produce({photoAt(url.path(), 100, 100)}, {320, 240});
    EXPECT_EQ(context_.imageBuffers()->count(), 0u);
    EXPECT_EQ(log.lines(),
              (std::vector<std::string>{std::string(kOperation) +
                                        "could not instantiate image source for URL: " + url.absoluteString()}));
}

TEST_F(FrameProductionTest, LogsAPhotoThatCannotBeDecodedAndMakesNoFrame)
{
    const LogRecorder log;
    test::writeFile(folder_.path("a.jpg"), {0xFF, 0xD8, 0xFF, 0xD9});
    const auto url = test::url(folder_.path("a.jpg"));
    produce({photoAt(url.path(), 100, 100)}, {320, 240});
    EXPECT_EQ(context_.imageBuffers()->count(), 0u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{std::string(kOperation) + "img couldn't be created for " +
                                                     url.absoluteString()}));
}

TEST_F(FrameProductionTest, LogsAFrameThatCannotBeMade)
{
    const LogRecorder log;
    produce({photo("a.jpg", test::plain(64, 64, kRed))}, {20000, 20});
    EXPECT_EQ(context_.imageBuffers()->count(), 0u);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{std::string(kOperation) + "pixelbuffer couldn't be created; " +
                                                     std::to_string(platform::kCVReturnInvalidSize)}));
}

TEST_F(FrameProductionTest, GoesOnWithTheOthersAfterABadPhoto)
{
    const LogRecorder log;
    PhotoList photos;
    for (int i = 0; i < 5; ++i)
        photos.push_back(photo(numbered(i), test::plain(64, 64, kRed)));
    photos[2] = photoAt(folder_.path("missing.jpg"), 64, 64);
    produce(photos, {64, 64});
    EXPECT_EQ(context_.imageBuffers()->count(), 4u);
    EXPECT_FALSE(context_.imageBuffers()->contains(2));
}

TEST_F(FrameProductionTest, ShowsAPhotoThatWasNeverMeasuredAsAPoint)
{
    const auto record =
        unmarkedFrame(photoAt(photo("a.jpg", test::plain(64, 64, kRed))->photoURL()->path(), 0, 0), {64, 64});
    EXPECT_EQ(test::extentOfOthers(pixelsOf(record), kBlack).size, (CGSize{1, 1}));
}

TEST_F(FrameProductionTest, QueuesNothingAfterACancel)
{
    context_.setIsCancelled(true);
    produce({photo("a.jpg", test::plain(64, 64, kRed))}, {64, 64});
    EXPECT_NE(context_.imageBuffers(), nullptr);
    EXPECT_EQ(context_.imageBuffers()->count(), 0u);
}

TEST_F(FrameProductionTest, StopsQueuingAtTheMomentOfACancel)
{
    // Nothing runs while the photos are queued; the third look is before the third photo.
    TestVideoStageContext context(1);
    std::mutex gate;
    gate.lock();
    context.bufferCreationQ().addOperationWithBlock([&] { const std::lock_guard waiting(gate); });
    int asked = 0;
    context.whenAskedForCancelled = [&] { context.setIsCancelled(++asked >= 3); };
    const auto item = photo("a.jpg", test::plain(64, 64, kRed));
    fillBufferArray(context, PhotoList(5, item), {64, 64}, false);
    EXPECT_EQ(context.bufferCreationQ().operationCount(), 3u) << "the one that waits and two photos";
    gate.unlock();
    context.finish();
    EXPECT_EQ(context.imageBuffers()->count(), 0u) << "those that were queued see the cancel when they start";
}

TEST_F(FrameProductionTest, OpensNoPhotoAfterACancel)
{
    TestVideoStageContext context(1);
    const LogRecorder log;
    std::promise<void> gate;
    context.bufferCreationQ().addOperationWithBlock([&] { gate.get_future().wait(); });
    // It would be logged that it cannot be opened.
    fillBufferArray(context, {photoAt("/nonexistent/a.jpg", 64, 64)}, {64, 64}, false);
    context.setIsCancelled(true);
    gate.set_value();
    context.finish();
    EXPECT_EQ(log.lines(), std::vector<std::string>());
}

TEST_F(FrameProductionTest, ThrowsAwayAFrameThatIsFinishedAfterACancel)
{
    TestVideoStageContext context(1);
    const auto item = photo("a.jpg", test::plain(64, 64, kRed));
    // Asked while queuing, at the start of the operation, and at its end.
    std::atomic<int> asked = 0;
    context.whenAskedForCancelled = [&] { context.setIsCancelled(++asked >= 3); };
    fillBufferArray(context, {item}, {64, 64}, false);
    context.finish();
    EXPECT_EQ(asked, 3);
    EXPECT_EQ(context.imageBuffers()->count(), 0u);
}

TEST_F(FrameProductionTest, LetsAFrameGoWhoseListIsGone)
{
    TestVideoStageContext context(1);
    std::mutex gate;
    gate.lock();
    context.bufferCreationQ().addOperationWithBlock([&] { const std::lock_guard waiting(gate); });
    fillBufferArray(context, {photo("a.jpg", test::plain(64, 64, kRed))}, {64, 64}, false);
    context.setImageBuffers(nullptr);
    gate.unlock();
    context.finish();
    EXPECT_EQ(context.imageBuffers(), nullptr);
}

TEST_F(FrameProductionTest, KeepsPacketsInPlaceOfFramesThatAreNotNeededYet)
{
    const TemporaryFolder folder;
    const auto writer =
        platform::AVAssetWriter::assetWriterWithURL(folder.url("movie.mov"), platform::kAVFileTypeQuickTimeMovie);
    const auto input = std::make_shared<platform::AVAssetWriterInput>(
        platform::kAVMediaTypeVideo, platform::AVVideoSettings{.width = 640, .height = 360});
    writer->addInput(input);
    // Half of them hang over for the writer's own threads, had it many.
    writer->setEncoderCount(1);
    ASSERT_TRUE(writer->startWriting());
    writer->startSessionAtSourceTime(platform::kCMTimeZero);
    const auto adaptor = std::make_shared<platform::AVAssetWriterInputPixelBufferAdaptor>(input);
    context_.setPixelBufferAdaptor(adaptor);
    const size_t before = platform::pixelBufferBytesInMemory();
    PhotoList photos;
    for (int i = 0; i < 12; ++i)
        photos.push_back(photo(numbered(i), test::plain(640, 360, {20 * i, 100, 50})));
    produce(photos, {640, 360});
    // What the writer's own thread has taken up may still be there.
    EXPECT_LE(platform::pixelBufferBytesInMemory() - before, size_t{640} * 360 * 4);

    for (size_t i = 0; i < 12; ++i)
        ASSERT_TRUE(adaptor->appendPixelBuffer(context_.imageBuffers()->take(i)->buffer,
                                               platform::CMTimeMake(static_cast<int64_t>(i), 1)));
    writer->finishWritingWithCompletionHandler({});
    ASSERT_EQ(writer->waitWhileWriting(60), platform::AVAssetWriterStatus::Completed);
    const auto frames = testmovie::decode(writer->outputURL().path(), 640, 360);
    ASSERT_EQ(frames.size(), 12u);
    for (size_t i = 0; i < 12; ++i)
        EXPECT_NEAR(testmovie::pixelAt(frames[i], 640, 320, 20)[0], 20 * static_cast<int>(i), kLossy) << i;
}
