#include "window/state/photos/Selection.h"

#include "tests/window/state/StateTest.h"

#include <gmock/gmock.h>

using namespace stillora;
using namespace stillora::window;

namespace {

class SelectionTest : public StateTest {
protected:
    SelectionTest()
    {
        std::vector<std::filesystem::path> files;
        for (const std::string name : {"a", "b", "c", "d", "e"})
            files.push_back(photo(name + ".jpg"));
        add(*session_, files);
    }
    std::string selected() const
    {
        std::string text;
        for (const PhotoID id : selection_.photos())
            text += session_->photo(id).title;
        return text;
    }
    PhotoID at(std::size_t place) const { return session_->photos()[place]; }
    std::string current() const { return selection_.current() ? session_->photo(*selection_.current()).title : ""; }

    const std::unique_ptr<DocumentSession> session_ = newSession();
    Selection selection_{*session_};
};

TEST_F(SelectionTest, GrowsAndShrinks)
{
    selection_.select(at(1));
    selection_.extendTo(at(3));
    EXPECT_EQ(selected(), "bcd");
    EXPECT_EQ(current(), "d");
    selection_.extendTo(at(0));
    EXPECT_EQ(selected(), "ab") << "from where it began";
    selection_.toggle(at(4));
    EXPECT_EQ(selected(), "abe");
    EXPECT_EQ(current(), "e");
    selection_.toggle(at(4));
    EXPECT_EQ(selected(), "ab");
    selection_.selectAll();
    EXPECT_EQ(selection_.size(), 5U);
    selection_.clear();
    EXPECT_EQ(current(), "");
}

TEST_F(SelectionTest, StaysWithPhotosThatMove)
{
    selection_.set(ids(*session_, {0, 4}));
    session_->movePhotos(selection_.photos(), 2);
    EXPECT_EQ(selected(), "ae");
    EXPECT_EQ(titles(*session_), "b a e c d");
    session_->reversePhotos();
    EXPECT_EQ(selected(), "ea");
}

TEST_F(SelectionTest, GoesOnWithTheNextPhotoAndComesBackWithAnUndo)
{
    selection_.set(ids(*session_, {1, 2}));
    session_->removePhotos(selection_.photos());
    EXPECT_EQ(selected(), "d");
    EXPECT_EQ(current(), "d");
    session_->undo();
    EXPECT_EQ(selected(), "bc");
    session_->redo();
    selection_.select(session_->photos().back());
    session_->removePhotos(selection_.photos());
    EXPECT_EQ(selected(), "d") << "of the last one the one before";
    session_->removePhotos(session_->photos());
    EXPECT_EQ(selected(), "");
}

TEST_F(SelectionTest, IsToldOfOnce)
{
    int told = 0;
    const auto connection = selection_.changed.connect([&] { ++told; });
    selection_.select(at(1));
    selection_.select(at(1));
    EXPECT_EQ(told, 1);
    session_->removePhotos({at(4)});
    EXPECT_EQ(told, 1);
    session_->removePhotos({at(1)});
    EXPECT_EQ(told, 2);
}

} // namespace
