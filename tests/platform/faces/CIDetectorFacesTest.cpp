#include "platform/faces/CIDetector.h"
#include "platform/faces/CIDetectorModule.h"
#include "tests/support/FacePictures.h"
#include "tests/support/LogRecorder.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <thread>
#include <vector>

using namespace test;
using platform::CIDetector;
using platform::CIDetectorModule;

namespace {

class CIDetectorFaces : public testing::Test {
protected:
    void SetUp() override { ASSERT_NE(detector_, nullptr); }

    std::vector<CGRect> faces(const CGImage& image) { return detector_->featuresInImage(image); }

    void expectNoFaces(const CGImage& image, const std::string& what)
    {
        EXPECT_TRUE(faces(image).empty()) << what;
        EXPECT_TRUE(log_.lines().empty()) << what << ": " << log_.lines().front();
    }

    LogRecorder log_;
    std::unique_ptr<CIDetector> detector_ = CIDetector::detectorOfTypeFace();
};

CGImage noise(size_t width, size_t height)
{
    CGImage image = blank(width, height);
    std::minstd_rand random(7);
    for (uint8_t& sample : image.pixels)
        sample = static_cast<uint8_t>(random() >> 8);
    return image;
}

/// The face of the astronaut with some of what is around it, square.
CGImage head()
{
    return cropped(photo("astronaut.png"), {{128, 316}, {190, 190}});
}

/// Where the face lies in `head()`.
CGRect faceOfHead()
{
    return moved(kAstronautFace, -128, -316);
}

} // namespace

TEST_F(CIDetectorFaces, FindsTheOneFaceOfAPortrait)
{
    const auto found = faces(photo("astronaut.png"));
    ASSERT_EQ(found.size(), 1U);
    expectNear(found[0], kAstronautFace);
}

TEST_F(CIDetectorFaces, FindsAFaceInProfileInAGreyPhoto)
{
    const auto found = faces(photo("camera.png"));
    ASSERT_EQ(found.size(), 1U);
    expectNear(found[0], kCameraFace, 0.35);
}

TEST_F(CIDetectorFaces, FindsNoneWhereThereIsNone)
{
    for (const char* name : {"chelsea.png", "coffee.png", "brick.png", "grass.png", "gravel.png", "coins.png",
                             "hubble_deep_field.jpg", "rocket.jpg", "page.png", "clock_motion.png", "moon.png"})
        expectNoFaces(photo(name), name);
}

TEST_F(CIDetectorFaces, FindsNoneInOneColourNorInNoise)
{
    expectNoFaces(blank(1280, 960, 0), "black");
    expectNoFaces(blank(1280, 960, 255), "white");
    expectNoFaces(noise(1280, 960), "noise");
}

TEST_F(CIDetectorFaces, CountsFromTheLowerLeftCorner)
{
    CGImage high = blank(1200, 1600);
    paste(high, head(), {{0, 1300}, {190, 190}});
    CGImage low = blank(1200, 1600);
    paste(low, head(), {{0, 60}, {190, 190}});
    expectNear(unionOf(faces(high)), moved(faceOfHead(), 0, 1300));
    expectNear(unionOf(faces(low)), moved(faceOfHead(), 0, 60));
}

TEST_F(CIDetectorFaces, FindsTheSameFaceAtEverySizeOfThePhoto)
{
    const CGImage astronaut = photo("astronaut.png");
    for (const size_t side : {160, 333, 1024, 2048, 3001}) {
        SCOPED_TRACE(side);
        const auto found = faces(scaled(astronaut, side, side));
        ASSERT_EQ(found.size(), 1U);
        expectNear(found[0], zoomed(kAstronautFace, static_cast<double>(side) / 512));
    }
}

TEST_F(CIDetectorFaces, FindsASmallFaceInALargePhoto)
{
    CGImage image = scaled(photo("grass.png"), 4000, 3000);
    const CGRect place = {{3300, 2700}, {285, 285}};
    paste(image, head(), place);
    const auto found = faces(image);
    ASSERT_EQ(found.size(), 1U);
    expectNear(found[0], moved(zoomed(faceOfHead(), 1.5), 3300, 2700));
}

TEST_F(CIDetectorFaces, FindsAHundredFaces)
{
    CGImage image = blank(2000, 2000);
    std::vector<CGRect> expected;
    for (int row = 0; row < 10; ++row)
        for (int column = 0; column < 10; ++column) {
            paste(image, head(), {{column * 200.0 + 5, row * 200.0 + 5}, {190, 190}});
            expected.push_back(moved(faceOfHead(), column * 200.0 + 5, row * 200.0 + 5));
        }
    const auto found = faces(image);
    const CGRect all = unionOf(found);
    const CGRect truth = unionOf(expected);
    // A crowd is framed by those at its rim; not every one inside it need be told from its neighbour.
    EXPECT_GE(found.size(), 80U);
    EXPECT_LE(found.size(), 105U);
    EXPECT_NEAR(all.origin.x, truth.origin.x, 25);
    EXPECT_NEAR(all.origin.y, truth.origin.y, 25);
    EXPECT_NEAR(right(all), right(truth), 25);
    EXPECT_NEAR(top(all), top(truth), 25);
}

TEST_F(CIDetectorFaces, FindsAFaceAtEachEdgeAndStaysInside)
{
    // The face touches the edge.
    struct Case {
        const char* edge;
        CGRect part;
    };
    const CGRect face = kAstronautFace;
    const std::array<Case, 4> cases = {
        Case{"left", {{face.origin.x, 100}, {300, 400}}}, Case{"right", {{0, 100}, {right(face), 400}}},
        Case{"bottom", {{30, face.origin.y}, {400, 176}}}, Case{"top", {{30, 50}, {400, top(face) - 50}}}};
    const CGImage astronaut = photo("astronaut.png");
    for (const auto& [edge, part] : cases) {
        SCOPED_TRACE(edge);
        const CGImage image = cropped(astronaut, part);
        const auto found = faces(image);
        ASSERT_EQ(found.size(), 1U);
        expectNear(found[0], moved(face, -part.origin.x, -part.origin.y));
        EXPECT_GE(found[0].origin.x, 0);
        EXPECT_GE(found[0].origin.y, 0);
        EXPECT_LE(right(found[0]), static_cast<double>(image.width));
        EXPECT_LE(top(found[0]), static_cast<double>(image.height));
    }
}

TEST_F(CIDetectorFaces, FindsAFaceLargerThanThePicture)
{
    // From the brows to the chin, cheeks cut off.
    const CGRect part = {{kAstronautFace.origin.x + 4, kAstronautFace.origin.y + 2}, {84, 90}};
    const CGImage image = scaled(cropped(photo("astronaut.png"), part), 1120, 1200);
    const auto found = faces(image);
    ASSERT_EQ(found.size(), 1U);
    EXPECT_GT(found[0].size.width * found[0].size.height, 0.6 * 1120 * 1200);
    EXPECT_GE(found[0].origin.x, 0);
    EXPECT_GE(found[0].origin.y, 0);
    EXPECT_LE(right(found[0]), 1120);
    EXPECT_LE(top(found[0]), 1200);
}

TEST_F(CIDetectorFaces, FindsAFaceInAPanorama)
{
    CGImage image = scaled(photo("grass.png"), 8000, 800);
    paste(image, head(), {{6000, 300}, {380, 380}});
    const auto found = faces(image);
    ASSERT_EQ(found.size(), 1U);
    expectNear(found[0], moved(zoomed(faceOfHead(), 2), 6000, 300));
}

TEST_F(CIDetectorFaces, FindsNoneInPicturesWithoutRoomForOne)
{
    expectNoFaces(CGImage{}, "nothing");
    for (const auto& [width, height] : {std::array<size_t, 2>{1, 1},
                                        {1, 10000},
                                        {10000, 1},
                                        {2, 3},
                                        {15, 15},
                                        {15, 4000},
                                        {4000, 15},
                                        {16, 16},
                                        {17, 31},
                                        {16, 20000},
                                        {20000, 16},
                                        {33, 65}}) {
        const std::string size = std::to_string(width) + " x " + std::to_string(height);
        expectNoFaces(blank(width, height), size);
        expectNoFaces(noise(width, height), size + ", noise");
    }
}

TEST_F(CIDetectorFaces, TakesAVeryLargePicture)
{
    CGImage image = blank(9000, 6000);
    paste(image, head(), {{7000, 1000}, {1900, 1900}});
    const auto found = faces(image);
    ASSERT_EQ(found.size(), 1U);
    expectNear(found[0], moved(zoomed(faceOfHead(), 10), 7000, 1000));
}

TEST_F(CIDetectorFaces, LeavesThePaddingOfRowsAlone)
{
    const CGImage astronaut = photo("astronaut.png");
    CGImage padded = blank(astronaut.width, astronaut.height);
    padded.bytesPerRow = astronaut.width * 4 + 52;
    padded.pixels.assign(padded.bytesPerRow * padded.height, 0xEE);
    for (size_t y = 0; y < astronaut.height; ++y)
        std::copy_n(astronaut.row(y), astronaut.width * 4, padded.row(y));
    EXPECT_EQ(faces(padded), faces(astronaut));
}

TEST_F(CIDetectorFaces, AnswersTheSameWhateverItSawBefore)
{
    const CGImage astronaut = photo("astronaut.png");
    const auto first = faces(astronaut);
    faces(noise(900, 300));
    faces(blank(100, 2000));
    EXPECT_EQ(faces(astronaut), first);
    EXPECT_EQ(CIDetector::detectorOfTypeFace()->featuresInImage(astronaut), first);
}

TEST_F(CIDetectorFaces, EightFindFacesAtOnce)
{
    const CGImage astronaut = photo("astronaut.png");
    const CGImage camera = scaled(photo("camera.png"), 700, 700);
    const auto astronautFaces = faces(astronaut);
    const auto cameraFaces = faces(camera);
    ASSERT_EQ(astronautFaces.size(), 1U);
    ASSERT_EQ(cameraFaces.size(), 1U);

    std::array<bool, 8> right{};
    {
        std::vector<std::jthread> threads;
        for (size_t i = 0; i < right.size(); ++i)
            threads.emplace_back([&, i] {
                const auto detector = CIDetector::detectorOfTypeFace();
                right[i] = detector && detector->featuresInImage(i % 2 ? astronaut : camera) ==
                                           (i % 2 ? astronautFaces : cameraFaces);
            });
    }
    for (size_t i = 0; i < right.size(); ++i)
        EXPECT_TRUE(right[i]) << i;
}

namespace {

bool hasNeuralNetworkLibrary()
{
    std::ifstream maps("/proc/self/maps");
    const std::string text{std::istreambuf_iterator<char>(maps), {}};
    return text.find("libopencv") != std::string::npos;
}

} // namespace

TEST(CIDetectorLoading, LoadsNothingBeforeTheFirstDetector)
{
    // In a process of its own, as another test may have made a detector in this one.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            const bool before = hasNeuralNetworkLibrary();
            const auto detector = CIDetector::detectorOfTypeFace();
            _Exit(!before && detector && hasNeuralNetworkLibrary() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
