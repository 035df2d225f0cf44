#include "client/command/terminal/SoundSentence.h"

#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;

const SoundFacts kSong{"/music/song.mp3", std::nullopt, 200s, 44100};
const SoundFacts kPart{"/music/part.m4a", SoundFacts::Selection{30s, 50s}, 20s, 48000};

std::string sentence(double seconds, std::vector<SoundFacts> sounds, bool loops = false, bool fillsSilence = true)
{
    MovieWish wish;
    wish.photos.assign(10, PhotoFacts{});
    wish.timePerPhoto = Seconds(seconds);
    wish.sounds = std::move(sounds);
    wish.loopsSounds = loops;
    wish.fillsSilence = fillsSilence;
    return soundSentence(*planMovie(wish), wish.sounds);
}

TEST(SoundSentence, TellsWhatIsHeardAndWhereItFades)
{
    EXPECT_EQ(sentence(10, {kSong}), "sound: song.mp3 for 1:40; it fades from 1:35 to 1:40");
    EXPECT_EQ(sentence(10, {kPart, kSong}),
              "sound: part.m4a from 0:30 for 0:20, then song.mp3 for 1:20; it fades from 1:35 to 1:40");
}

TEST(SoundSentence, TellsWhereTheMusicEndsEarly)
{
    EXPECT_EQ(sentence(10, {kPart}), "sound: part.m4a from 0:30 for 0:20; silence from 0:20 to 1:40");
    EXPECT_EQ(sentence(10, {kPart}, false, false), "sound: part.m4a from 0:30 for 0:20; nothing from 0:20 to 1:40");
}

TEST(SoundSentence, TellsTheLengthOfAShortSound)
{
    const SoundFacts knock{"/music/knock.wav", std::nullopt, 50ms, 44100};
    EXPECT_EQ(sentence(10, {knock}), "sound: knock.wav for 0.05 s; silence from 0:00 to 1:40");
}

TEST(SoundSentence, NamesWhatIsRepeatedOnce)
{
    EXPECT_EQ(sentence(100, {kSong, kPart}, true),
              "sound: song.mp3 for 3:20, then part.m4a from 0:30 for 0:20, repeated to "
              "the end; it fades from 16:35 to 16:40");
}

TEST(SoundSentence, CountsWhatWouldBeALongList)
{
    EXPECT_EQ(sentence(100, std::vector<SoundFacts>(10, kPart)),
              "sound: part.m4a from 0:30 for 0:20, then part.m4a from 0:30 for 0:20, then part.m4a from 0:30 for 0:20, "
              "then part.m4a from 0:30 for 0:20, then part.m4a from 0:30 for 0:20, then part.m4a from 0:30 for 0:20, "
              "then 4 more; silence from 3:20 to 16:40");
}

TEST(SoundSentence, NamesWhatIsLeftOut)
{
    EXPECT_EQ(sentence(20, {kSong, kPart}), "sound: song.mp3 for 3:20; it fades from 3:15 to 3:20; left out: part.m4a");
    EXPECT_EQ(sentence(20, std::vector<SoundFacts>(9, kSong)),
              "sound: song.mp3 for 3:20; it fades from 3:15 to 3:20; left out: song.mp3, song.mp3, song.mp3, song.mp3, "
              "song.mp3, song.mp3, 2 more");
}

TEST(SoundSentence, TellsOfNoSilenceTooShortToBeSeen)
{
    const SoundFacts most{"/music/most.mp3", std::nullopt, 99.8s, 44100};
    EXPECT_EQ(sentence(10, {most}), "sound: most.mp3 for 1:40");
}

TEST(SoundSentence, IsShortWithoutMusic)
{
    EXPECT_EQ(sentence(10, {}), "sound: silence");
    EXPECT_EQ(sentence(10, {}, false, false), "");
}

} // namespace
