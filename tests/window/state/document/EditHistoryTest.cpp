#include "window/state/document/EditHistory.h"

#include <gtest/gtest.h>

using namespace stillora;
using namespace stillora::window;

namespace {

Arrangement of(std::vector<std::uint64_t> numbers)
{
    std::vector<PhotoID> photos;
    for (const auto number : numbers)
        photos.push_back(PhotoID{number});
    Arrangement arrangement;
    arrangement.photos = std::make_shared<const std::vector<PhotoID>>(std::move(photos));
    return arrangement;
}

TEST(EditHistory, GoesBackAndForthThroughEveryStep)
{
    EditHistory history;
    for (std::uint64_t i = 1; i <= 1000; ++i)
        EXPECT_TRUE(history.add(of({i}), std::to_string(i)));
    for (std::uint64_t i = 1000; i >= 1; --i) {
        EXPECT_TRUE(history.present().isSameAs(of({i})));
        EXPECT_EQ(history.undoLabel(), std::to_string(i));
        history.undo();
    }
    EXPECT_FALSE(history.canUndo());
    EXPECT_EQ(history.undoLabel(), "");
    EXPECT_TRUE(history.present().isSameAs({}));
    EXPECT_EQ(history.redoLabel(), "1");
    while (history.canRedo())
        history.redo();
    EXPECT_TRUE(history.present().isSameAs(of({1000})));
}

TEST(EditHistory, ForgetsWhatWasUndoneWhenSomethingElseIsDone)
{
    EditHistory history;
    history.add(of({1}), "one");
    history.add(of({2}), "two");
    history.undo();
    history.add(of({3}), "three");
    EXPECT_FALSE(history.canRedo());
    history.undo();
    EXPECT_TRUE(history.present().isSameAs(of({1})));
}

TEST(EditHistory, TakesAMovementForOneStep)
{
    EditHistory history;
    history.add(of({1}), "drag", "handle");
    history.add(of({2}), "drag", "handle");
    history.add(of({3}), "drag", "another");
    EXPECT_EQ(history.redoLabel(), "");
    history.undo();
    EXPECT_TRUE(history.present().isSameAs(of({2})));
    history.redo();
    history.endMovement();
    history.add(of({4}), "drag", "another");
    history.undo();
    EXPECT_TRUE(history.present().isSameAs(of({3}))) << "a movement that ended is not gone on with";
}

TEST(EditHistory, HasNoStepForWhatChangesNothing)
{
    EditHistory history;
    EXPECT_FALSE(history.add({}, "nothing"));
    EXPECT_FALSE(history.canUndo());
}

TEST(ListChange, IsAsSmallAsItCanBe)
{
    EXPECT_EQ(changeBetween<int>({1, 2, 3}, {1, 2, 3}), std::nullopt);
    EXPECT_EQ(changeBetween<int>({}, {1, 2}), (ListChange{0, 0, 2}));
    EXPECT_EQ(changeBetween<int>({1, 2, 3}, {1, 3}), (ListChange{1, 1, 0}));
    EXPECT_EQ(changeBetween<int>({1, 2, 3, 4}, {1, 3, 2, 4}), (ListChange{1, 2, 2}));
    EXPECT_EQ(changeBetween<int>({1, 1}, {1, 1, 1}), (ListChange{2, 0, 1}));
}

} // namespace
