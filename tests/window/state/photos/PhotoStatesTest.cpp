#include "window/state/photos/PhotoStates.h"

#include "tests/window/state/StateTest.h"
#include "window/state/photos/ThumbnailCache.h"
#include "window/state/photos/Thumbnails.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

using namespace stillora;
using namespace stillora::window;

namespace {

namespace fs = std::filesystem;
using Kind = PhotoState::Kind;

class PhotoStatesTest : public StateTest {
protected:
    bool waitForAll()
    {
        return loop_.runUntil([&] { return states_.waitingCount() == 0; });
    }
    const PhotoState& at(std::size_t place) const { return states_.state(session_->photos()[place]); }

    const std::unique_ptr<DocumentSession> session_ = newSession();
    PhotoStates states_{loop_, *session_};
};

TEST_F(PhotoStatesTest, TellsGoodPhotosFromBadOnesAndWhy)
{
    auto cutOff = plainJPEG(test::kRed, 640);
    cutOff.resize(cutOff.size() - 4);
    const auto cut = folder_.makeFile("cut.jpg", {reinterpret_cast<const char*>(cutOff.data()), cutOff.size()});
    add(*session_, {photo("good.jpg"), folder_.makeFile("bad.jpg", "no photo"), cut});
    EXPECT_EQ(at(0).kind, Kind::Waiting);
    ASSERT_TRUE(waitForAll());
    EXPECT_EQ(at(0).kind, Kind::Good);
    EXPECT_EQ(at(0).facts.size, (Size{64, 48}));
    EXPECT_EQ(at(1).kind, Kind::Unusable);
    EXPECT_NE(at(1).reason, "");
    EXPECT_EQ(at(2).kind, Kind::CutOff);
    EXPECT_EQ(at(2).reason, reasonOfCutOffPhoto());
    EXPECT_EQ(states_.usable().size(), 2U);
}

TEST_F(PhotoStatesTest, RemovesAllThatCannotBeUsedAsOneStep)
{
    add(*session_, {folder_.makeFile("x.jpg", "x"), photo("a.jpg"), folder_.makeFile("y.jpg", "y")});
    ASSERT_TRUE(waitForAll());
    states_.removeUnusable();
    EXPECT_EQ(titles(*session_), "a");
    EXPECT_EQ(session_->undoLabel(), "Remove 2 Photos That Cannot Be Used");
    session_->undo();
    EXPECT_EQ(titles(*session_), "x a y");
    EXPECT_EQ(states_.waitingCount(), 0U) << "what comes back is known";
    EXPECT_EQ(states_.unusable().size(), 2U);
}

TEST_F(PhotoStatesTest, SortsByNameAtOnceAndByDateWhenAllIsKnown)
{
    for (const auto& [name, days] : {std::pair{"img10", 3}, {"img2", 1}, {"img1", 2}}) {
        const auto file = photo(std::string(name) + ".jpg");
        fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(24 * (10 - days)));
    }
    add(*session_, {folder_.makeFile("bad.jpg", "x"), folder_.path("img10.jpg"), folder_.path("img2.jpg"),
                    folder_.path("img1.jpg")});
    states_.sort(PhotoSort::ByName);
    EXPECT_EQ(titles(*session_), "bad img1 img2 img10");
    states_.sort(PhotoSort::ByDate);
    EXPECT_TRUE(states_.isSortWaiting());
    ASSERT_TRUE(loop_.runUntil([&] { return !states_.isSortWaiting(); }));
    EXPECT_EQ(titles(*session_), "img2 img1 img10 bad");
    EXPECT_EQ(session_->undoLabel(), "Sort by Date");
}

TEST_F(PhotoStatesTest, LooksFirstAtWhatIsOnTheScreen)
{
    states_.setView(30, 32);
    std::vector<fs::path> files;
    for (int i = 0; i < 60; ++i)
        files.push_back(photo("img" + std::to_string(i) + ".jpg"));
    std::vector<PhotoID> order;
    const auto connection = states_.changed.connect(
        [&](const std::vector<PhotoID>& told) { order.insert(order.end(), told.begin(), told.end()); });
    add(*session_, files);
    const auto onScreen = ids(*session_, {30, 31});
    ASSERT_TRUE(loop_.runUntil([&] { return states_.waitingCount() < 60; }));
    EXPECT_TRUE(at(30).isUsable() || at(31).isUsable());
    EXPECT_FALSE(at(0).isUsable());
    ASSERT_TRUE(loop_.runUntil([&] { return order.size() == 60; }));
}

class ThumbnailsTest : public PhotoStatesTest {
protected:
    const fs::path cache_ = folder_.path("thumbnails");
    Thumbnails thumbnails_{loop_, *session_, states_, cache_};
};

TEST_F(ThumbnailsTest, ComeForWhatIsOnTheScreenAndFillTheSharedCache)
{
    add(*session_, {photo("red.jpg"), photo("green.jpg", test::kGreen), folder_.makeFile("bad.jpg", "x")});
    std::vector<PhotoID> arrived;
    const auto connection = thumbnails_.arrived.connect([&](PhotoID id) { arrived.push_back(id); });
    thumbnails_.setView(0, 3);
    const PhotoID green = session_->photos()[1];
    ASSERT_TRUE(loop_.runUntil([&] { return arrived.size() == 2; }));
    const auto pixels = thumbnails_.thumbnail(green);
    ASSERT_TRUE(pixels);
    EXPECT_EQ(pixels->width, 64);
    EXPECT_NEAR(std::to_integer<int>(pixels->bytes[1]), test::kGreen[1], 4);
    EXPECT_TRUE(fs::exists(thumbnailPath(cache_, folder_.path("green.jpg"))));
    ASSERT_TRUE(states_.state(green).averageColor);
    EXPECT_NEAR(states_.state(green).averageColor->green, test::kGreen[1] / 255.0, 0.03);
    EXPECT_FALSE(thumbnails_.thumbnail(session_->photos()[2]));
}

TEST_F(ThumbnailsTest, AreTakenFromTheSharedCache)
{
    const fs::path file = photo("red.jpg");
    struct stat status = {};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    keepThumbnail(cache_, {file, std::chrono::sys_seconds(std::chrono::seconds(status.st_mtim.tv_sec))},
                  Pixels{5, 7, 20, Bytes(140, std::byte{255})});
    add(*session_, {file});
    thumbnails_.setView(0, 1);
    const PhotoID id = session_->photos()[0];
    ASSERT_TRUE(loop_.runUntil([&] { return thumbnails_.thumbnail(id) != nullptr; }));
    EXPECT_EQ(thumbnails_.thumbnail(id)->width, 5) << "another program has made it";
}

TEST_F(ThumbnailsTest, AreNotMadeFarFromTheScreen)
{
    std::vector<fs::path> files;
    for (int i = 0; i < 40; ++i)
        files.push_back(photo("img" + std::to_string(i) + ".jpg"));
    add(*session_, files);
    ASSERT_TRUE(waitForAll());
    std::size_t count = 0;
    const auto connection = thumbnails_.arrived.connect([&](PhotoID) { ++count; });
    thumbnails_.setView(10, 14);
    ASSERT_TRUE(loop_.runUntil([&] { return count == 12; })) << "a screen, and one before and after it";
    EXPECT_TRUE(thumbnails_.thumbnail(session_->photos()[6]));
    EXPECT_FALSE(thumbnails_.thumbnail(session_->photos()[5]));
    EXPECT_FALSE(thumbnails_.thumbnail(session_->photos()[18]));
}

} // namespace
