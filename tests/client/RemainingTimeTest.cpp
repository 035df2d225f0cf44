#include "client/RemainingTime.h"

#include <string>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

constexpr const char* kConverting = "VideoCreationTitleConvertingAndTrimmingAssets";
constexpr const char* kRendering = "VideoCreationTitleRenderingVideo";

/// Two seconds of sound, then 100 frames of which those of the second half take nine times as long.
MovieTimetable timetable()
{
    MovieTimetable table;
    table.serviceReady = 0.1;
    table.soundsConverted = 2;
    table.soundBytes = 1000;
    table.soundDone = 2.5;
    double moment = 3;
    for (int i = 0; i < 100; ++i) {
        table.frames.push_back(moment);
        moment += i < 50 ? 0.1 : 0.9;
    }
    table.picturesDone = moment + 1;
    table.end = table.picturesDone + 1;
    return table;
}

double left(const RemainingTime& time, double elapsed)
{
    return time.left(Seconds(elapsed)).value_or(Seconds(-1)).count();
}

} // namespace

TEST(RemainingTime, IsRightFromTheFirstFramesOnWhereLaterOnesTakeLonger)
{
    const MovieTimetable table = timetable();
    // A machine that takes twice as long as the timetable's.
    RemainingTime time(table);
    for (size_t i = 0; i < table.frames.size(); ++i) {
        const double elapsed = 2 * table.frames[i];
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(elapsed));
        EXPECT_NEAR(left(time, elapsed), 2 * (table.end - table.frames[i]), 1e-6) << i;
    }
}

TEST(RemainingTime, IsUnknownUntilEnoughIsDone)
{
    MovieTimetable table = timetable();
    RemainingTime time(table);
    EXPECT_FALSE(time.left(Seconds(1)));
    time.progressed("VideoCreationTitleCalculatingSoundtrackDuration", 0, 0, Seconds(0.1));
    time.progressed(kConverting, 0, 0, Seconds(5));
    EXPECT_FALSE(time.left(Seconds(6))) << "nothing tells how far the sound is";
    time.progressed(kConverting, 0, 1, Seconds(7));
    EXPECT_FALSE(time.left(Seconds(7))) << "two of 55 parts";
    time.progressed("VideoCreationTitleCalculatingVideoSize", 1, 100, Seconds(8));
    EXPECT_TRUE(time.left(Seconds(8)));
}

TEST(RemainingTime, IsUnknownInTheFirstMoments)
{
    MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kRendering, 60, 100, Seconds(0.3));
    EXPECT_FALSE(time.left(Seconds(0.3)));
    time.progressed(kRendering, 61, 100, Seconds(0.5));
    EXPECT_TRUE(time.left(Seconds(0.5)));
}

TEST(RemainingTime, CountsDownBetweenNewsAndNeverBelowNothing)
{
    RemainingTime time(timetable());
    time.progressed(kRendering, 50, 100, Seconds(10));
    const double first = left(time, 10);
    EXPECT_NEAR(left(time, 13), first - 3, 1e-9);
    EXPECT_EQ(left(time, 1000), 0);
}

TEST(RemainingTime, DoesNotJumpWhereOneFrameIsLate)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    for (size_t i = 0; i < 60; ++i)
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(table.frames[i]));
    const double before = left(time, table.frames[59]);
    // One that should take 0.9 s takes 2; taken at its word the whole would take seven seconds longer.
    const double late = table.frames[60] + 1.1;
    time.progressed(kRendering, 61, 100, Seconds(late));
    EXPECT_NEAR(left(time, late), before - (late - table.frames[59]), 4);
    EXPECT_GT(left(time, late), before - (late - table.frames[59])) << "but it is heard";
}

TEST(RemainingTime, FollowsAMachineThatGetsSlower)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    double elapsed = 0;
    for (size_t i = 0; i < 100; ++i) {
        const double step = table.frames[i] - (i == 0 ? 0 : table.frames[i - 1]);
        elapsed += step * (i < 55 ? 1 : 3);
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(elapsed));
    }
    EXPECT_GT(left(time, elapsed), 2 * (table.end - table.frames.back()));
}

TEST(RemainingTime, GoesByTheSoundThatIsWritten)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kConverting, 0, 0, Seconds(0.3));
    // The half of the bytes: 1.05 of the timetable's seconds, of which 57 are to come; the share is too small yet.
    time.soundGrew(500, Seconds(3));
    EXPECT_FALSE(time.left(Seconds(3)));

    MovieTimetable music = table;
    music.frames = {3};
    music.picturesDone = 3.5;
    music.end = 4;
    RemainingTime ofMusic(music);
    ofMusic.soundGrew(500, Seconds(3));
    EXPECT_NEAR(left(ofMusic, 3), (4 - 1.05) / 1.05 * 3, 1e-6);
    ofMusic.soundGrew(5000, Seconds(6));
    EXPECT_GT(left(ofMusic, 6), 3) << "more bytes than there should be do not end the stage";
}

TEST(RemainingTime, DoesNotGoByFilesOnceTheSoundIsConverted)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kRendering, 50, 100, Seconds(10));
    RemainingTime same = time;
    same.soundGrew(10, Seconds(12));
    same.progressed("unknown", 1, 2, Seconds(13));
    EXPECT_EQ(left(same, 14), left(time, 14));
}

TEST(RemainingTime, IsNextToNothingWhereTheMovieIsWritten)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    for (size_t i = 0; i < 100; ++i)
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(table.frames[i]));
    time.progressed("VideoCreationCompositingVideoAndSoundtrack", 0, 1, Seconds(table.picturesDone));
    EXPECT_NEAR(left(time, table.picturesDone), 1, 1e-6);
    time.progressed("VideoCreationWritingFinalVideo", 0.5, 1, Seconds(table.picturesDone + 0.5));
    EXPECT_NEAR(left(time, table.picturesDone + 0.5), 0.5, 1e-6);
}
