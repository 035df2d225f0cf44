#include "window/state/SoundStates.h"

#include "tests/support/TestSound.h"
#include "tests/window/state/StateTest.h"
#include "window/state/MovieOutlook.h"

#include <algorithm>

#include <gmock/gmock.h>

using namespace stillora;
using namespace stillora::window;
using namespace std::chrono_literals;

namespace {

class SoundStatesTest : public StateTest {
protected:
    std::filesystem::path sound(const std::string& name, std::size_t seconds) const
    {
        const auto level = [](std::size_t frame, int) {
            return frame < 8000 ? 0.0 : 0.5 + static_cast<double>(frame) / 1e6;
        };
        testsound::writeWav(folder_.path(name), testsound::makeSound(8000, 1, seconds * 8000, level));
        return folder_.path(name);
    }
    const SoundState& first() const { return sounds_.state(session_->sounds().front().id); }

    const std::unique_ptr<DocumentSession> session_ = newSession();
    PhotoStates photos_{loop_, *session_};
    SoundStates sounds_{loop_, *session_};
    MovieOutlook outlook_{loop_, *session_, photos_, sounds_};
};

TEST_F(SoundStatesTest, KnowTheLengthTheNameAndTheLevels)
{
    add(*session_, {sound("Air.wav", 4)});
    EXPECT_EQ(first().title, "Air");
    ASSERT_TRUE(loop_.runUntil([&] { return first().levels != nullptr; }));
    EXPECT_EQ(first().length, 4s);
    ASSERT_EQ(first().levels->size(), static_cast<std::size_t>(SoundStates::kLevels));
    EXPECT_LT((*first().levels)[100], 0.05);
    EXPECT_GT((*first().levels)[1500], 0.5);
}

TEST_F(SoundStatesTest, SayWhyOneCannotBeUsed)
{
    add(*session_, {folder_.makeFile("bad.mp3", "no sound")});
    EXPECT_TRUE(sounds_.isAnyWaiting());
    ASSERT_TRUE(loop_.runUntil([&] { return first().kind == SoundState::Kind::Unusable; }));
    EXPECT_NE(first().reason, "");
    EXPECT_TRUE(sounds_.usable().empty());
    EXPECT_FALSE(sounds_.isAnyWaiting());
}

TEST_F(SoundStatesTest, GiveThePartThatPlays)
{
    add(*session_, {sound("a.wav", 4)});
    ASSERT_TRUE(loop_.runUntil([&] { return first().kind == SoundState::Kind::Good; }));
    const SoundID id = session_->sounds()[0].id;
    session_->setSoundSelection(id, SoundFacts::Selection{1s, 9s});
    ASSERT_EQ(sounds_.usable().size(), 1U);
    EXPECT_EQ(sounds_.usable()[0].length, 3s) << "the file ends there";
    session_->setSoundSelection(id, SoundFacts::Selection{5s, 9s});
    EXPECT_TRUE(sounds_.usable().empty());
    EXPECT_TRUE(sounds_.usableIDs().empty());
}

TEST_F(SoundStatesTest, TogetherWithThePhotosMakeAMovie)
{
    EXPECT_FALSE(outlook_.canBeMade());
    add(*session_, {photo("a.jpg"), photo("b.jpg"), folder_.makeFile("bad.jpg", "x"), sound("a.wav", 4)});
    ASSERT_TRUE(loop_.runUntil([&] { return outlook_.isComplete() && outlook_.music().pieces.size() == 2; }));
    ASSERT_TRUE(outlook_.canBeMade());
    EXPECT_EQ(outlook_.request().photos.size(), 2U);
    EXPECT_EQ(outlook_.requestPhotos().size(), 2U);
    EXPECT_EQ(outlook_.music().length, 8s);
    EXPECT_EQ(outlook_.lengthText(), "8 seconds");
    EXPECT_EQ(outlook_.photosText(), "3 photos; 1 of them cannot be used");
    EXPECT_EQ(outlook_.frameSizeText(), "\u2066320 × 240\u2069");
    EXPECT_GT(outlook_.estimatedBytes(), 0U);
    const auto small = outlook_.estimatedBytes();
    bool isTold = false;
    const auto connection = outlook_.changed.connect([&] { isTold = true; });
    session_->fitToMusic();
    ASSERT_TRUE(loop_.runUntil([&] { return isTold; }));
    EXPECT_NEAR(outlook_.music().length.count(), 3.95, 0.01);
    EXPECT_LE(outlook_.estimatedBytes(), small);
    session_->removeSound(session_->sounds()[0].id);
    ASSERT_TRUE(loop_.runUntil([&] { return outlook_.music().pieces.empty(); }));
    EXPECT_TRUE(outlook_.canBeMade()) << "without music there is nothing to fit";
    EXPECT_EQ(outlook_.music().length, 8s);
}

TEST(MovieEstimate, GrowsWithPixelsDetailAndTheCodec)
{
    MovieRequest request;
    request.photos.assign(10, {.path = "/a.jpg", .size = {4000, 3000}, .fileSize = 3'600'000});
    const auto usual = estimatedBytesOf(request, {1920, 1080});
    EXPECT_LT(estimatedBytesOf(request, {854, 480}), usual / 3);
    request.reducesBorders = true;
    EXPECT_GT(estimatedBytesOf(request, {1920, 1080}), usual) << "the frame is filled";
    request.reducesBorders = false;
    request.codec = "apch";
    EXPECT_GT(estimatedBytesOf(request, {1920, 1080}), 2 * usual);
    request.codec = "avc1";
    for (PhotoFacts& photo : request.photos)
        photo.fileSize *= 2;
    EXPECT_GT(estimatedBytesOf(request, {1920, 1080}), usual);
}

} // namespace
