#include "video/PhotoFrame.h"

#include "platform/faces/CIDetector.h"
#include "platform/faces/CIDetectorModule.h"
#include "platform/graphics/CGBitmapContext.h"
#include "tests/support/FacePictures.h"
#include "tests/support/LogRecorder.h"
#include "tests/support/TestPicture.h"
#include "video/FrameFailure.h"

#include <gtest/gtest.h>

#include <array>
#include <thread>
#include <vector>

using namespace test;
using platform::CGPoint;
using platform::CGSize;
using platform::CIDetector;
using platform::CIDetectorModule;

namespace {

constexpr CGSize kFrame = {1280, 720};

/// The head of the astronaut, square, and where the face lies in it.
constexpr CGRect kHead = {{128, 316}, {190, 190}};
const CGRect kFaceOfHead = moved(kAstronautFace, -kHead.origin.x, -kHead.origin.y);

class PhotoFrameTest : public testing::Test {
protected:
    PhotoFrameTest()
    {
        CIDetector::setFaceDetectorFactory([] { return CIDetectorModule::mainModule().makeDetector(); });
    }
    ~PhotoFrameTest() override { CIDetector::setFaceDetectorFactory({}); }

    /// A meadow with heads.
    /// @param heads  the lower left corners, and the side of all
    void makePhoto(CGSize size, const std::vector<CGPoint>& heads, double side)
    {
        size_ = size;
        CGImage image = scaled(photo("grass.png"), static_cast<size_t>(size.width), static_cast<size_t>(size.height));
        const CGImage head = cropped(photo("astronaut.png"), kHead);
        for (const CGPoint corner : heads)
            paste(image, head, {corner, {side, side}});
        Picture picture{.width = image.width, .height = image.height, .samples = {}};
        picture.samples.resize(image.width * image.height * 3);
        for (size_t y = 0; y < image.height; ++y)
            for (size_t x = 0; x < image.width; ++x)
                std::copy_n(image.row(y) + x * 4 + 1, 3, picture.at(x, y));
        writeFile(folder_.path("photo.jpg"), jpegBytes(picture));
    }

    PhotoFrameOptions options(bool reduceBorders) const
    {
        return {.photo = folder_.url("photo.jpg"), .photoSize = size_, .frame = kFrame, .reduceBorders = reduceBorders};
    }

    /// Where a face of the photo lies in the frame.
    CGRect inFrame(const PhotoFrame& frame, CGPoint head, double side) const
    {
        const double scale = static_cast<double>(frame.picture->width) / size_.width;
        const CGRect inPhoto = moved(zoomed(kFaceOfHead, side / kHead.size.width), head.x, head.y);
        return moved(zoomed(inPhoto, scale), frame.origin.x, frame.origin.y);
    }

    static void expectInside(const CGRect& face)
    {
        EXPECT_GE(face.origin.x, 0);
        EXPECT_GE(face.origin.y, 0);
        EXPECT_LE(right(face), kFrame.width);
        EXPECT_LE(top(face), kFrame.height);
    }

    /// The finished frame as a picture.
    static CGImage pixels(const PhotoFrame& frame)
    {
        auto& buffer = *frame.buffer;
        EXPECT_EQ(buffer.lockBaseAddress(), platform::kCVReturnSuccess);
        CGImage image{.width = buffer.width(),
                      .height = buffer.height(),
                      .bytesPerRow = buffer.bytesPerRow(),
                      .hasAlpha = false,
                      .pixels = {}};
        image.pixels.assign(buffer.baseAddress(), buffer.baseAddress() + image.bytesPerRow * image.height);
        buffer.unlockBaseAddress();
        return image;
    }

    TemporaryFolder folder_;
    CGSize size_;
};

} // namespace

TEST_F(PhotoFrameTest, ShowsAWholeFaceThatIsNearTheTopOfATallerPhoto)
{
    const CGPoint head = {1500, 2390};
    makePhoto({4000, 3000}, {head}, 600);
    const auto frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->picture->width, 1280U);
    EXPECT_EQ(frame->picture->height, 960U);
    ASSERT_EQ(frame->faces.size(), 1U);
    // The face is so near the edge that the photo's edge is reached first.
    EXPECT_EQ(frame->origin, (CGPoint{0, -240}));
    expectInside(inFrame(*frame, head, 600));

    // What the frame shows is a face again, and in the middle of the photo it would be cut.
    const auto shown = CIDetector::detectorOfTypeFace()->featuresInImage(pixels(*frame));
    ASSERT_EQ(shown.size(), 1U);
    expectNear(shown[0], inFrame(*frame, head, 600));
    EXPECT_GT(top(moved(inFrame(*frame, head, 600), 0, 120)), kFrame.height);
}

TEST_F(PhotoFrameTest, MovesAFaceToTheMiddleWhereThePhotoReachesFarEnough)
{
    // A photo so tall that the face can stand in the middle.
    const CGPoint head = {1000, 4200};
    makePhoto({3000, 6000}, {head}, 800);
    const auto frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    ASSERT_EQ(frame->faces.size(), 1U);
    EXPECT_EQ(frame->picture->width, 1280U);
    EXPECT_EQ(frame->origin.x, 0);
    const double middle = frame->origin.y + frame->faces[0].origin.y + frame->faces[0].size.height / 2;
    EXPECT_NEAR(middle, kFrame.height / 2, 0.5);
    expectInside(inFrame(*frame, head, 800));
}

TEST_F(PhotoFrameTest, ShowsAWholeFaceThatIsNearTheBottom)
{
    const CGPoint head = {2500, 10};
    makePhoto({4000, 3000}, {head}, 600);
    const auto frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->origin, (CGPoint{0, 0}));
    expectInside(inFrame(*frame, head, 600));
}

TEST_F(PhotoFrameTest, ShowsWholeFacesAtTheEndsOfAPanorama)
{
    for (const double x : {50.0, 5350.0}) {
        SCOPED_TRACE(x);
        const CGPoint head = {x, 700};
        makePhoto({6000, 2000}, {head}, 600);
        const auto frame = renderPhotoFrame(options(true));
        ASSERT_TRUE(frame);
        EXPECT_EQ(frame->picture->width, 2160U);
        EXPECT_EQ(frame->origin, (CGPoint{x < 3000 ? 0 : -880.0, 0}));
        expectInside(inFrame(*frame, head, 600));
    }
}

TEST_F(PhotoFrameTest, StaysInTheMiddleForAFaceThatIsThere)
{
    makePhoto({4000, 3000}, {{1700, 1200}}, 600);
    const auto frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->faces.size(), 1U);
    EXPECT_EQ(frame->origin, (CGPoint{0, -120}));
}

TEST_F(PhotoFrameTest, PutsTheMiddleOfAllFacesInTheMiddle)
{
    // One at the top, one in the middle: together they reach from 1450 to 2900 of 3000.
    makePhoto({4000, 3000}, {{500, 2350}, {3000, 1300}}, 500);
    const auto frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->faces.size(), 2U);
    EXPECT_EQ(frame->origin, (CGPoint{0, -240}));
    expectInside(inFrame(*frame, {500, 2350}, 500));
    expectInside(inFrame(*frame, {3000, 1300}, 500));
}

TEST_F(PhotoFrameTest, StaysInTheMiddleWithoutFacesAndWithoutADetector)
{
    makePhoto({4000, 3000}, {}, 0);
    auto frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    EXPECT_TRUE(frame->faces.empty());
    EXPECT_EQ(frame->origin, (CGPoint{0, -120}));

    makePhoto({4000, 3000}, {{1500, 2390}}, 600);
    CIDetector::setFaceDetectorFactory({});
    frame = renderPhotoFrame(options(true));
    ASSERT_TRUE(frame);
    EXPECT_EQ(frame->origin, (CGPoint{0, -120}));
}

TEST_F(PhotoFrameTest, LooksForFacesOnlyWhereTheyCanMoveThePhotoUnlessTold)
{
    int asked = 0;
    CIDetector::setFaceDetectorFactory([&] {
        ++asked;
        return CIDetectorModule::mainModule().makeDetector();
    });
    makePhoto({4000, 3000}, {{1500, 2390}}, 600);
    ASSERT_TRUE(renderPhotoFrame(options(false)));
    EXPECT_EQ(asked, 0) << "borders are kept";
    auto always = options(false);
    always.alwaysFindsFaces = true;
    const auto frame = renderPhotoFrame(always);
    ASSERT_TRUE(frame);
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(frame->faces.size(), 1U);
    EXPECT_EQ(frame->origin, (CGPoint{160, 0})) << "a photo that is shown whole does not move";

    makePhoto({1280, 720}, {{500, 500}}, 200);
    ASSERT_TRUE(renderPhotoFrame(options(true)));
    EXPECT_EQ(asked, 1) << "the photo fills the frame exactly";
    makePhoto({640, 480}, {{200, 300}}, 150);
    ASSERT_TRUE(renderPhotoFrame(options(true)));
    EXPECT_EQ(asked, 1) << "the photo is smaller than the frame";
}

TEST_F(PhotoFrameTest, EightAtOnceGiveTheSameFrames)
{
    makePhoto({2400, 1800}, {{900, 1430}}, 360);
    const auto expected = renderPhotoFrame(options(true));
    ASSERT_TRUE(expected);
    const auto expectedPixels = pixels(*expected).pixels;
    std::array<bool, 8> same{};
    {
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < same.size(); ++i)
            threads.emplace_back([&, i] {
                const auto frame = renderPhotoFrame(options(true));
                same[i] = frame && frame->faces == expected->faces && frame->origin == expected->origin &&
                          pixels(*frame).pixels == expectedPixels;
            });
    }
    for (size_t i = 0; i < same.size(); ++i)
        EXPECT_TRUE(same[i]) << i;
}

TEST_F(PhotoFrameTest, ReachesAllEdgesOfTheFrameWhateverTheSizeOfThePhoto)
{
    // White all over: what is black was not covered. 612 x 924 has the shape of one that left its last column black.
    CIDetector::setFaceDetectorFactory({});
    std::vector<CGSize> sizes = {{612, 924}, {924, 612}};
    for (int i = 0; i < 40; ++i)
        sizes.push_back({360.0 + 7 * i, 203.0 + 11 * (i % 23)});
    for (const CGSize size : sizes) {
        size_ = size;
        const Picture white = plain(static_cast<size_t>(size.width), static_cast<size_t>(size.height), {255, 255, 255});
        writeFile(folder_.path("photo.jpg"), jpegBytes(white));
        auto covering = options(true);
        covering.frame = {360, 203};
        const auto frame = renderPhotoFrame(covering);
        ASSERT_TRUE(frame);
        EXPECT_EQ(extentOfOthers(pixels(*frame), {0, 0, 0}), (CGRect{{0, 0}, {360, 203}}))
            << size.width << " x " << size.height;
    }
}

TEST_F(PhotoFrameTest, SaysWhyAPhotoCannotBeShown)
{
    LogRecorder log;
    EXPECT_FALSE(renderPhotoFrame({.photo = folder_.url("absent.jpg"), .photoSize = {100, 100}, .frame = kFrame}));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_NE(log.lines()[0].find("could not instantiate image source for URL: "), std::string::npos);
    EXPECT_FALSE(renderPhotoFrame({.photo = {}, .photoSize = {100, 100}, .frame = kFrame}));
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_TRUE(log.lines()[1].ends_with("could not instantiate image source for URL: (null)"));
}

TEST_F(PhotoFrameTest, IsTakenFromTheLogThatAPhotoGaveNone)
{
    LogRecorder log;
    const auto photo = folder_.url("no picture \u00e9.jpg");
    EXPECT_FALSE(renderPhotoFrame({.photo = photo, .photoSize = {100, 100}, .frame = kFrame}));
    writeFile(photo.path(), {0xFF, 0xD8, 0xFF, 0xD9});
    EXPECT_FALSE(renderPhotoFrame({.photo = photo, .photoSize = {100, 100}, .frame = kFrame}));
    save(plain(10, 10, kRed), folder_.path("good.png"));
    EXPECT_FALSE(renderPhotoFrame({.photo = folder_.url("good.png"), .photoSize = {10, 10}, .frame = {0, 0}}));
    ASSERT_EQ(log.lines().size(), 3U);
    EXPECT_EQ(photoOfFailedFrame(log.lines()[0]), photo.absoluteString());
    EXPECT_EQ(photoOfFailedFrame(log.lines()[1]), photo.absoluteString());
    EXPECT_EQ(photoOfFailedFrame(log.lines()[2]), "");
    for (const char* other :
         {"", "img couldn't be created for x", "-[morStilloraVideoCreator other] - img couldn't be"})
        EXPECT_EQ(photoOfFailedFrame(other), std::nullopt) << other;
}

TEST_F(PhotoFrameTest, WritesTheTwoLinesOfTheWatermarkInTheirFontColoursAndPlaces)
{
    struct Row {
        int height;
        int fontSize;
        double strokeWidth;
        CGPoint first;
        CGPoint second;
    };
    // The stroke is wider from a size of 50 on; halves and quarters of the size are cut off.
    for (const Row& row :
         {Row{360, 36, -1, {5, 54}, {5, 9}}, Row{479, 47, -1, {5, 70}, {5, 11}}, Row{499, 49, -1, {5, 73}, {5, 12}},
          Row{500, 50, -3, {5, 75}, {5, 12}}, Row{720, 72, -3, {5, 108}, {5, 18}}}) {
        SCOPED_TRACE(row.height);
        // Neither black nor white, so that both colours of the letters show.
        const auto height = static_cast<size_t>(row.height);
        writeFile(folder_.path("photo.jpg"), jpegBytes(plain(2 * height, height, {120, 120, 120})));
        PhotoFrameOptions marked = {.photo = folder_.url("photo.jpg"),
                                    .photoSize = {2.0 * row.height, static_cast<double>(row.height)},
                                    .frame = {2.0 * row.height, static_cast<double>(row.height)},
                                    .carriesWatermark = true};
        PhotoFrameOptions unmarked = marked;
        unmarked.carriesWatermark = false;
        const auto frame = renderPhotoFrame(marked);
        const auto plainFrame = renderPhotoFrame(unmarked);
        ASSERT_TRUE(frame && plainFrame);

        CGImage expected = pixels(*plainFrame);
        platform::CGBitmapContext context(expected.pixels.data(), expected.width, expected.height,
                                          expected.bytesPerRow);
        const platform::TextAttributes attributes = {
            .fontName = "Helvetica Neue Medium",
            .fontSize = static_cast<double>(row.fontSize),
            .foregroundColor = {.red = 1, .green = 1, .blue = 1, .alpha = 0.25},
            .strokeColor = {.red = 0, .green = 0, .blue = 0, .alpha = 0.5},
            .strokeWidth = row.strokeWidth};
        // Fonts that are not there are replaced, so that another name may be drawn with the same letters.
        EXPECT_EQ(watermarkAttributes(row.height), attributes);
        context.drawTextAtPoint("Created with Stillora for Mac", row.first, attributes);
        context.drawTextAtPoint(STILLORA_WEB_ADDRESS, row.second, attributes);
        EXPECT_TRUE(pixels(*frame).pixels == expected.pixels);
    }
}
