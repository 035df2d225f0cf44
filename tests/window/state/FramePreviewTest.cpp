#include "window/state/FramePreview.h"

#include "tests/window/state/StateTest.h"
#include "window/state/SoundStates.h"

#include <gtest/gtest.h>

using namespace stillora;
using namespace stillora::window;

namespace {

class FramePreviewTest : public StateTest {
protected:
    void SetUp() override
    {
        const auto bytes = test::jpegBytes(test::plain(1280, 720, test::kBlue));
        add(*session_,
            {folder_.makeFile("a.jpg", std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()))});
        selection_.select(session_->photos().front());
    }
    /// Of the frame, once the newest one has come.
    int lines()
    {
        EXPECT_TRUE(loop_.runUntil([&] { return frame_.frame() && !frame_.isDrawing(); }));
        return frame_.frame() ? frame_.frame()->height : 0;
    }

    const std::unique_ptr<DocumentSession> session_ = newSession();
    Selection selection_{*session_};
    PhotoStates photos_{loop_, *session_};
    SoundStates sounds_{loop_, *session_};
    MovieOutlook outlook_{loop_, *session_, photos_, sounds_};
    FramePreview frame_{loop_, *session_, selection_, photos_, outlook_};
};

TEST_F(FramePreviewTest, HasHardlyMoreLinesThanTheScreenShows)
{
    EXPECT_EQ(lines(), 512);
    frame_.setShownLines(257);
    EXPECT_EQ(lines(), 512);
    frame_.setShownLines(256);
    EXPECT_EQ(lines(), 256);
}

TEST_F(FramePreviewTest, NeverHasMoreLinesThanItsMovie)
{
    frame_.setShownLines(5000);
    EXPECT_EQ(lines(), 720);
}

TEST_F(FramePreviewTest, ShowsAPhotoThatDoesNotFillItsMovieWithTheBordersThatItHasThere)
{
    MovieSettings settings = session_->settings();
    settings.quality = 2160;
    session_->setSettings(settings);
    ASSERT_TRUE(loop_.runUntil([&] { return outlook_.frameSize() && outlook_.frameSize()->height == 2160; }));
    EXPECT_EQ(lines(), 512);
    const Pixels& pixels = *frame_.frame();
    const auto blueAt = [&](int x, int y) {
        return std::to_integer<int>(
            pixels.bytes[static_cast<std::size_t>(y) * pixels.rowBytes + static_cast<std::size_t>(4 * x + 2)]);
    };
    EXPECT_EQ(blueAt(pixels.width / 4, pixels.height / 2), 0);
    EXPECT_GT(blueAt(pixels.width / 2, pixels.height / 2), 200);
}

} // namespace
