#include "window/state/MovieMaking.h"

#include "tests/window/state/StateTest.h"
#include "window/state/Draft.h"

#include <algorithm>

#include <gmock/gmock.h>

using namespace stillora;
using namespace stillora::window;
using namespace std::chrono_literals;

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using MakingState = MovieMaking::State;

/// With the real service.
class MovieMakingTest : public StateTest {
protected:
    void addPhotos(std::size_t count)
    {
        std::vector<fs::path> files;
        for (std::size_t i = 0; i < count; ++i)
            files.push_back(photo("Rome/" + std::to_string(i) + ".jpg"));
        add(*session_, files);
        ASSERT_TRUE(loop_.runUntil([&] {
            return outlook_.isComplete() && outlook_.canBeMade() && outlook_.request().photos.size() == count;
        }));
    }
    bool waitForEnd()
    {
        return loop_.runUntil([&] { return !making_.isGoingOn(); });
    }

    const std::unique_ptr<DocumentSession> session_ = newSession();
    PhotoStates photos_{loop_, *session_};
    SoundStates sounds_{loop_, *session_};
    MovieOutlook outlook_{loop_, *session_, photos_, sounds_};
    MovieMaking making_{loop_, outlook_};
    const fs::path movies_ = folder_.path("Movies");
};

TEST_F(MovieMakingTest, MakesTheMovieOfTheDocument)
{
    addPhotos(3);
    EXPECT_EQ(MovieMaking::proposedTitle(*session_, outlook_), "Rome");
    making_.start("Summer", movies_);
    EXPECT_EQ(making_.state(), MakingState::Making);
    EXPECT_NE(making_.stage(), "");
    session_->reversePhotos();
    ASSERT_TRUE(waitForEnd());
    ASSERT_EQ(making_.state(), MakingState::Made) << making_.error().message;
    EXPECT_EQ(making_.path().stem(), "Summer");
    EXPECT_GT(fs::file_size(making_.path()), 1000U);
    EXPECT_TRUE(making_.faults().empty());
    making_.dismiss();
    EXPECT_EQ(making_.state(), MakingState::Idle);
}

TEST_F(MovieMakingTest, LeavesNothingWhereItIsCancelled)
{
    addPhotos(3);
    making_.start("Summer", movies_);
    making_.cancel();
    EXPECT_EQ(making_.state(), MakingState::Cancelling);
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(making_.state(), MakingState::Cancelled);
    std::error_code failure;
    const auto left = fs::directory_iterator(movies_, failure);
    EXPECT_TRUE(failure || left == fs::directory_iterator());
}

TEST_F(MovieMakingTest, SaysWhatCanBeDoneWhereItFails)
{
    addPhotos(3);
    making_.start("Summer", folder_.makeFile("no folder"));
    ASSERT_TRUE(waitForEnd());
    EXPECT_EQ(making_.state(), MakingState::Failed);
    EXPECT_THAT(making_.error().message, HasSubstr("no folder"));
    EXPECT_NE(adviceFor({ErrorCode::DiskFull, {}, {}}), "");
    EXPECT_NE(adviceFor({ErrorCode::NoPermission, {}, {}}), adviceFor({ErrorCode::DiskFull, {}, {}}));
}

TEST_F(MovieMakingTest, TakesNoNameThatNoFileCanHave)
{
    EXPECT_EQ(MovieMaking::faultOfProposal("Rome"), "");
    EXPECT_NE(MovieMaking::faultOfProposal("a/b"), "");
    EXPECT_NE(MovieMaking::faultOfProposal(""), "");
}

class DraftTest : public MovieMakingTest {
protected:
    bool waitFor(Draft::State state)
    {
        return loop_.runUntil([&] { return draft_.state() == state; });
    }

    Draft draft_{loop_, outlook_, folder_.path("cache")};
};

TEST_F(DraftTest, KnowsWhichPhotoIsShownWhen)
{
    addPhotos(3);
    draft_.want();
    EXPECT_EQ(draft_.state(), Draft::State::Making);
    ASSERT_TRUE(waitFor(Draft::State::Ready)) << draft_.error().message;
    EXPECT_TRUE(fs::exists(draft_.path()));
    EXPECT_EQ(draft_.length(), 12s);
    const auto& photos = session_->photos();
    EXPECT_EQ(draft_.photoAt(0s), photos[0]);
    EXPECT_EQ(draft_.photoAt(3.99s), photos[0]);
    EXPECT_EQ(draft_.photoAt(4s), photos[1]);
    EXPECT_EQ(draft_.photoAt(99s), photos[2]);
    EXPECT_EQ(draft_.startOf(photos[2]), Seconds(8));
    EXPECT_FALSE(draft_.photoAt(-1s));
}

TEST_F(DraftTest, IsMadeAnewWhenTheDocumentChanges)
{
    addPhotos(3);
    draft_.want();
    ASSERT_TRUE(waitFor(Draft::State::Ready));
    const auto last = session_->photos()[2];
    session_->reversePhotos();
    ASSERT_TRUE(waitFor(Draft::State::Making));
    ASSERT_TRUE(waitFor(Draft::State::Ready));
    EXPECT_EQ(draft_.photoAt(0s), last);
}

TEST_F(DraftTest, IsGoneWithTheWindow)
{
    const fs::path cache = folder_.path("other");
    addPhotos(2);
    {
        Draft draft(loop_, outlook_, cache);
        draft.want();
        ASSERT_TRUE(loop_.runUntil([&] { return draft.state() == Draft::State::Ready; }));
        draft.stop();
        EXPECT_EQ(draft.state(), Draft::State::Ready) << "what is there stays";
    }
    EXPECT_TRUE(fs::is_empty(cache / "drafts"));
}

TEST_F(DraftTest, IsThereBeforeItIsWantedWhereThatMayBe)
{
    addPhotos(3);
    draft_.setMakesAhead(true);
    ASSERT_TRUE(loop_.runUntil([&] { return draft_.isMakingAhead(); }));
    EXPECT_EQ(draft_.state(), Draft::State::None);
    ASSERT_TRUE(waitFor(Draft::State::Ready));
    EXPECT_FALSE(draft_.isMakingAhead());
    const auto path = draft_.path();
    int told = 0;
    const auto connection = draft_.changed.connect([&] { ++told; });
    draft_.want();
    EXPECT_EQ(draft_.state(), Draft::State::Ready);
    EXPECT_EQ(draft_.path(), path);
    EXPECT_EQ(told, 1);
}

TEST_F(DraftTest, ThatIsMadeAheadIsBegunAnewForWhoeverWantsIt)
{
    addPhotos(3);
    draft_.setMakesAhead(true);
    ASSERT_TRUE(loop_.runUntil([&] { return draft_.isMakingAhead(); }));
    draft_.want();
    EXPECT_EQ(draft_.state(), Draft::State::Making);
    EXPECT_FALSE(draft_.isMakingAhead());
    ASSERT_TRUE(waitFor(Draft::State::Ready)) << draft_.error().message;
}

TEST_F(DraftTest, IsMadeAheadOncePerStateOfTheDocumentAndNotWhileThatChanges)
{
    addPhotos(3);
    draft_.setMakesAhead(true);
    ASSERT_TRUE(loop_.runUntil([&] { return draft_.isMakingAhead(); }));
    const auto last = session_->photos()[2];
    session_->reversePhotos();
    ASSERT_TRUE(loop_.runUntil([&] { return !draft_.isMakingAhead(); })) << "what nobody needs any more is cancelled";
    ASSERT_TRUE(waitFor(Draft::State::Ready));
    EXPECT_EQ(draft_.photoAt(0s), last);
    session_->reversePhotos();
    ASSERT_TRUE(waitFor(Draft::State::None));
    draft_.setMakesAhead(false);
    bool isTimeUp = false;
    loop_.postAfter(1500ms, [&] { isTimeUp = true; });
    ASSERT_TRUE(loop_.runUntil([&] { return isTimeUp || draft_.isMakingAhead(); }));
    EXPECT_FALSE(draft_.isMakingAhead());
    EXPECT_EQ(draft_.state(), Draft::State::None);
}

TEST_F(DraftTest, OfManyPhotosIsMadeOnlyWhereItIsWanted)
{
    addPhotos(61);
    draft_.setMakesAhead(true);
    bool isTimeUp = false;
    loop_.postAfter(1500ms, [&] { isTimeUp = true; });
    ASSERT_TRUE(loop_.runUntil([&] { return isTimeUp || draft_.isMakingAhead(); }));
    EXPECT_FALSE(draft_.isMakingAhead());
}

TEST_F(DraftTest, FailsWithoutPhotos)
{
    draft_.want();
    EXPECT_EQ(draft_.state(), Draft::State::Failed);
    EXPECT_NE(draft_.error().message, "");
}

} // namespace
