#include "client/forecast/RemainingTime.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

constexpr const char* kStart = "VideoCreationTitleCalculatingSoundtrackDuration";
constexpr const char* kConverting = "VideoCreationTitleConvertingAndTrimmingAssets";
constexpr const char* kRendering = "VideoCreationTitleRenderingVideo";

/// Two seconds of sound, then 100 frames of which those of the second half take nine times as long.
MovieTimetable timetable()
{
    MovieTimetable table;
    table.serviceReady = 0.1;
    table.soundsConverted = 2;
    table.sounds = {{1000, 2}};
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
    for (const double pace : {0.5, 1.0, 2.0, 3.0}) {
        RemainingTime time(table);
        time.progressed(kStart, 0, 0, Seconds(pace * table.serviceReady));
        for (size_t i = 0; i < table.frames.size(); ++i) {
            const double elapsed = pace * table.frames[i];
            time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(elapsed));
            const double right = pace * (table.end - table.frames[i]);
            const double tolerance = table.frames[i] < table.end / 3 ? 0.3 : 0.15;
            if (table.frames[i] > table.end / 10) {
                EXPECT_NEAR(left(time, elapsed), right, tolerance * right) << pace << ", " << i;
            }
        }
    }
}

TEST(RemainingTime, ExpectsTheTimetablesPaceUntilTheMachinesIsKnown)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kStart, 0, 0, Seconds(0.3));
    EXPECT_NEAR(left(time, 0.3), table.end - table.serviceReady, 1e-6) << "starting says nothing of the pace";
}

TEST(RemainingTime, ExpectsThePaceThatTheMachineHadBefore)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table, 3);
    time.progressed(kStart, 0, 0, Seconds(0.3));
    EXPECT_NEAR(left(time, 0.3), 3 * (table.end - table.serviceReady), 1e-6);
    for (size_t i = 0; i < 30; ++i)
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(3 * table.frames[i]));
    EXPECT_NEAR(left(time, 3 * table.frames[29]), 3 * (table.end - table.frames[29]), 1);
}

/// Sound half as quick as it should be, or twice: pictures go by themselves.
TEST(RemainingTime, IsRightWhereSoundAndPicturesDifferInPace)
{
    MovieTimetable table = timetable();
    for (size_t i = 0; i < 100; ++i)
        table.frames[i] = 3 + 0.2 * static_cast<double>(i);
    table.picturesDone = 23;
    table.end = 23.5;
    for (const double ofSound : {0.5, 2.0}) {
        RemainingTime time(table);
        const auto clock = [&](double place) {
            return Seconds(place <= table.soundDone ? ofSound * place
                                                    : ofSound * table.soundDone + place - table.soundDone);
        };
        time.progressed(kStart, 0, 0, clock(table.serviceReady));
        time.progressed("VideoCreationTitleCalculatingVideoSize", 1, 100, clock(table.soundDone));
        for (size_t i = 0; i < 100; ++i) {
            time.progressed(kRendering, static_cast<double>(i + 1), 100, clock(table.frames[i]));
            const double right = table.end - table.frames[i];
            if (i >= 25) {
                EXPECT_NEAR(left(time, clock(table.frames[i]).count()), right, 0.15 * right) << ofSound << ", " << i;
            }
        }
    }
}

TEST(RemainingTime, ExpectsLittleOfPicturesByAMomentOfSound)
{
    MovieTimetable table = timetable();
    table.sounds = {{100, 0.13}};
    table.soundsConverted = table.soundDone = 0.13;
    RemainingTime time(table);
    time.progressed(kStart, 0, 0, Seconds(0.1));
    // Three times as long as it should take.
    time.progressed("VideoCreationTitleCalculatingVideoSize", 1, 100, Seconds(0.19));
    EXPECT_NEAR(left(time, 0.25), table.end, 0.1 * table.end);
}

TEST(RemainingTime, GetsLongerWhileWhatShouldBeDoneIsNot)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed("VideoCreationTitleCalculatingVideoSize", 1, 100, Seconds(2.5));
    EXPECT_LT(left(time, 2.6), left(time, 2.5));
    // The first frame should come after half a second.
    EXPECT_GT(left(time, 8), left(time, 2.5));
    EXPECT_GT(left(time, 12), left(time, 8));
    time.progressed(kRendering, 1, 100, Seconds(12));
    EXPECT_LT(left(time, 12.1), left(time, 12));
}

TEST(RemainingTime, DoesNotGetLongerWhereFramesWaitForOneBeforeThem)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kStart, 0, 0, Seconds(table.serviceReady));
    for (size_t i = 0; i < 40; ++i)
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(table.frames[i]));
    const double before = left(time, table.frames[39]);
    EXPECT_NEAR(left(time, table.frames[46]), before - (table.frames[46] - table.frames[39]), 1e-9);
    EXPECT_GT(left(time, table.frames[60]), before - (table.frames[60] - table.frames[39]) + 1);
}

TEST(RemainingTime, IsUnknownUntilTheServiceAnswersAndInTheFirstMoments)
{
    RemainingTime time(timetable());
    EXPECT_FALSE(time.left(Seconds(1)));
    time.progressed(kStart, 0, 0, Seconds(0.1));
    EXPECT_FALSE(time.left(Seconds(0.1)));
    EXPECT_TRUE(time.left(Seconds(0.3)));
}

TEST(RemainingTime, CountsDownBetweenNewsAndNeverBelowNothing)
{
    RemainingTime time(timetable());
    time.progressed(kStart, 0, 0, Seconds(0.1));
    time.progressed(kRendering, 50, 100, Seconds(10));
    const double first = left(time, 10);
    EXPECT_NEAR(left(time, 13), first - 3, 1e-9);
    time.progressed("VideoCreationCompositingVideoAndSoundtrack", 0, 1, Seconds(60));
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
    MovieTimetable music = timetable();
    // The second half is taken over, in next to no time.
    music.sounds = {{250, 1}, {500, 1.9}, {1000, 2}};
    music.frames = {3};
    music.picturesDone = 3.5;
    music.end = 4;
    RemainingTime time(music);
    time.progressed(kStart, 0, 0, Seconds(0.1));
    time.soundGrew(250, Seconds(1.9));
    EXPECT_NEAR(left(time, 1.9), 2 * (4 - 1), 1);
    time.soundGrew(500, Seconds(3.7));
    EXPECT_NEAR(left(time, 3.7), 2 * (4 - 1.9), 0.3);
    time.soundGrew(5000, Seconds(6));
    EXPECT_GT(left(time, 6), 3) << "more bytes than there should be do not end the stage";
}

TEST(RemainingTime, DoesNotGetLongerWhileSilenceIsConverted)
{
    MovieTimetable music = timetable();
    music.sounds = {{500, 0.3}, {1000, 0.5}};
    RemainingTime time(music);
    time.progressed(kStart, 0, 0, Seconds(0.1));
    time.soundGrew(500, Seconds(0.3));
    time.soundGrew(1000, Seconds(0.5));
    const double before = left(time, 0.5);
    EXPECT_NEAR(left(time, 1.9), before - 1.4, 1e-9);
    EXPECT_GT(left(time, 5), before - 2) << "but where it takes longer than it should";
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
    time.progressed(kStart, 0, 0, Seconds(table.serviceReady));
    for (size_t i = 0; i < 100; ++i)
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(table.frames[i]));
    time.progressed("VideoCreationCompositingVideoAndSoundtrack", 0, 1, Seconds(table.picturesDone));
    EXPECT_NEAR(left(time, table.picturesDone), 1, 0.1);
    time.progressed("VideoCreationWritingFinalVideo", 0.5, 1, Seconds(table.picturesDone + 0.5));
    EXPECT_NEAR(left(time, table.picturesDone + 0.5), 0.5, 0.1);
}

/// Nothing but photos of one kind, then a kind whose weight is wrong by half.
TEST(RemainingTime, IsWrongByNoMoreThanTheWeightsOfWhatComesLast)
{
    MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kStart, 0, 0, Seconds(table.serviceReady));
    double elapsed = 0;
    for (size_t i = 0; i < 100; ++i) {
        const double step = table.frames[i] - (i == 0 ? 0 : table.frames[i - 1]);
        elapsed += step * (i <= 50 ? 1 : 1.5);
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(elapsed));
        if (i == 49) {
            EXPECT_NEAR(left(time, elapsed), 1.5 * (table.frames[99] - table.frames[49]),
                        0.4 * 1.5 * (table.frames[99] - table.frames[49]));
        }
    }
    EXPECT_NEAR(left(time, elapsed), 1.5 * (table.end - table.frames[99]), 1);
}

TEST(RemainingTime, SurvivesAMovieOfOnePhotoAndOneOfNone)
{
    for (const size_t count : {0, 1}) {
        MovieTimetable table;
        table.serviceReady = table.soundsConverted = table.soundDone = 0.1;
        table.frames.assign(count, 0.5);
        table.picturesDone = 0.6;
        table.end = 0.7;
        RemainingTime time(table);
        time.progressed(kStart, 0, 0, Seconds(0.1));
        EXPECT_NEAR(left(time, 0.2), 0.5, 0.05) << count;
        time.progressed(kRendering, 1, 1, Seconds(0.5));
        EXPECT_NEAR(left(time, 0.5), 0.2, 0.1) << count;
        time.progressed("VideoCreationWritingFinalVideo", 1, 1, Seconds(0.7));
        EXPECT_NEAR(left(time, 0.7), 0, 0.05) << count;
    }
}

TEST(RemainingTime, StandsStillWithTheClock)
{
    const MovieTimetable table = timetable();
    RemainingTime time(table);
    time.progressed(kStart, 0, 0, Seconds(0.3));
    // All news of the first half at one moment, as after a stop of the program.
    for (size_t i = 0; i < 50; ++i) {
        time.progressed(kRendering, static_cast<double>(i + 1), 100, Seconds(0.3));
        const double now = left(time, 0.3);
        EXPECT_TRUE(std::isfinite(now) && now >= 0) << i;
        EXPECT_EQ(left(time, 0.3), now) << "asked twice";
    }
    EXPECT_LT(left(time, 0.3), table.end - table.frames[49]);
    EXPECT_GT(left(time, 60), left(time, 30)) << "and goes on with it";
}

TEST(RemainingTime, KnowsOfSoundThatLastsLongerThanThePictures)
{
    MovieTimetable music = timetable();
    music.sounds.clear();
    for (int part = 1; part <= 16; ++part)
        music.sounds.push_back({100.0 * part, 0.1 + part});
    music.soundsConverted = 16.1;
    music.soundDone = 16.3;
    music.frames.assign(7, 16.8);
    music.picturesDone = 17;
    music.end = 17.2;
    for (const double pace : {0.6, 1.0, 1.7}) {
        RemainingTime time(music, pace);
        time.progressed(kStart, 0, 0, Seconds(0.1));
        for (int part = 1; part <= 16; ++part) {
            const double elapsed = 0.1 + pace * part;
            time.soundGrew(100.0 * part, Seconds(elapsed));
            const double right = pace * (17.1 - std::min(part, 15));
            EXPECT_NEAR(left(time, elapsed), right, 0.15 * right + pace) << pace << ", " << part;
        }
    }
}
