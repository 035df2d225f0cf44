#include "window/state/document/SessionFile.h"

#include <gtest/gtest.h>

using namespace stillora;
using namespace stillora::window;

namespace {

SavedSession full()
{
    SavedSession session;
    session.document = "/a/My Rome.stillora";
    session.photos = {"/a/one two.jpg", "/a/new\nline.jpg", "/a/100%.jpg", std::string("/a/\xff\xfe.jpg")};
    session.sounds = {{"/a/song.mp3", Seconds(1.25), Seconds(1.0 / 3 + 2)}, {"/a/whole.mp3", {}, {}}};
    session.settings.timePerPhoto = Seconds(0.1);
    session.settings.quality = kSmallestQuality;
    session.settings.codec = "hvc1";
    session.settings.loopsSounds = true;
    session.settings.fillsSilence = false;
    session.settings.title = "Rome, at last";
    session.settings.watermark = Watermark::Absent;
    return session;
}

TEST(SessionFile, KeepsEverythingByteForByte)
{
    EXPECT_EQ(sessionOfText(textOfSession(full())), full());
    EXPECT_EQ(sessionOfText(textOfSession({})), SavedSession());
}

TEST(SessionFile, IsRefusedWhereItIsCutOff)
{
    const std::string text = textOfSession(full());
    for (std::size_t length = 0; length < text.size(); ++length)
        ASSERT_FALSE(sessionOfText(std::string_view(text).substr(0, length))) << length;
}

TEST(SessionFile, IsRefusedWhereItSaysWhatCannotBe)
{
    for (const std::string line :
         {"seconds 0", "seconds nan", "seconds x", "codec mpeg", "sound /a 1", "sound /a x -", "sound /a -1 2", "photo",
          "photo a b", "photo %", "photo %zz", "photo %00", "loops maybe", "title a/b", "colour red", ""})
        EXPECT_FALSE(sessionOfText("stillora-session 1\n" + line + "\nend\n")) << line;
    EXPECT_FALSE(sessionOfText(std::string_view("stillora-session 1\nphoto /a\0b\nend\n", 34)));
    EXPECT_FALSE(sessionOfText("stillora-session 2\nend\n"));
    EXPECT_FALSE(sessionOfText("stillora-session 1\nend\nphoto /a\n"));
}

} // namespace
