#include "platform/graphics/CGBitmapContext.h"

#include "tests/support/TestPicture.h"

#include <gtest/gtest.h>

#include <thread>

using namespace platform;

namespace {

/// Pixels that a context draws over, all of one colour at first, with room behind each row that must stay untouched.
struct Canvas {
    Canvas(size_t width, size_t height, test::Color color)
    {
        image.width = width;
        image.height = height;
        image.bytesPerRow = 4 * width + 64;
        image.pixels.assign(image.bytesPerRow * height, 77);
        for (size_t y = 0; y < height; ++y)
            for (size_t x = 0; x < width; ++x)
                for (size_t i = 0; i < 3; ++i)
                    image.row(y)[4 * x + 1 + i] = static_cast<uint8_t>(color[i]);
    }

    CGBitmapContext context() { return {image.pixels.data(), image.width, image.height, image.bytesPerRow}; }

    bool hasUntouchedMargins() const
    {
        for (size_t y = 0; y < image.height; ++y)
            for (size_t i = 4 * image.width; i < image.bytesPerRow; ++i)
                if (image.row(y)[i] != 77)
                    return false;
        return true;
    }

    CGRect extentOfOthers(test::Color color) const { return test::extentOfOthers(image, color); }

    CGImage image;
};

CGImage imageOf(const test::Picture& picture)
{
    CGImage image;
    image.width = picture.width;
    image.height = picture.height;
    image.bytesPerRow = 4 * picture.width;
    image.pixels.resize(image.bytesPerRow * image.height);
    for (size_t y = 0; y < picture.height; ++y)
        for (size_t x = 0; x < picture.width; ++x)
            std::copy_n(picture.at(x, y), 3, image.row(y) + 4 * x + 1);
    return image;
}

constexpr test::Color kBlack = {0, 0, 0};
constexpr test::Color kGrey = {120, 120, 120};

TextAttributes watermark(double size, double strokeWidth)
{
    return {.fontName = "Helvetica Neue Medium",
            .fontSize = size,
            .foregroundColor = {.red = 1, .green = 1, .blue = 1, .alpha = 0.25},
            .strokeColor = {.alpha = 0.5},
            .strokeWidth = strokeWidth};
}

} // namespace

TEST(CGBitmapContext, ClearsToBlackWithTheFirstByteSet)
{
    Canvas canvas(7, 5, kGrey);
    canvas.context().clearRect({{0, 0}, {7, 5}});
    for (size_t y = 0; y < 5; ++y)
        for (size_t x = 0; x < 7; ++x) {
            test::expectColor(canvas.image, x, y, kBlack, 0);
            EXPECT_EQ(canvas.image.row(y)[4 * x], 0xFF);
        }
    EXPECT_TRUE(canvas.hasUntouchedMargins());
}

TEST(CGBitmapContext, CountsFromTheLowerLeftCorner)
{
    Canvas canvas(8, 6, kGrey);
    canvas.context().clearRect({{1, 2}, {3, 1}});
    EXPECT_EQ(canvas.extentOfOthers(kGrey), (CGRect{{1, 2}, {3, 1}}));
    test::expectColor(canvas.image, 1, 3, kBlack, 0);
}

TEST(CGBitmapContext, DrawsAnImageOfTheRectanglesSizeUnchanged)
{
    Canvas canvas(20, 10, kBlack);
    const test::Picture picture = test::gradient(6, 4);
    EXPECT_TRUE(canvas.context().drawImage({{5, 1}, {6, 4}}, imageOf(picture)));
    EXPECT_EQ(canvas.extentOfOthers(kBlack), (CGRect{{5, 1}, {6, 4}}));
    for (size_t y = 0; y < 4; ++y)
        for (size_t x = 0; x < 6; ++x) {
            test::expectColor(canvas.image, 5 + x, 5 + y,
                              {picture.at(x, y)[0], picture.at(x, y)[1], picture.at(x, y)[2]}, 0);
            EXPECT_EQ(canvas.image.row(5 + y)[4 * (5 + x)], 0xFF);
        }
    EXPECT_TRUE(canvas.hasUntouchedMargins());
}

TEST(CGBitmapContext, CutsAFractionalOriginDownToWholePixels)
{
    Canvas canvas(10, 10, kBlack);
    EXPECT_TRUE(canvas.context().drawImage({{2.5, 3.5}, {4, 4}}, imageOf(test::plain(4, 4, test::kRed))));
    EXPECT_EQ(canvas.extentOfOthers(kBlack), (CGRect{{2, 3}, {4, 4}}));
    Canvas other(10, 10, kBlack);
    EXPECT_TRUE(other.context().drawImage({{-0.5, -0.5}, {4, 4}}, imageOf(test::plain(4, 4, test::kRed))));
    EXPECT_EQ(other.extentOfOthers(kBlack), (CGRect{{0, 0}, {3, 3}}));
}

TEST(CGBitmapContext, CutsOffWhatHangsOverTheEdges)
{
    Canvas canvas(10, 6, kBlack);
    const test::Picture picture = test::quadrants(30, 30);
    EXPECT_TRUE(canvas.context().drawImage({{-10, -12}, {30, 30}}, imageOf(picture)));
    for (size_t y = 0; y < 6; ++y)
        for (size_t x = 0; x < 10; ++x) {
            const uint8_t* const expected = picture.at(x + 10, y + 12);
            test::expectColor(canvas.image, x, y, {expected[0], expected[1], expected[2]}, 0);
        }
    EXPECT_TRUE(canvas.hasUntouchedMargins());
}

TEST(CGBitmapContext, DrawsNothingOutside)
{
    Canvas canvas(10, 6, kBlack);
    const CGImage image = imageOf(test::plain(4, 4, test::kRed));
    for (const CGPoint origin : {CGPoint{10, 0}, {-4, 0}, {0, 6}, {0, -4}, {1e300, 0}, {-1e300, 1e300}})
        EXPECT_TRUE(canvas.context().drawImage({origin, {4, 4}}, image));
    canvas.context().clearRect({{-50, -50}, {10, 10}});
    EXPECT_EQ(canvas.extentOfOthers(kBlack), CGRect{});
}

TEST(CGBitmapContext, ScalesAnImageOfAnotherSize)
{
    Canvas canvas(40, 40, kBlack);
    EXPECT_TRUE(canvas.context().drawImage({{4, 4}, {32, 32}}, imageOf(test::quadrants(200, 200))));
    EXPECT_EQ(canvas.extentOfOthers(kBlack), (CGRect{{4, 4}, {32, 32}}));
    test::expectColor(canvas.image, 10, 10, test::kRed, 2);
    test::expectColor(canvas.image, 30, 10, test::kGreen, 2);
    test::expectColor(canvas.image, 10, 30, test::kBlue, 2);
    test::expectColor(canvas.image, 30, 30, test::kWhite, 2);
}

TEST(CGBitmapContext, DrawsTransparentPixelsOverWhatIsThere)
{
    Canvas canvas(2, 1, {100, 100, 100});
    CGImage image;
    image.width = 2;
    image.height = 1;
    image.bytesPerRow = 8;
    image.hasAlpha = true;
    image.pixels = {128, 128, 0, 0, 0, 0, 0, 0};
    EXPECT_TRUE(canvas.context().drawImage({{0, 0}, {2, 1}}, image));
    // Half red over grey: 128 + 100 * 127 / 255.
    test::expectColor(canvas.image, 0, 0, {178, 50, 50}, 1);
    test::expectColor(canvas.image, 1, 0, {100, 100, 100}, 0);
}

TEST(CGBitmapContext, StandsTextOnTheLowerLeftCornerOfItsBox)
{
    Canvas canvas(1280, 720, kGrey);
    canvas.context().drawTextAtPoint("Created with Stillora for Mac", {5, 108}, watermark(72, -3));
    const CGRect extent = canvas.extentOfOthers(kGrey);
    // The line has no letters below the base line, which lies a descent (about a fifth of the size) above the box's
    // edge; capitals reach about three quarters of the size above that.
    EXPECT_NEAR(extent.origin.x, 5, 8);
    EXPECT_NEAR(extent.origin.y, 108 + 0.21 * 72, 6);
    EXPECT_NEAR(extent.origin.y + extent.size.height, 108 + (0.21 + 0.74) * 72, 6);
    // Helvetica's widths give about 12.7 times the size.
    EXPECT_NEAR(extent.size.width, 12.7 * 72, 72);
    EXPECT_TRUE(canvas.hasUntouchedMargins());
}

TEST(CGBitmapContext, FillsThenStrokesText)
{
    Canvas canvas(400, 200, kGrey);
    canvas.context().drawTextAtPoint("I", {20, 10}, watermark(150, -3));
    // Inside the stem white at a quarter lies over the grey; along its edge black at a half comes on top.
    int brightest = 0;
    int darkest = 255;
    for (size_t x = 0; x < 400; ++x) {
        brightest = std::max(brightest, test::pixel(canvas.image, x, 110)[0]);
        darkest = std::min(darkest, test::pixel(canvas.image, x, 110)[0]);
    }
    EXPECT_NEAR(brightest, 120 + (255 - 120) / 4, 1);
    EXPECT_NEAR(darkest, 60, 1);
}

TEST(CGBitmapContext, OnlyStrokesTextOfAPositiveWidth)
{
    Canvas canvas(400, 200, kGrey);
    canvas.context().drawTextAtPoint("I", {20, 10}, watermark(150, 3));
    int brightest = 0;
    for (size_t x = 0; x < 400; ++x)
        brightest = std::max(brightest, test::pixel(canvas.image, x, 110)[0]);
    EXPECT_EQ(brightest, 120);
}

TEST(CGBitmapContext, MakesTheStrokeAsWideAsItsPercentage)
{
    // The width of a stroke across the left edge of a stem, counted in pixels of full darkness.
    const auto widthOf = [](double strokeWidth) {
        Canvas canvas(700, 500, kGrey);
        canvas.context().drawTextAtPoint("I", {20, 10}, watermark(400, strokeWidth));
        double dark = 0;
        for (size_t x = 0; x < 700; ++x)
            dark += std::max(0, 120 - test::pixel(canvas.image, x, 250)[0]) / 60.0;
        return dark;
    };
    // Two edges; the inner half of each lies over the brighter fill and counts a little less.
    EXPECT_NEAR(widthOf(3), 2 * 12, 1.5);
    EXPECT_NEAR(widthOf(1), 2 * 4, 1.5);
}

TEST(CGBitmapContext, DrawsTextWhoseFontIsMissing)
{
    Canvas canvas(300, 60, kGrey);
    TextAttributes attributes = watermark(30, -3);
    attributes.fontName = "No Such Font Exists";
    canvas.context().drawTextAtPoint("Text", {5, 5}, attributes);
    EXPECT_GT(canvas.extentOfOthers(kGrey).size.width, 30);
}

TEST(CGBitmapContext, DrawsNoTextOfNoSize)
{
    Canvas canvas(50, 50, kGrey);
    canvas.context().drawTextAtPoint("Text", {5, 5}, watermark(0, -1));
    canvas.context().drawTextAtPoint("", {5, 5}, watermark(20, -1));
    canvas.context().drawTextAtPoint("  ", {5, 5}, watermark(20, -1));
    EXPECT_EQ(canvas.extentOfOthers(kGrey), CGRect{});
}

TEST(CGBitmapContext, CutsOffTextThatIsTooLong)
{
    Canvas canvas(60, 40, kGrey);
    canvas.context().drawTextAtPoint("A line much longer than its frame", {5, 5}, watermark(20, -1));
    EXPECT_GT(canvas.extentOfOthers(kGrey).size.width, 45);
    EXPECT_TRUE(canvas.hasUntouchedMargins());
}

TEST(CGBitmapContext, DrawsTextOnManyThreads)
{
    Canvas expected(400, 60, kGrey);
    expected.context().drawTextAtPoint("Text", {5, 5}, watermark(40, -1));
    std::vector<std::jthread> threads;
    std::array<bool, 4> isEqual{};
    for (size_t t = 0; t < isEqual.size(); ++t)
        threads.emplace_back([&, t] {
            bool allEqual = true;
            for (int size = 20; size < 40; ++size) {
                Canvas canvas(400, 60, kGrey);
                canvas.context().drawTextAtPoint("Text", {5, 5}, watermark(size, -1));
                Canvas last(400, 60, kGrey);
                last.context().drawTextAtPoint("Text", {5, 5}, watermark(40, -1));
                allEqual = allEqual && last.image.pixels == expected.image.pixels;
            }
            isEqual[t] = allEqual;
        });
    threads.clear();
    for (const bool equal : isEqual)
        EXPECT_TRUE(equal);
}
