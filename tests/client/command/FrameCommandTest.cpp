#include "client/command/FrameCommand.h"

#include "client/command/options/CreateOptions.h"
#include "client/command/terminal/ExitStatus.h"
#include "platform/files/NSFileManager.h"
#include "platform/files/NSUserDefaults.h"
#include "platform/graphics/NSImage.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/FacePictures.h"
#include "tests/support/TemporaryFolder.h"
#include "video/PhotoFrame.h"

#include <cmath>
#include <memory>
#include <string>
#include <unistd.h>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace stillora;

namespace {

using platform::NSURL;
using testing::HasSubstr;
using testing::StartsWith;
using namespace test;

using Arguments = std::vector<std::string>;

FrameOptions framed(const Arguments& arguments)
{
    const Parsed<FrameOptions> parsed = parseFrame({arguments.begin() + 1, arguments.end()});
    const auto* options = std::get_if<FrameOptions>(&parsed);
    EXPECT_NE(options, nullptr);
    return options ? *options : FrameOptions{};
}

CommandLineAnswer answered(const Arguments& arguments)
{
    const Parsed<FrameOptions> parsed = parseFrame({arguments.begin() + 1, arguments.end()});
    const auto* answer = std::get_if<CommandLineAnswer>(&parsed);
    EXPECT_NE(answer, nullptr) << "the command line was taken";
    return answer ? *answer : CommandLineAnswer{};
}

constexpr size_t kRedComponent = 1;

/// Of the colour that boxes around faces have.
bool isYellow(const uint8_t* pixel)
{
    return pixel[kRedComponent] == 255 && pixel[kRedComponent + 1] == 220 && pixel[kRedComponent + 2] == 0;
}

bool isGreen(const uint8_t* pixel)
{
    return pixel[kRedComponent] == 0 && pixel[kRedComponent + 1] == 255 && pixel[kRedComponent + 2] == 128;
}

class FrameCommand : public testing::Test {
protected:
    struct Result {
        int status = 0;
        std::string out;
        std::string err;
    };

    Result run(FrameOptions options)
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        Result result;
        result.status = runFrameCommand(options);
        result.out = testing::internal::GetCapturedStdout();
        result.err = testing::internal::GetCapturedStderr();
        return result;
    }

    void makePhoto(const CGImage& image)
    {
        const auto png = platform::NSImage(std::make_shared<const CGImage>(image), {}).pngData();
        ASSERT_TRUE(png);
        ASSERT_TRUE(platform::NSFileManager::defaultManager().writeContents(*png, NSURL::fileURLWithPath(photo_)));
    }

    CGImage madeFrame()
    {
        const auto source = platform::CGImageSource::createWithURL(NSURL::fileURLWithPath(output_));
        const auto image = source ? source->createImageAtIndex() : nullptr;
        EXPECT_NE(image, nullptr);
        return image ? *image : CGImage{};
    }

    TemporaryFolder folder_;
    const std::string photo_ = folder_.path("photo.png");
    const std::string output_ = folder_.path("frame.png");
};

} // namespace

TEST(FrameCommandLine, HasTheDefaultsThatTheHelpTells)
{
    const FrameOptions options = framed({"frame", "a.jpg", "-o", "b.png"});
    EXPECT_EQ(options.photo, "a.jpg");
    EXPECT_EQ(options.output, "b.png");
    EXPECT_EQ(options.quality, kAutomaticQuality);
    EXPECT_FALSE(options.reducesBorders || options.showsFaces);
    EXPECT_EQ(options.watermark, Watermark::Usual);
}

TEST(FrameCommandLine, ReadsEveryOption)
{
    const FrameOptions options =
        framed({"frame", "--reduce-borders", "--quality", "720", "--output=b.png", "--show-faces", "a.jpg"});
    EXPECT_EQ(options.photo, "a.jpg");
    EXPECT_EQ(options.output, "b.png");
    EXPECT_EQ(options.quality, 720);
    EXPECT_EQ(framed({"frame", "--quality", "smallest", "-o", "b.png", "a.jpg"}).quality, kSmallestQuality);
    EXPECT_TRUE(options.reducesBorders && options.showsFaces);
    EXPECT_EQ(framed({"frame", "a.jpg", "-o", "b.png", "--no-watermark"}).watermark, Watermark::Absent);
    EXPECT_EQ(framed({"frame", "a.jpg", "-o", "b.png", "--watermark"}).watermark, Watermark::Drawn);
}

TEST(FrameCommandLine, SaysWhatIsWrong)
{
    struct Case {
        Arguments arguments;
        std::string sentence;
    };
    for (const Case& each :
         {Case{{"frame", "-o", "b.png"}, "no photo was given"},
          Case{{"frame", "", "-o", "b.png"}, "no photo was given"},
          Case{{"frame", "a.jpg"}, "-o takes the path of the PNG file to be made"},
          Case{{"frame", "a.jpg", "-o", ""}, "-o takes the path of the PNG file to be made"},
          Case{{"frame", "a.jpg", "-o", "b.TIFF"}, "-o takes the path of a .png file, not of a .tiff file"},
          Case{{"frame", "a.jpg", "-o", "b.png", "--quality", "700"}, "--quality takes auto, smallest, 240"},
          Case{{"frame", "a.jpg", "b.jpg", "-o", "c.png"}, "b.jpg"},
          Case{{"frame", "a.jpg", "-o", "b.png", "--watermark", "--no-watermark"}, "contradict"},
          Case{{"frame", "a.jpg", "-o", "b.png", "--seconds", "3"}, "--seconds"}}) {
        SCOPED_TRACE(each.sentence);
        const CommandLineAnswer answer = answered(each.arguments);
        EXPECT_EQ(answer.exitStatus, kExitUsage);
        EXPECT_THAT(answer.text, HasSubstr(each.sentence));
        EXPECT_THAT(answer.text, HasSubstr("stillora frame --help"));
    }
}

TEST(FrameCommandLine, HelpsWithItsOptions)
{
    const CommandLineAnswer answer = answered({"frame", "--help"});
    EXPECT_EQ(answer.exitStatus, kExitDone);
    EXPECT_THAT(answer.text, StartsWith("Usage: stillora frame PHOTO -o OUT.png"));
}

TEST_F(FrameCommand, SavesTheFrameThatAMovieWouldShow)
{
    makePhoto(scaled(photo("astronaut.png"), 1400, 1600));
    const Result result = run(
        {.photo = photo_, .output = output_, .quality = 720, .reducesBorders = true, .watermark = Watermark::Drawn});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.out, output_ + "\n");
    EXPECT_EQ(result.err, "stillora: 1280 x 720, 1 face\n");

    const auto expected = renderPhotoFrame({.photo = NSURL::fileURLWithPath(photo_),
                                            .photoSize = {1400, 1600},
                                            .frame = {1280, 720},
                                            .reduceBorders = true,
                                            .carriesWatermark = true});
    ASSERT_TRUE(expected);
    const CGImage image = madeFrame();
    ASSERT_EQ(image.width, 1280U);
    ASSERT_EQ(image.height, 720U);
    ASSERT_EQ(expected->buffer->lockBaseAddress(), platform::kCVReturnSuccess);
    size_t different = 0;
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x) {
            const uint8_t* pixel = expected->buffer->baseAddress() + y * expected->buffer->bytesPerRow() + x * 4;
            different += std::equal(pixel + 1, pixel + 4, image.row(y) + x * 4 + 1) ? 0 : 1;
        }
    expected->buffer->unlockBaseAddress();
    EXPECT_EQ(different, 0U);
}

TEST_F(FrameCommand, LeavesOutTheWatermarkWhereItIsNotWanted)
{
    makePhoto(blank(320, 240));
    const EnvironmentVariable config{"XDG_CONFIG_HOME", folder_.path("config")};
    const auto isMarked = [&](Watermark watermark) {
        EXPECT_EQ(run({.photo = photo_, .output = output_, .quality = 240, .watermark = watermark}).status, kExitDone);
        const CGImage image = madeFrame();
        for (size_t y = 0; y < image.height; ++y)
            for (size_t x = 0; x < image.width; ++x)
                if (!std::equal(image.row(y) + x * 4, image.row(y) + x * 4 + 4, image.row(0)))
                    return true;
        return false;
    };
    EXPECT_TRUE(isMarked(Watermark::Drawn));
    EXPECT_FALSE(isMarked(Watermark::Absent));
    ASSERT_TRUE(platform::NSUserDefaults::standardUserDefaults().setObjectForKey(false, "drawsWatermark"));
    EXPECT_FALSE(isMarked(Watermark::Usual));
    EXPECT_TRUE(isMarked(Watermark::Drawn)) << "settings give way to what is asked for";
}

TEST_F(FrameCommand, DrawsABoxAroundEachFaceAndAroundAll)
{
    CGImage two = blank(1280, 720);
    const CGImage head = cropped(photo("astronaut.png"), {{128, 316}, {190, 190}});
    paste(two, head, {{200, 100}, {200, 200}});
    paste(two, head, {{900, 400}, {200, 200}});
    makePhoto(two);
    const Result result = run({.photo = photo_, .output = output_, .quality = 720, .showsFaces = true});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.err, "stillora: 1280 x 720, 2 faces\n");

    const CGImage image = madeFrame();
    std::vector<CGRect> yellow;
    std::vector<CGRect> green;
    for (size_t y = 0; y < image.height; ++y)
        for (size_t x = 0; x < image.width; ++x) {
            const CGRect place = fromTop(static_cast<double>(x), static_cast<double>(y), 1, 1, 720);
            if (isYellow(image.row(y) + x * 4))
                yellow.push_back(place);
            if (isGreen(image.row(y) + x * 4))
                green.push_back(place);
        }
    // The outlines reach from the lower left face to the upper right one, and the face of a head fills half of it.
    const double scale = 200.0 / 190;
    const CGRect lower = moved(zoomed(moved(kAstronautFace, -128, -316), scale), 200, 100);
    const CGRect upper = moved(zoomed(moved(kAstronautFace, -128, -316), scale), 900, 400);
    ASSERT_FALSE(yellow.empty());
    ASSERT_FALSE(green.empty());
    const CGRect all = unionOf({lower, upper});
    for (const CGRect& outline : {unionOf(yellow), unionOf(green)}) {
        EXPECT_NEAR(outline.origin.x, all.origin.x, 30);
        EXPECT_NEAR(outline.origin.y, all.origin.y, 30);
        EXPECT_NEAR(right(outline), right(all), 30);
        EXPECT_NEAR(top(outline), top(all), 30);
    }
    // Only lines are drawn: the middle of the face shows the face, the middle of all the grey in between.
    EXPECT_FALSE(isYellow(image.row(720 - 210) + 300 * 4));
    EXPECT_EQ(*(image.row(340) + 660 * 4 + 1), 128);
}

TEST_F(FrameCommand, ChoosesTheLargestFrameThatDoesNotEnlargeThePhoto)
{
    makePhoto(blank(900, 500));
    const Result result = run({.photo = photo_, .output = output_});
    EXPECT_EQ(result.status, kExitDone);
    EXPECT_EQ(result.err, "stillora: 854 x 480\n");
    EXPECT_EQ(madeFrame().width, 854U);
}

TEST_F(FrameCommand, ReplacesAnOlderPicture)
{
    makePhoto(blank(640, 360));
    folder_.makeFile("frame.png", "old");
    EXPECT_EQ(run({.photo = photo_, .output = output_}).status, kExitDone);
    EXPECT_EQ(madeFrame().width, 640U);
}

TEST_F(FrameCommand, NeverReplacesThePhoto)
{
    makePhoto(blank(640, 360));
    const std::string before = TemporaryFolder::contentsOf(photo_);
    ASSERT_EQ(link(photo_.c_str(), folder_.path("same.png").c_str()), 0);
    ASSERT_EQ(symlink(photo_.c_str(), output_.c_str()), 0);
    for (const std::string& output : {photo_, folder_.path("./photo.png"), folder_.path("same.png"), output_}) {
        const Result result = run({.photo = photo_, .output = output});
        EXPECT_EQ(result.status, kExitUsage);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "stillora: the frame would replace the photo " + photo_ + "\n");
    }
    EXPECT_EQ(TemporaryFolder::contentsOf(photo_), before);
}

TEST_F(FrameCommand, SaysWhyAPhotoCannotBeUsed)
{
    folder_.makeFile("photo.png", "no picture");
    for (const std::string& path : {photo_, folder_.path("absent.jpg"), folder_.path()}) {
        SCOPED_TRACE(path);
        const Result result = run({.photo = path, .output = output_});
        EXPECT_EQ(result.status, kExitBadInput);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("stillora: " + path + ": "));
        EXPECT_NE(access(output_.c_str(), F_OK), 0);
    }
}

TEST_F(FrameCommand, SaysWhyThePictureCannotBeSaved)
{
    makePhoto(blank(640, 360));
    for (const std::string& output : {folder_.path("absent/frame.png"), folder_.makeFolder("folder.png")}) {
        SCOPED_TRACE(output);
        const Result result = run({.photo = photo_, .output = output});
        EXPECT_EQ(result.status, kExitFailed);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("stillora: "));
    }
}
