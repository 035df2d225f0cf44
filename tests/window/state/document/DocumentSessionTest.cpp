#include "window/state/document/DocumentSession.h"

#include "tests/window/state/StateTest.h"

#include <stillora/Document.h>

#include <algorithm>
#include <fstream>

#include <gmock/gmock.h>

using namespace stillora;
using namespace stillora::window;
using namespace std::chrono_literals;

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

class DocumentSessionTest : public StateTest {
protected:
    /// With photos a to e.
    std::unique_ptr<DocumentSession> sessionOfFive()
    {
        auto session = newSession();
        std::vector<fs::path> files;
        for (const std::string name : {"a", "b", "c", "d", "e"})
            files.push_back(photo("files/" + name + ".jpg"));
        add(*session, files);
        return session;
    }
    /// Saved as a document.
    std::unique_ptr<DocumentSession> savedSession()
    {
        auto session = sessionOfFive();
        session->saveAs(location_);
        EXPECT_TRUE(loop_.runUntil([&] { return session->location().has_value(); }));
        EXPECT_TRUE(waitUntilSaved(*session));
        return session;
    }
    /// As another window or the next start finds it.
    std::unique_ptr<DocumentSession> resumed()
    {
        auto session = newSession();
        waitFor(*session, session->opened, [&] { session->resume(); });
        return session;
    }
    std::unique_ptr<DocumentSession> opened(const fs::path& location)
    {
        auto session = newSession();
        waitFor(*session, session->opened, [&] { session->open(location); });
        return session;
    }
    void waitFor(DocumentSession&, Signal<>& signal, const std::function<void()>& order)
    {
        bool isTold = false;
        const auto connection = signal.connect([&] { isTold = true; });
        order();
        ASSERT_TRUE(loop_.runUntil([&] { return isTold; }));
    }
    std::string titlesOnDisk() const
    {
        const auto document = Document::load(location_);
        std::string text;
        for (const DocumentPhoto& each : document ? document->photos() : std::vector<DocumentPhoto>())
            text += (text.empty() ? "" : " ") + each.title;
        return text;
    }
    /// Takes out the first photo, as another program would.
    void changeBehind() const
    {
        auto document = Document::load(location_);
        ASSERT_TRUE(document);
        document->removePhoto(0);
        ASSERT_TRUE(document->save());
    }

    const fs::path location_ = folder_.path("Rome.stillora");
};

TEST_F(DocumentSessionTest, ShowsFoldersInNaturalOrderAndSoundsApart)
{
    auto session = newSession();
    photo("trip/img10.jpg");
    photo("trip/img2.jpg");
    folder_.makeFile("trip/notes.txt", "no photo");
    folder_.makeFile("trip/song.mp3", "some sound");
    add(*session, {photo("z.jpg"), folder_.path("trip")});
    EXPECT_EQ(titles(*session), "z img2 img10");
    ASSERT_EQ(session->sounds().size(), 1U);
    EXPECT_EQ(session->sounds()[0].title, "song");
}

TEST_F(DocumentSessionTest, NamesWhatCannotBeAdded)
{
    auto session = newSession();
    std::vector<Error> errors;
    const auto connection = session->failed.connect([&](const std::vector<Error>& told) { errors = told; });
    session->add({folder_.path("gone.jpg")});
    ASSERT_TRUE(loop_.runUntil([&] { return !errors.empty(); }));
    EXPECT_THAT(errors[0].message, HasSubstr("gone.jpg"));
}

TEST_F(DocumentSessionTest, MovesPhotosTogether)
{
    auto session = sessionOfFive();
    session->movePhotos(ids(*session, {0, 3}), 3);
    EXPECT_EQ(titles(*session), "b c a d e");
    session->movePhotos(ids(*session, {4, 1}), 0);
    EXPECT_EQ(titles(*session), "c e b a d");
    session->movePhotos(ids(*session, {0}), DocumentSession::kAtEnd);
    EXPECT_EQ(titles(*session), "e b a d c");
    session->reversePhotos();
    EXPECT_EQ(titles(*session), "c d a b e");
    for (int i = 0; i < 4; ++i)
        session->undo();
    EXPECT_EQ(titles(*session), "a b c d e");
}

TEST_F(DocumentSessionTest, ShufflesIntoAnotherOrder)
{
    auto session = newSession();
    add(*session, {photo("a.jpg"), photo("b.jpg")});
    // Of two there is but one other order.
    session->shufflePhotos();
    EXPECT_EQ(titles(*session), "b a");
    session->shufflePhotos();
    EXPECT_EQ(titles(*session), "a b");
    session->shufflePhotos();
    EXPECT_EQ(titles(*session), "b a");
}

TEST_F(DocumentSessionTest, TellsOfTheSmallestChange)
{
    auto session = sessionOfFive();
    std::vector<ListChange> told;
    const auto connection = session->photosChanged.connect([&](ListChange change) { told.push_back(change); });
    session->removePhotos(ids(*session, {1}));
    session->movePhotos(ids(*session, {3}), 2);
    session->setSettings(session->settings());
    EXPECT_THAT(told, ElementsAre(ListChange{1, 1, 0}, ListChange{2, 2, 2}));
}

TEST_F(DocumentSessionTest, BringsBackTheSamePhotos)
{
    auto session = sessionOfFive();
    const auto before = session->photos();
    session->removePhotos(ids(*session, {0, 2}));
    EXPECT_EQ(session->undoLabel(), "Remove 2 Photos");
    EXPECT_FALSE(session->indexOf(before[2]));
    session->undo();
    EXPECT_EQ(session->photos(), before);
    EXPECT_EQ(session->indexOf(before[2]), 2U);
    session->redo();
    EXPECT_EQ(titles(*session), "b d e");
}

TEST_F(DocumentSessionTest, TakesAHandleThatIsDraggedForOneStep)
{
    auto session = newSession();
    add(*session, {folder_.makeFile("one.mp3"), folder_.makeFile("two.mp3")});
    const SoundID one = session->sounds()[0].id;
    for (int i = 1; i <= 50; ++i)
        session->setSoundSelection(one, SoundFacts::Selection{Seconds(i), 90s});
    session->endMovement();
    EXPECT_EQ(session->sound(one)->selection->start, 50s);
    session->setSoundSelection(one, SoundFacts::Selection{9s, 3s});
    EXPECT_EQ(session->sound(one)->selection->start, 50s) << "nothing is left of such a part";
    session->moveSound(one, 2);
    EXPECT_EQ(session->sounds()[1].id, one);
    session->undo();
    session->undo();
    EXPECT_FALSE(session->sound(one)->selection);
    session->removeSound(one);
    EXPECT_THAT(session->sounds(), SizeIs(1));
}

TEST_F(DocumentSessionTest, MusicIsFittedOrLoopedAndNotBoth)
{
    auto session = newSession();
    session->loopMusic();
    session->fitToMusic();
    EXPECT_TRUE(session->settings().fitsMusic);
    EXPECT_FALSE(session->settings().loopsSounds);
    session->undo();
    EXPECT_TRUE(session->settings().loopsSounds);
}

TEST_F(DocumentSessionTest, ComesBackAfterTheProgramWasKilled)
{
    {
        auto session = sessionOfFive();
        session->removePhotos(ids(*session, {1}));
        MovieSettings settings = session->settings();
        settings.timePerPhoto = 2s;
        session->setSettings(settings);
        ASSERT_TRUE(waitUntilSaved(*session));
        // Gone without `finish`.
    }
    auto session = resumed();
    EXPECT_EQ(titles(*session), "a c d e");
    EXPECT_EQ(session->settings().timePerPhoto, 2s);
    EXPECT_FALSE(session->canUndo());
}

TEST_F(DocumentSessionTest, IsSavedWithinASecondOfAChange)
{
    auto session = sessionOfFive();
    ASSERT_TRUE(waitUntilSaved(*session));
    const auto begin = std::chrono::steady_clock::now();
    session->reversePhotos();
    EXPECT_FALSE(session->isSaved());
    ASSERT_TRUE(waitUntilSaved(*session));
    // A machine may be busy; the loop's own delay is what is promised.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 20s);
}

TEST_F(DocumentSessionTest, TakesNoDocumentThatAnotherWindowHas)
{
    auto first = sessionOfFive();
    ASSERT_TRUE(waitUntilSaved(*first));
    auto second = resumed();
    EXPECT_TRUE(second->isEmpty());
    first.reset();
    EXPECT_EQ(titles(*resumed()), "a b c d e");
}

TEST_F(DocumentSessionTest, IsAFolderOfCopiesOnceItHasAName)
{
    auto session = savedSession();
    EXPECT_EQ(session->name(), "Rome");
    EXPECT_EQ(titlesOnDisk(), "a b c d e");
    fs::remove_all(folder_.path("files"));
    session->movePhotos(ids(*session, {4}), 0);
    ASSERT_TRUE(waitUntilSaved(*session));
    EXPECT_EQ(titlesOnDisk(), "e a b c d");
    session->finish();
    session.reset();
    EXPECT_TRUE(resumed()->isEmpty()) << "it is a document of its own now";
    auto again = opened(location_);
    EXPECT_EQ(titles(*again), "e a b c d");
    EXPECT_TRUE(badItemsOf(*Document::load(location_)).empty());
}

TEST_F(DocumentSessionTest, BringsBackPhotosThatWereSavedAway)
{
    auto session = savedSession();
    fs::remove_all(folder_.path("files"));
    session->removePhotos(ids(*session, {1, 2}));
    ASSERT_TRUE(waitUntilSaved(*session));
    EXPECT_EQ(titlesOnDisk(), "a d e");
    session->undo();
    ASSERT_TRUE(waitUntilSaved(*session));
    EXPECT_EQ(titlesOnDisk(), "a b c d e");
    EXPECT_TRUE(badItemsOf(*Document::load(location_)).empty());
    session->removePhotos(ids(*session, {0}));
    session->finish();
    EXPECT_EQ(titlesOnDisk(), "b c d e") << "the last change, too";
    EXPECT_THAT(Document::load(location_)->unusedFiles(), SizeIs(0)) << "nothing is kept for nobody";
}

TEST_F(DocumentSessionTest, HasTheLastSecondOfADocumentWhoseProgramWasKilled)
{
    {
        auto session = savedSession();
        changeBehind();
        session->reversePhotos();
        // From here on the list in the state folder alone is written.
        ASSERT_TRUE(loop_.runUntil([&] { return session->isInConflict() && !session->isBusy(); }));
    }
    auto session = opened(location_);
    EXPECT_EQ(titles(*session), "e d c b a");
    EXPECT_EQ(session->undoLabel(), "Bring Back Unsaved Changes");
    session->undo();
    EXPECT_EQ(titles(*session), "b c d e");
}

TEST_F(DocumentSessionTest, KeepsTheDocumentThatIsThereWhereAnotherCannotBeOpened)
{
    auto session = sessionOfFive();
    std::vector<Error> errors;
    const auto connection = session->failed.connect([&](const std::vector<Error>& told) { errors = told; });
    session->open(folder_.path("no.stillora"));
    ASSERT_TRUE(loop_.runUntil([&] { return !errors.empty(); }));
    EXPECT_EQ(errors[0].file, folder_.path("no.stillora"));
    EXPECT_EQ(titles(*session), "a b c d e");
    EXPECT_TRUE(session->canUndo());
}

TEST_F(DocumentSessionTest, PutsAwayWhatHasNoNameForLater)
{
    auto session = sessionOfFive();
    waitFor(*session, session->opened, [&] { session->startNew(); });
    EXPECT_TRUE(session->isEmpty());
    std::vector<DocumentSession::Recent> recent;
    bool isFound = false;
    session->findRecent([&](std::vector<DocumentSession::Recent> found) {
        recent = std::move(found);
        isFound = true;
    });
    ASSERT_TRUE(loop_.runUntil([&] { return isFound; }));
    ASSERT_EQ(recent.size(), 1U);
    EXPECT_FALSE(recent[0].hasName);
    EXPECT_EQ(recent[0].name, "Untitled, 5 photos");
    waitFor(*session, session->opened, [&] { session->open(recent[0].location); });
    EXPECT_EQ(titles(*session), "a b c d e");
}

TEST_F(DocumentSessionTest, NeverWritesOverWhatAnotherProgramHasSaved)
{
    auto session = savedSession();
    changeBehind();
    session->reversePhotos();
    ASSERT_TRUE(loop_.runUntil([&] { return session->isInConflict(); }));
    EXPECT_EQ(titlesOnDisk(), "b c d e");
    EXPECT_EQ(titles(*session), "e d c b a");
    session->undo();
    ASSERT_TRUE(loop_.runUntil([&] { return !session->isBusy(); }));
    EXPECT_EQ(titlesOnDisk(), "b c d e");
}

TEST_F(DocumentSessionTest, SeesWhatAnotherProgramHasSavedWhenItLooks)
{
    auto session = savedSession();
    session->lookAgain();
    ASSERT_TRUE(loop_.runUntil([&] { return !session->isBusy(); }));
    EXPECT_FALSE(session->isInConflict());
    changeBehind();
    session->lookAgain();
    ASSERT_TRUE(loop_.runUntil([&] { return session->isInConflict(); }));
}

TEST_F(DocumentSessionTest, TakesTheirsAndCanUndoThat)
{
    auto session = savedSession();
    const PhotoID second = session->photos()[1];
    changeBehind();
    session->lookAgain();
    ASSERT_TRUE(loop_.runUntil([&] { return session->isInConflict(); }));
    session->takeTheirs();
    ASSERT_TRUE(loop_.runUntil([&] { return !session->isInConflict(); }));
    EXPECT_EQ(titles(*session), "b c d e");
    EXPECT_EQ(session->photos()[0], second) << "it is the same photo";
    session->undo();
    EXPECT_EQ(titles(*session), "a b c d e");
}

TEST_F(DocumentSessionTest, KeepsMine)
{
    auto session = savedSession();
    session->reversePhotos();
    ASSERT_TRUE(waitUntilSaved(*session));
    // Another program adds a photo.
    {
        auto document = Document::load(location_);
        ASSERT_TRUE(document->add({{.path = photo("other.jpg"), .size = {64, 48}, .fileSize = 1}}, {}));
        ASSERT_TRUE(document->save());
    }
    session->lookAgain();
    ASSERT_TRUE(loop_.runUntil([&] { return session->isInConflict(); }));
    session->keepMine();
    ASSERT_TRUE(loop_.runUntil([&] { return !session->isInConflict() && !session->isBusy(); }));
    EXPECT_EQ(titlesOnDisk(), "e d c b a");
}

TEST_F(DocumentSessionTest, SavesMineBesideTheirs)
{
    auto session = savedSession();
    {
        auto document = Document::load(location_);
        document->movePhoto(0, 4);
        ASSERT_TRUE(document->save());
    }
    session->lookAgain();
    ASSERT_TRUE(loop_.runUntil([&] { return session->isInConflict(); }));
    session->saveMineBeside();
    ASSERT_TRUE(loop_.runUntil([&] { return !session->isInConflict() && !session->isBusy(); }));
    EXPECT_EQ(session->name(), "Rome-2");
    EXPECT_EQ(titlesOnDisk(), "b c d e a");
    const auto mine = Document::load(*session->location());
    ASSERT_TRUE(mine);
    EXPECT_EQ(mine->photos()[0].title, "a");
}

TEST_F(DocumentSessionTest, LeavesOutOfTheDocumentWhatIsNoPhotoAndKeepsItOnTheScreen)
{
    auto session = sessionOfFive();
    add(*session, {folder_.makeFile("bad.jpg", "no photo")}, 1);
    session->saveAs(location_);
    ASSERT_TRUE(loop_.runUntil([&] { return session->location().has_value(); }));
    EXPECT_EQ(titlesOnDisk(), "a b c d e");
    EXPECT_EQ(titles(*session), "a bad b c d e");
}

} // namespace
