#include "client/forecast/MovieTimetable.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

/// What was measured was made alone.
constexpr double kAmongOthers = 1.12;

PhotoFacts photo(const std::string& name, double width, double height, int64_t bytes)
{
    PhotoFacts facts;
    facts.path = name;
    facts.size = {width, height};
    facts.fileSize = bytes;
    return facts;
}

PhotoFacts jpeg(double megapixels)
{
    const double pixels = megapixels * 1e6;
    return photo("a.jpg", std::sqrt(pixels * 3 / 2), std::sqrt(pixels * 2 / 3), static_cast<int64_t>(pixels / 5));
}

SoundFacts sound(const std::string& name, double seconds)
{
    SoundFacts facts;
    facts.path = name;
    facts.length = Seconds(seconds);
    facts.sampleRateHz = 44100;
    return facts;
}

MovieRequest request(std::vector<PhotoFacts> photos, std::vector<SoundFacts> sounds = {}, std::string codec = "avc1")
{
    MovieWish wish;
    wish.photos = std::move(photos);
    wish.timePerPhoto = Seconds(4);
    wish.sounds = std::move(sounds);
    wish.fillsSilence = false;
    MovieRequest request;
    request.plan = *planMovie(wish);
    request.photos = wish.photos;
    request.sounds = wish.sounds;
    request.codec = std::move(codec);
    request.quality = 1080;
    return request;
}

FrameWork work(const PhotoFacts& photo, const std::string& codec = "avc1", int64_t quality = 1080)
{
    MovieRequest one = request({photo}, {}, codec);
    one.quality = quality;
    return workOfPhoto(photo, one, frameSizeForQuality(quality, one.photos));
}

double lengthOfSound(const std::vector<SoundFacts>& sounds)
{
    const MovieTimetable table = timetableOf(request(std::vector<PhotoFacts>(100, jpeg(2)), sounds), 2);
    return table.soundDone - table.serviceReady;
}

TEST(MovieTimetable, FramesThatAreCopiedTakeNoTime)
{
    const MovieRequest wanted = request(std::vector<PhotoFacts>(40, jpeg(12)));
    FrameSource source{platform::NSURL::fileURLWithPath("/a.mov", false), {}};
    for (size_t i = 0; i < 30; ++i)
        source.frames.emplace(i, i);
    const MovieTimetable all = timetableOf(wanted, 2);
    const MovieTimetable some = timetableOf(wanted, 2, &source);
    EXPECT_NEAR(some.frames[29], some.frames[0], 1e-9);
    EXPECT_LT(some.frames[29], all.frames[1]);
    // Ten of forty are left.
    const double pictures = some.picturesDone - some.soundDone;
    EXPECT_LT(pictures, 0.4 * (all.picturesDone - all.soundDone));
    EXPECT_GT(pictures, 0.1 * (all.picturesDone - all.soundDone));
}

} // namespace

/// As measured, in milliseconds, within a quarter: formats and sizes are weighed against each other.
TEST(MovieTimetable, WeighsPhotosAsTheyWereMeasured)
{
    struct Row {
        const char* name;
        double width;
        double height;
        int64_t bytes;
        double milliseconds;
    };
    for (const Row& row : {Row{"12.jpg", 4000, 3000, 1118170, 22.3},
                           {"24.JPG", 6000, 4000, 4710262, 58.4},
                           {"1.jpeg", 1200, 900, 140898, 4.9},
                           {"12.png", 4000, 3000, 27977615, 190},
                           {"8.png", 3264, 2448, 5566603, 66},
                           {"4.png", 2400, 1700, 11533132, 49},
                           {"1.png", 1200, 900, 3054524, 12.4},
                           {"12.webp", 4000, 3000, 233686, 63.5},
                           {"8.webp", 3264, 2448, 1200274, 86},
                           {"8.heic", 3264, 2448, 564594, 108},
                           {"12.heic", 4000, 3000, 3686643, 438},
                           {"12.tiff", 4000, 3000, 36000140, 52.1},
                           {"12.tif", 4000, 3000, 42047518, 187},
                           {"4.jp2", 2400, 1700, 4172812, 918},
                           {"4.avif", 2400, 1700, 48377, 19.1},
                           {"8.avif", 3264, 2448, 963458, 150}})
        EXPECT_NEAR(work(photo(row.name, row.width, row.height, row.bytes)).draw / kAmongOthers * 1e3, row.milliseconds,
                    row.milliseconds / 4)
            << row.name;
}

TEST(MovieTimetable, WeighsProgressivePhotosAsTheyWereMeasured)
{
    struct Row {
        double width;
        double height;
        int64_t bytes;
        double milliseconds;
    };
    for (const Row& row :
         {Row{4000, 3000, 884949, 78.6}, Row{4000, 3000, 2163881, 122}, Row{6000, 4000, 1572284, 168},
          Row{6000, 4000, 4142370, 209}, Row{2400, 1700, 800158, 41.3}, Row{3264, 2448, 633794, 44.3}}) {
        PhotoFacts facts = photo("a.jpg", row.width, row.height, row.bytes);
        facts.isProgressive = true;
        EXPECT_NEAR(work(facts).draw / kAmongOthers * 1e3, row.milliseconds, row.milliseconds / 4) << row.bytes;
    }
}

/// Of photographs of 8 megapixels, one soft and one of much detail and grain, in milliseconds at 1080 and 2160 lines.
TEST(MovieTimetable, WeighsCodecsAsTheyWereMeasured)
{
    struct Row {
        const char* codec;
        double soft;
        double sharp;
        double soft2160;
        double sharp2160;
    };
    const PhotoFacts soft = photo("a.jpg", 3264, 2448, 383533);
    const PhotoFacts sharp = photo("a.jpg", 3264, 2448, 2261247);
    for (const Row& row :
         {Row{"jpeg", 4.7, 6.3, 18.2, 23.4}, Row{"avc1", 14.2, 16.5, 57.5, 72.0}, Row{"hvc1", 136.8, 185.8, 724, 1442},
          Row{"apcn", 33.7, 50.7, 119, 203}, Row{"ap4h", 85.8, 83.4, 313, 319}, Row{"apch", 55.0, 65.3, 208, 236},
          Row{"apcs", 27.4, 45.5, 100, 155}, Row{"apco", 23.0, 34.0, 88, 121}, Row{"ap4x", 85.9, 82.1, 264, 306}}) {
        const auto expectNear = [&](const PhotoFacts& facts, int64_t quality, double measured) {
            EXPECT_NEAR(work(facts, row.codec, quality).code / kAmongOthers * 1e3, measured, measured / 5)
                << row.codec << ", " << facts.fileSize << ", " << quality;
        };
        expectNear(soft, 1080, row.soft);
        expectNear(sharp, 1080, row.sharp);
        expectNear(soft, 2160, row.soft2160);
        expectNear(sharp, 2160, row.sharp2160);
    }
    EXPECT_LT(work(jpeg(0.3), "avc1", 2160).code, work(soft, "avc1", 2160).code / 1.4) << "black is quick";
}

/// In their own size, at 480 lines: what a file spends on a pixel tells how fine its picture is.
TEST(MovieTimetable, KnowsDetailByTheFilesOfEachFormat)
{
    const auto code = [](const char* name, int64_t bytes) {
        return work(photo(name, 640, 480, bytes), "hvc1", 480).code / kAmongOthers * 1e3;
    };
    for (const auto& [name, soft, sharp] : {std::tuple{"a.jpg", 45773, 122573}, std::tuple{"a.webp", 23962, 78336},
                                            std::tuple{"a.heic", 59904, 148378}}) {
        EXPECT_NEAR(code(name, soft), 28.5, 28.5 / 4) << name;
        EXPECT_NEAR(code(name, sharp), 44.1, 44.1 / 4) << name;
    }
    EXPECT_EQ(code("a.png", 830000), code("a.png", 870000)) << "nothing is known";
}

TEST(MovieTimetable, HasAllProcessorsAtWorkButAtTheEnds)
{
    const MovieRequest wanted = request(std::vector<PhotoFacts>(200, jpeg(12)));
    const FrameWork each = work(jpeg(12));
    for (const unsigned processors : {1U, 2U}) {
        const MovieTimetable table = timetableOf(wanted, processors);
        const double whole = 200 * (each.draw + each.code) / processors;
        EXPECT_NEAR(table.picturesDone - table.soundDone, whole, whole / 10) << processors;
        EXPECT_NEAR(table.work, 200 * (each.draw + each.code), whole / 20) << "however many share it";
    }
}

TEST(MovieTimetable, IsInOrder)
{
    const MovieTimetable table = timetableOf(
        request({jpeg(24), jpeg(1), photo("a.heic", 4000, 3000, 900000), jpeg(2)}, {sound("a.mp3", 60)}, "hvc1"), 2);
    ASSERT_EQ(table.frames.size(), 8U) << "four photos stand twice in the request";
    EXPECT_LT(0, table.serviceReady);
    EXPECT_LT(table.serviceReady, table.soundsConverted);
    EXPECT_LE(table.soundsConverted, table.soundDone);
    EXPECT_LT(table.soundDone, table.frames.front());
    EXPECT_TRUE(std::ranges::is_sorted(table.frames));
    EXPECT_LE(table.frames.back(), table.picturesDone);
    EXPECT_LT(table.picturesDone, table.end);
}

TEST(MovieTimetable, HandsOverNoFrameBeforeFiveAreMade)
{
    const MovieTimetable table = timetableOf(request(std::vector<PhotoFacts>(40, jpeg(12))), 2);
    EXPECT_NEAR(table.frames[0], table.frames[3], 1e-9);
    EXPECT_GT(table.frames[0] - table.soundDone, 5 * work(jpeg(12)).draw / 2);
    EXPECT_GT(table.frames[39], table.frames[10]);
}

TEST(MovieTimetable, HasFramesMadeAheadWhileOneTakesLong)
{
    // The other thread draws and codes those that come after it.
    std::vector<PhotoFacts> photos(60, jpeg(2));
    photos[20] = photo("a.jp2", 4000, 3000, 4000000);
    const MovieTimetable table = timetableOf(request(photos), 2);
    const FrameWork each = work(jpeg(2));
    EXPECT_GT(table.frames[20] - table.frames[19], work(photos[20]).draw / 2);
    EXPECT_LT(table.frames[35] - table.frames[20], (each.draw + each.code) * 5);
}

TEST(MovieTimetable, TakesTimeForSoundThatIsConvertedAndLittleForWhatIsCopied)
{
    const double converted = lengthOfSound({sound("a.mp3", 300)});
    EXPECT_GT(converted, 0.5);
    EXPECT_LT(lengthOfSound({sound("a.m4a", 300)}), converted / 10);
    EXPECT_EQ(lengthOfSound({}), 0);
    EXPECT_GT(lengthOfSound({sound("a.m4a", 100), sound("b.m4a", 200)}), 200 * 3.9e-3 / 2)
        << "after a joint all is coded anew";
}

TEST(MovieTimetable, CountsWorkOnSoundOnWhateverProcessors)
{
    const auto of = [](const std::vector<SoundFacts>& sounds, unsigned processors) {
        return timetableOf(request(std::vector<PhotoFacts>(100, jpeg(2)), sounds), processors);
    };
    for (const std::vector<SoundFacts>& sounds :
         {std::vector{sound("a.mp3", 300)}, {sound("a.m4a", 3000)}, {sound("a.wav", 100), sound("b.wav", 200)}}) {
        const MovieTimetable alone = of(sounds, 1);
        const MovieTimetable silent = of({}, 1);
        const double work = alone.work - silent.work;
        EXPECT_NEAR(work, alone.end - silent.end, work / 50);
        EXPECT_NEAR(of(sounds, 2).work, alone.work, work / 100);
    }
}

TEST(MovieTimetable, KnowsInWhichPiecesSoundIsWritten)
{
    const auto of = [](double seconds, unsigned processors) {
        return timetableOf(request(std::vector<PhotoFacts>(100, jpeg(2)), {sound("a.wav", seconds)}), processors);
    };
    const MovieTimetable large = of(300, 2);
    ASSERT_EQ(large.sounds.size(), 8U) << "eight parts";
    EXPECT_NEAR(large.sounds[0].bytes, large.sounds[7].bytes / 8, 1);
    const double whole = large.soundsConverted - large.serviceReady;
    const auto shareAt = [&](size_t part) { return (large.sounds[part].moment - large.serviceReady) / whole; };
    // With the first one those that come after it are nearly done.
    EXPECT_NEAR(shareAt(0), 2.3 / 8, 0.02);
    EXPECT_NEAR(shareAt(1) - shareAt(0), 1.0 / 8, 0.01);
    EXPECT_EQ(large.sounds[7].moment, large.soundsConverted);
    EXPECT_TRUE(std::ranges::is_sorted(large.sounds, {}, &MovieTimetable::Sound::moment));
    const MovieTimetable atOnce = of(300, 8);
    EXPECT_NEAR(atOnce.sounds[2].moment, atOnce.sounds.back().moment, 1e-9);
    // Too short to be cut into parts: no second processor helps.
    EXPECT_EQ(of(20, 2).soundsConverted, of(20, 1).soundsConverted);
}

TEST(MovieTimetable, KnowsThatSilenceTakesTimeAndWritesNothing)
{
    MovieRequest wanted = request(std::vector<PhotoFacts>(100, jpeg(2)), {sound("a.mp3", 30)});
    const MovieTimetable music = timetableOf(wanted, 2);
    PlannedSound silence;
    silence.length = Seconds(600);
    wanted.plan.sounds.push_back(silence);
    const MovieTimetable table = timetableOf(wanted, 2);
    EXPECT_EQ(table.sounds.size(), music.sounds.size());
    // As measured.
    EXPECT_NEAR(table.soundsConverted - music.soundsConverted, 0.24, 0.05);
    EXPECT_GT(table.soundDone - table.soundsConverted, music.soundDone - music.soundsConverted + 0.2);
}

TEST(MovieTimetable, WeighsSoundsAsTheyWereMeasured)
{
    const auto converted = [](const char* name, int rateHz) {
        SoundFacts music = sound(name, 400);
        music.sampleRateHz = rateHz;
        const MovieTimetable table = timetableOf(request(std::vector<PhotoFacts>(100, jpeg(2)), {music}), 1);
        return (table.soundsConverted - table.serviceReady) / 400 * 1e3;
    };
    EXPECT_NEAR(converted("a.wav", 44100), 4.0, 0.6);
    EXPECT_NEAR(converted("a.mp3", 44100), 4.6, 0.6);
    EXPECT_NEAR(converted("a.mp3", 48000), 5.0, 0.6);
    EXPECT_NEAR(converted("a.flac", 44100), 4.7, 0.6);
    EXPECT_NEAR(converted("a.flac", 48000), 5.2, 0.6);
    EXPECT_NEAR(converted("a.ogg", 44100), 4.6, 0.6);
    EXPECT_NEAR(converted("a.opus", 48000), 6.0, 0.6);
    EXPECT_NEAR(converted("a.m4a", 44100), 0.1, 0.1);
}

TEST(MovieTimetable, CountsAFileThatIsRepeatedOnce)
{
    MovieRequest wanted = request(std::vector<PhotoFacts>(100, jpeg(2)), {sound("a.mp3", 100)});
    const double once = timetableOf(wanted, 2).soundsConverted;
    wanted.plan.sounds.insert(wanted.plan.sounds.end(), 3, wanted.plan.sounds.front());
    EXPECT_EQ(timetableOf(wanted, 2).soundsConverted, once);
    wanted.plan.sounds.back().selection = SoundFacts::Selection{Seconds(10), Seconds(110)};
    EXPECT_GT(timetableOf(wanted, 2).soundsConverted, once) << "another part is converted by itself";
}
