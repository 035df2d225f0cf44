#include "platform/sound/SoundFacts.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestExport.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <string>
#include <string_view>
#include <vector>

using namespace platform;
using namespace testsound;
using namespace testexport;

namespace {

void putBigEndian(std::string& bytes, uint64_t value, int count)
{
    for (int i = count; i-- > 0;)
        bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

uint32_t bigEndianAt(const std::string& bytes, size_t offset)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(bytes.at(offset + i));
    return value;
}

std::string box(std::string_view type, const std::string& content)
{
    std::string bytes;
    putBigEndian(bytes, content.size() + 8, 4);
    return bytes.append(type) + content;
}

/// A chunk as AIFF has them.
std::string chunk(const std::string& type, const std::string& content)
{
    std::string bytes = type;
    putBigEndian(bytes, content.size(), 4);
    return bytes + content;
}

/// Replaces the boxes of a type inside of the last box of the file that the path leads to, or adds one. Nothing behind
/// them is moved that something else points to, as the index stands last in these files.
///
/// @param path  types of the boxes around it, outermost first
std::string withBox(std::string bytes, std::vector<std::string> path, std::string_view type, const std::string& content)
{
    if (path.empty()) {
        std::string result;
        for (size_t at = 0; at + 8 <= bytes.size();) {
            const size_t size = bigEndianAt(bytes, at);
            if (bytes.compare(at + 4, 4, type) != 0)
                result += bytes.substr(at, size);
            at += size;
        }
        return content.empty() ? result : result + box(type, content);
    }
    for (size_t at = 0; at + 8 <= bytes.size();) {
        const size_t size = bigEndianAt(bytes, at);
        if (bytes.compare(at + 4, 4, path.front()) == 0) {
            const std::string inner = bytes.substr(at + 8, size - 8);
            const std::string changed = withBox(inner, {path.begin() + 1, path.end()}, type, content);
            return bytes.substr(0, at) + box(path.front(), changed) + bytes.substr(at + size);
        }
        at += size;
    }
    throw std::runtime_error("no box " + path.front());
}

struct Edit {
    /// In the movie's scale.
    int64_t duration;
    /// In the track's; -1 is silence.
    int64_t mediaTime;
};

std::string editList(const std::vector<Edit>& edits)
{
    std::string list;
    putBigEndian(list, 0, 4);
    putBigEndian(list, edits.size(), 4);
    for (const Edit& edit : edits) {
        putBigEndian(list, static_cast<uint64_t>(edit.duration), 4);
        putBigEndian(list, static_cast<uint64_t>(edit.mediaTime), 4);
        putBigEndian(list, 0x10000, 4);
    }
    return box("elst", list);
}

/// The decoder's configuration that tells of band replication, and with it of a doubled rate.
std::string configurationWithBandReplication(unsigned objectType, unsigned coreRateIndex, unsigned channels,
                                             unsigned rateIndex)
{
    uint64_t bits = objectType;
    bits = bits << 4 | coreRateIndex;
    bits = bits << 4 | channels;
    bits = bits << 4 | rateIndex;
    bits = bits << 5 | 2;
    bits <<= 3;
    std::string bytes;
    putBigEndian(bytes, bits << (40 - 25), 5);
    return bytes;
}

double loudest(const Sound& sound, size_t channel = 0)
{
    double value = 0;
    for (size_t frame = sound.frames() / 4; frame < sound.frames() * 3 / 4; ++frame)
        value = std::max(value, std::abs(double{sound.at(frame, channel)}));
    return value;
}

/// Times a second that the sound goes from below to above zero in its middle half.
double pitchOf(const Sound& sound)
{
    int crossings = 0;
    const size_t from = sound.frames() / 4;
    const size_t to = sound.frames() * 3 / 4;
    for (size_t frame = from; frame < to; ++frame)
        crossings += sound.at(frame) < 0 && sound.at(frame + 1) >= 0;
    return crossings * static_cast<double>(sound.rateHz) / static_cast<double>(to - from);
}

class SoundFormats : public testing::Test {
protected:
    /// Converts and decodes again.
    Sound convert(const std::string& name, std::optional<CMTimeRange> range = std::nullopt)
    {
        output_ = folder_.url("out-" + std::to_string(++runs_) + ".m4a");
        expectExported(exportM4A(assetOf(folder_.url(name)), *output_, range));
        length_ = AVURLAsset(*output_).duration().value;
        return decodeWithFFmpeg(output_->path());
    }

    /// A tone, coded by ffmpeg.
    Sound makeFile(const std::string& name, const std::string& options, int rateHz = 44100, int channels = 2,
                   size_t frames = 88201)
    {
        const Sound tone = makeTone(rateHz, channels, frames);
        writeWav(folder_.path("tone.wav"), tone);
        convertWithFFmpeg(folder_.path("tone.wav"), options, folder_.path(name));
        return tone;
    }

    void rewrite(const std::string& name, const std::string& bytes) { writeBytes(folder_.path(name), bytes); }
    std::string bytesOf(const std::string& name) { return readBytes(folder_.path(name)); }

    TemporaryFolder folder_;
    std::optional<NSURL> output_;
    int64_t length_ = 0;
    int runs_ = 0;
};

TEST_F(SoundFormats, EveryKindOfUncompressedSampleIsReadToTheSample)
{
    struct Row {
        const char* name;
        const char* options;
        double quality;
    };
    const Row rows[] = {
        {"24.wav", "-c:a pcm_s24le", 35},    {"32.wav", "-c:a pcm_s32le", 35},
        {"float.wav", "-c:a pcm_f32le", 35}, {"double.wav", "-c:a pcm_f64le", 35},
        {"8.wav", "-c:a pcm_u8", 25},        {"a.wav", "-c:a pcm_alaw", 25},
        {"24.w64", "-c:a pcm_s24le", 35},    {"rf64.wav", "-c:a pcm_s16le -rf64 always", 35},
        {"24.aiff", "-c:a pcm_s24be", 35},   {"float.aifc", "-f aiff -c:a pcm_f32be", 35},
        {"float.caf", "-c:a pcm_f32le", 35}, {"t.au", "-c:a pcm_s16be", 35},
        {"t.mov", "-c:a pcm_s16le", 35},     {"24.flac", "-c:a flac -sample_fmt s32", 35},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Sound tone = makeFile(row.name, row.options);
        const Sound heard = convert(row.name);
        EXPECT_EQ(length_, 88201);
        EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), row.quality);
    }
}

TEST_F(SoundFormats, PaddingOfChunksIsNoSound)
{
    const Sound tone = makeFile("t.w64", "-c:a pcm_s16le");
    std::string bytes = bytesOf("t.w64");
    const size_t data = bytes.find("data");
    ASSERT_NE(data, std::string::npos);
    // Chunks are padded to eight bytes, which their lengths leave out.
    std::string size;
    putLittleEndian(size, 88201 * 4 + 24, 4);
    bytes.replace(data + 16, 4, size);
    rewrite("t.w64", bytes);
    EXPECT_EQ(AVURLAsset(folder_.url("t.w64")).duration().value, 88201);
    const Sound heard = convert("t.w64");
    EXPECT_EQ(length_, 88201);
    EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 35);
}

TEST_F(SoundFormats, OldAdaptiveCodingInWavIsReadToItsEnd)
{
    for (const char* codec : {"adpcm_ms", "adpcm_ima_wav"}) {
        SCOPED_TRACE(codec);
        const Sound tone = makeFile(std::string(codec) + ".wav", std::string("-c:a ") + codec);
        const Sound heard = convert(std::string(codec) + ".wav");
        // Its blocks are whole.
        EXPECT_GE(length_, 88201);
        EXPECT_LT(length_, 88201 + 4096);
        EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 20);
    }
}

TEST_F(SoundFormats, OddRatesOfAIFFKeepPitchAndLength)
{
    struct Row {
        int rate;
        int expected;
    };
    for (const Row row : {Row{44056, 44100}, Row{37037, 44100}, Row{50000, 48000}, Row{11127, 12000}}) {
        SCOPED_TRACE(row.rate);
        writeWav(folder_.path("tone.wav"), makeTone(row.rate, 1, size_t(row.rate) * 2, 441));
        const std::string name = std::to_string(row.rate) + ".aiff";
        convertWithFFmpeg(folder_.path("tone.wav"), "-c:a pcm_s16be", folder_.path(name));
        const Sound heard = convert(name);
        EXPECT_EQ(heard.rateHz, row.expected);
        EXPECT_EQ(length_, 2 * row.expected);
        EXPECT_NEAR(pitchOf(heard), 441, 1);
    }
}

TEST_F(SoundFormats, FractionalRateOfOldAIFFIsTakenToTheNearestWhole)
{
    // 22254.5454... Hz, which the first machines with this format had: an 80-bit number.
    std::string common;
    putBigEndian(common, 1, 2);
    putBigEndian(common, 44509, 4);
    putBigEndian(common, 16, 2);
    putBigEndian(common, 0x400D, 2);
    putBigEndian(common, 0xADDD1745D145826BULL, 8);
    std::string samples;
    putBigEndian(samples, 0, 8);
    for (int i = 0; i < 44509; ++i)
        putBigEndian(samples, static_cast<uint16_t>(std::lround(16000 * std::sin(i * 2 * std::numbers::pi / 50))), 2);
    rewrite("old.aiff", chunk("FORM", "AIFF" + chunk("COMM", common) + chunk("SSND", samples)));
    const Sound heard = convert("old.aiff");
    EXPECT_EQ(heard.rateHz, 24000);
    EXPECT_NEAR(static_cast<double>(length_) / 24000, 44509 / 22254.5454, 0.0002);
    EXPECT_NEAR(pitchOf(heard), 22254.5454 / 50, 1);
}

TEST_F(SoundFormats, WhatLiesAbove24KilohertzIsLeftOutNotFoldedDown)
{
    for (const int rate : {96000, 192000}) {
        SCOPED_TRACE(rate);
        // 1 kHz, and 30 kHz that would be heard at 18 kHz.
        const auto value = [rate](size_t frame, int) {
            const double seconds = static_cast<double>(frame) / rate;
            return 0.4 * std::sin(2 * std::numbers::pi * 1000 * seconds) +
                   0.4 * std::sin(2 * std::numbers::pi * 30000 * seconds);
        };
        const std::string name = std::to_string(rate) + ".wav";
        writeWav(folder_.path(name), makeSound(rate, 2, size_t(rate) * 2, value));
        const Sound heard = convert(name);
        EXPECT_EQ(heard.rateHz, 48000);
        EXPECT_EQ(length_, 2 * 48000);
        const Sound wanted = makeSound(48000, 2, 2 * 48000, [](size_t frame, int) {
            return 0.4 * std::sin(2 * std::numbers::pi * 1000 * static_cast<double>(frame) / 48000);
        });
        EXPECT_GT(signalToNoise(heard, 4096, wanted, 4096, 80000), 30);
    }
}

TEST_F(SoundFormats, SurroundIsMixedDownInProportionAndNeverClips)
{
    // In order: left, right, middle, low frequencies, left and right behind.
    struct Row {
        int channel;
        double left;
        double right;
    };
    const double side = std::numbers::sqrt2 / 2;
    const double all = 1 + 2 * side;
    for (const Row row :
         {Row{0, 1, 0}, Row{1, 0, 1}, Row{2, side, side}, Row{3, 0, 0}, Row{4, side, 0}, Row{5, 0, side}}) {
        SCOPED_TRACE(row.channel);
        const std::string name = std::to_string(row.channel) + ".wav";
        writeWav(folder_.path("raw.wav"), makeSound(48000, 6, 96000, [&](size_t frame, int channel) {
                     return channel == row.channel ? 0.9 * std::sin(double(frame) * 2 * std::numbers::pi / 100) : 0.0;
                 }));
        convertWithFFmpeg(folder_.path("raw.wav"), "-af aformat=channel_layouts=5.1", folder_.path(name));
        const Sound heard = convert(name);
        ASSERT_EQ(heard.channels, 2);
        EXPECT_NEAR(loudest(heard, 0), 0.9 * row.left / all, 0.02);
        EXPECT_NEAR(loudest(heard, 1), 0.9 * row.right / all, 0.02);
    }
    writeWav(folder_.path("raw.wav"), makeSound(48000, 6, 96000, [&](size_t frame, int) {
                 return 0.99 * std::sin(double(frame) * 2 * std::numbers::pi / 100);
             }));
    convertWithFFmpeg(folder_.path("raw.wav"), "-af aformat=channel_layouts=5.1", folder_.path("full.wav"));
    const Sound full = convert("full.wav");
    EXPECT_NEAR(loudest(full, 0), 0.99, 0.02);
    EXPECT_NEAR(loudest(full, 1), 0.99, 0.02);
}

/// The packets of a raw AAC stream in a CAF file.
std::string cafOfAAC(const std::string& stream, int rateHz, int channels, int64_t playing, int64_t delay)
{
    std::string packets;
    std::string sizes;
    int64_t count = 0;
    for (size_t at = 0; at + 7 < stream.size(); ++count) {
        const auto byte = [&](size_t i) { return static_cast<size_t>(static_cast<uint8_t>(stream[at + i])); };
        const size_t size = (byte(3) & 3) << 11 | byte(4) << 3 | byte(5) >> 5;
        packets += stream.substr(at + 7, size - 7);
        // Seven bits a byte, the first ones marked.
        if (size - 7 > 127)
            sizes.push_back(static_cast<char>(0x80 | (size - 7) >> 7));
        sizes.push_back(static_cast<char>((size - 7) & 0x7F));
        at += size;
    }
    const auto cafChunk = [](const std::string& type, const std::string& content) {
        std::string bytes = type;
        putBigEndian(bytes, content.size(), 8);
        return bytes + content;
    };
    std::string description;
    putBigEndian(description, std::bit_cast<uint64_t>(static_cast<double>(rateHz)), 8);
    description += "aac ";
    for (const int value : {2, 0, 1024, channels, 0})
        putBigEndian(description, static_cast<uint64_t>(value), 4);
    // The low complexity kind at 44.1 kHz.
    std::string decoder = std::string("\x40\x15\0\0\0", 5) + std::string(8, '\0') + "\x05\x02\x12";
    decoder.push_back(static_cast<char>(channels << 3));
    std::string cookie(4, '\0');
    cookie += std::string("\x03", 1) + static_cast<char>(3 + 2 + decoder.size()) + std::string(3, '\0');
    cookie += std::string("\x04", 1) + static_cast<char>(decoder.size()) + decoder;
    std::string table;
    putBigEndian(table, static_cast<uint64_t>(count), 8);
    putBigEndian(table, static_cast<uint64_t>(playing), 8);
    putBigEndian(table, static_cast<uint64_t>(delay), 4);
    putBigEndian(table, static_cast<uint64_t>(count * 1024 - playing - delay), 4);
    return std::string("caff\0\1\0\0", 8) + cafChunk("desc", description) + cafChunk("kuki", cookie) +
           cafChunk("pakt", table + sizes) + cafChunk("data", std::string(4, '\0') + packets);
}

TEST_F(SoundFormats, PacketTableOfAACInCAFCountsDelayAndPaddingOut)
{
    const Sound tone = makeFile("t.aac", "-c:a aac -b:a 160k");
    rewrite("t.caf", cafOfAAC(bytesOf("t.aac"), 44100, 2, 88201, 1024));
    EXPECT_EQ(AVURLAsset(folder_.url("t.caf")).duration().value, 88201);
    Sound heard = convert("t.caf");
    EXPECT_EQ(length_, 88201);
    EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 25);
    heard = convert("t.caf", CMTimeRange{CMTimeMake(30011, 44100), CMTimeMake(40001, 44100)});
    EXPECT_EQ(length_, 40001);
    EXPECT_GT(signalToNoise(heard, 0, tone, 30011, 40001), 25);
}

TEST_F(SoundFormats, ALACInCAFIsReadToTheSample)
{
    const Sound tone = makeFile("alac.caf", "-c:a alac");
    Sound heard = convert("alac.caf");
    EXPECT_EQ(length_, 88201);
    EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 35);
    heard = convert("alac.caf", CMTimeRange{CMTimeMake(30011, 44100), CMTimeMake(40001, 44100)});
    EXPECT_EQ(length_, 40001);
    EXPECT_GT(signalToNoise(heard, 0, tone, 30011, 40001), 25);
}

TEST_F(SoundFormats, RawAACIsCopiedFromAnyPlace)
{
    const Sound tone = makeFile("t.aac", "-c:a aac -b:a 160k");
    const Sound heard = convert("t.aac", CMTimeRange{CMTimeMake(30001, 44100), CMTimeMake(44100, 44100)});
    EXPECT_EQ(length_, 44100);
    EXPECT_GT(signalToNoise(heard, 0, tone, 30001 - 1024, 44100), 25);
    // Without its headers, the stream stands in the new file letter for letter.
    const std::string source = bytesOf("t.aac");
    EXPECT_NE(readBytes(output_->path()).find(source.substr(source.size() / 2, 40)), std::string::npos);
}

TEST_F(SoundFormats, EditListsOfOtherEncodersDelaysAreCountedOutToTheSample)
{
    // 2112 and 2624 samples are what other makers' encoders have; here silence makes up for the difference.
    for (const int64_t delay : {int64_t{1024}, int64_t{2048}, int64_t{2112}, int64_t{2624}}) {
        SCOPED_TRACE(delay);
        const auto silence = static_cast<size_t>(delay - 1024);
        const Sound tone = makeTone(44100, 2, 88201);
        writeWav(folder_.path("tone.wav"), makeSound(44100, 2, 88201 + silence, [&](size_t frame, int channel) {
                     return frame < silence ? 0.0 : tone.at(frame - silence, size_t(channel));
                 }));
        convertWithFFmpeg(folder_.path("tone.wav"), "-c:a aac -b:a 160k -movie_timescale 44100", folder_.path("t.m4a"));
        rewrite("t.m4a", withBox(bytesOf("t.m4a"), {"moov", "trak"}, "edts", editList({{88201, delay}})));
        EXPECT_EQ(AVURLAsset(folder_.url("t.m4a")).duration().value, 88201);
        // Copied whole, then cut.
        Sound heard = convert("t.m4a");
        EXPECT_EQ(length_, 88201);
        EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 25);
        heard = convert("t.m4a", CMTimeRange{CMTimeMake(20011, 44100), CMTimeMake(30001, 44100)});
        EXPECT_EQ(length_, 30001);
        EXPECT_GT(signalToNoise(heard, 0, tone, 20011, 30001), 25);
    }
}

TEST_F(SoundFormats, TextTagOfDelayAndLengthCountsWhereThereIsNoEditList)
{
    const Sound tone = makeFile("t.m4a", "-c:a aac -b:a 160k -movie_timescale 44100");
    std::string value;
    putBigEndian(value, 1, 4);
    putBigEndian(value, 0, 4);
    value += " 00000000 00000400 000002F7 0000000000015889 00000000 00000000";
    const std::string zeros(4, '\0');
    const std::string item =
        box("----", box("mean", zeros + "com.apple.iTunes") + box("name", zeros + "iTunSMPB") + box("data", value));
    std::string handler(8, '\0');
    handler += "mdirappl" + std::string(9, '\0');
    const std::string meta = zeros + box("hdlr", handler) + box("ilst", item);
    std::string bytes = withBox(bytesOf("t.m4a"), {"moov", "trak"}, "edts", "");
    bytes = withBox(bytes, {"moov"}, "udta", box("meta", meta));
    rewrite("t.m4a", bytes);
    const Sound heard = convert("t.m4a");
    EXPECT_EQ(length_, 0x15889);
    EXPECT_EQ(length_, 88201);
    EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 25);
}

TEST_F(SoundFormats, SeveralEditsPlayInTheirOrderAndEmptyOnesAreSilence)
{
    writeWav(folder_.path("tone.wav"), makeMusic(44100, 1, 3 * 44100));
    const Sound music = makeMusic(44100, 1, 3 * 44100);
    convertWithFFmpeg(folder_.path("tone.wav"), "-c:a alac -movie_timescale 44100", folder_.path("t.m4a"));
    rewrite("t.m4a", withBox(bytesOf("t.m4a"), {"moov", "trak"}, "edts",
                             editList({{10001, -1}, {20003, 88200}, {5001, -1}, {30007, 4321}, {12345, 4321}})));
    EXPECT_EQ(AVURLAsset(folder_.url("t.m4a")).duration().value, 10001 + 20003 + 5001 + 30007 + 12345);
    const Sound wanted = makeSound(44100, 1, 10001 + 20003 + 5001 + 30007 + 12345, [&](size_t frame, int) -> double {
        if (frame < 10001)
            return 0;
        if (frame < 30004)
            return music.at(88200 + frame - 10001);
        if (frame < 35005)
            return 0;
        return frame < 65012 ? music.at(4321 + frame - 35005) : music.at(4321 + frame - 65012);
    });
    const Sound heard = convert("t.m4a");
    EXPECT_EQ(length_, int64_t(wanted.frames()));
    EXPECT_GT(signalToNoise(heard, 0, wanted, 0, wanted.frames()), 15);
    EXPECT_GT(signalToNoise(heard, 10001, wanted, 10001, 20003), 15);
    EXPECT_GT(signalToNoise(heard, 35005, wanted, 35005, 30007), 15);
    // A range that begins within the first and ends within the last.
    const Sound part = convert("t.m4a", CMTimeRange{CMTimeMake(20000, 44100), CMTimeMake(50000, 44100)});
    EXPECT_EQ(length_, 50000);
    EXPECT_GT(signalToNoise(part, 0, wanted, 20000, 50000), 15);
}

TEST_F(SoundFormats, InitialEmptyEditOfAACIsSilence)
{
    const Sound tone = makeFile("t.m4a", "-c:a aac -b:a 160k -movie_timescale 44100");
    rewrite("t.m4a", withBox(bytesOf("t.m4a"), {"moov", "trak"}, "edts", editList({{22050, -1}, {88201, 1024}})));
    const Sound heard = convert("t.m4a");
    EXPECT_EQ(length_, 22050 + 88201);
    double before = 0;
    for (size_t frame = 0; frame < 22050 - 2048; ++frame)
        before = std::max(before, std::abs(double{heard.at(frame)}));
    EXPECT_LT(before, 0.001);
    EXPECT_GT(signalToNoise(heard, 22050 + 4096, tone, 4096, 80000), 25);
}

TEST_F(SoundFormats, BandReplicationDoublesTheRate)
{
    // The sound of half the rate, with the note that bands are replicated and none that are: it plays as it is.
    makeFile("t.m4a", "-c:a aac -b:a 64k", 22050, 1, 44100);
    std::string bytes = bytesOf("t.m4a");
    const size_t plain = bytes.find("\x13\x88\x56\xE5", 0, 4);
    ASSERT_NE(plain, std::string::npos);
    bytes.replace(plain, 5, configurationWithBandReplication(5, 7, 1, 4));
    rewrite("he.m4a", bytes);
    const auto facts = readSoundFacts(folder_.url("he.m4a"), std::nullopt);
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->sampleRateHz, 44100);
    EXPECT_EQ(facts->codec, SoundCodec::Other) << "not to be copied as plain";
    const Sound heard = convert("he.m4a");
    EXPECT_EQ(heard.rateHz, 44100);
    // One channel may turn out to be two, which packets tell; until they do, both play it.
    for (size_t frame = 0; frame < heard.frames(); ++frame)
        ASSERT_NEAR(heard.at(frame), heard.at(frame, size_t(heard.channels) - 1), 0.01);
    EXPECT_NEAR(static_cast<double>(length_), 2 * 44100, 2);
    EXPECT_NEAR(pitchOf(heard), 997, 1);
    EXPECT_NEAR(loudest(heard), 0.5, 0.02);
}

TEST_F(SoundFormats, ParametricStereoGivesTwoChannels)
{
    makeFile("t.m4a", "-c:a aac -b:a 64k", 22050, 1, 44100);
    std::string bytes = bytesOf("t.m4a");
    const size_t plain = bytes.find("\x13\x88\x56\xE5", 0, 4);
    ASSERT_NE(plain, std::string::npos);
    bytes.replace(plain, 5, configurationWithBandReplication(29, 7, 1, 4));
    rewrite("he2.m4a", bytes);
    const auto facts = readSoundFacts(folder_.url("he2.m4a"), std::nullopt);
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->sampleRateHz, 44100);
    EXPECT_EQ(facts->channels, 2);
    EXPECT_EQ(facts->codec, SoundCodec::Other);
    const Sound heard = convert("he2.m4a");
    EXPECT_EQ(heard.rateHz, 44100);
    EXPECT_EQ(heard.channels, 2);
    EXPECT_NEAR(static_cast<double>(length_), 2 * 44100, 2);
    EXPECT_NEAR(pitchOf(heard), 997, 1);
}

/// A text part as it begins MP3 files, with a picture of so many bytes.
std::string textPart(size_t pictureBytes)
{
    std::string picture = std::string(1, '\0') + "image/jpeg" + std::string(3, '\0');
    uint32_t random = 3;
    for (size_t i = 0; i < pictureBytes; ++i) {
        random = random * 1664525U + 1013904223U;
        picture.push_back(static_cast<char>(random >> 24));
    }
    std::string frame = "APIC";
    putBigEndian(frame, picture.size(), 4);
    frame += std::string(2, '\0') + picture;
    std::string tag = std::string("ID3\x03\0\0", 6);
    for (int shift = 21; shift >= 0; shift -= 7)
        tag.push_back(static_cast<char>(frame.size() >> shift & 0x7F));
    return tag + frame;
}

TEST_F(SoundFormats, HugeCoverBeforeAnMP3LeavesItsLengthExact)
{
    for (const char* options :
         {"-c:a libmp3lame -b:a 192k -id3v2_version 0", "-c:a libmp3lame -q:a 2 -id3v2_version 0"}) {
        SCOPED_TRACE(options);
        const Sound tone = makeFile("t.mp3", options);
        rewrite("t.mp3", textPart(5'000'000) + bytesOf("t.mp3"));
        EXPECT_EQ(AVURLAsset(folder_.url("t.mp3")).duration().value, 88201);
        const Sound heard = convert("t.mp3");
        EXPECT_EQ(length_, 88201);
        EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 20);
    }
}

TEST_F(SoundFormats, MP3OfVariableRateWithoutAnIndexPlaysWhole)
{
    const Sound tone = makeFile("t.mp3", "-c:a libmp3lame -q:a 4 -write_xing 0 -id3v2_version 0");
    const Sound heard = convert("t.mp3");
    // Nothing tells of the encoder's delay, which is heard.
    EXPECT_EQ(length_, int64_t(decodeWithFFmpeg(folder_.path("t.mp3")).frames()));
    EXPECT_GT(signalToNoise(heard, 4096 + 1105, tone, 4096, 80000), 20);
}

TEST_F(SoundFormats, IndexOfAnMP3WithoutItsMakersTagDoesNotHideTheSound)
{
    makeFile("t.mp3", "-c:a libmp3lame -q:a 4 -id3v2_version 0");
    std::string bytes = bytesOf("t.mp3");
    const size_t tag = bytes.find("LAME");
    const size_t other = bytes.find("Lavc");
    const size_t maker = std::min(tag, other);
    ASSERT_LT(maker, 400U);
    bytes.replace(maker, 4, std::string(4, '\0'));
    rewrite("t.mp3", bytes);
    const Sound heard = convert("t.mp3");
    EXPECT_GE(length_, 88201);
    EXPECT_LE(length_, 88201 + 4 * 1152);
    EXPECT_NEAR(pitchOf(heard), 997, 1);
}

TEST_F(SoundFormats, GarbageBeforeAnMP3IsPassedOver)
{
    const Sound tone = makeFile("t.mp3", "-c:a libmp3lame -b:a 128k -id3v2_version 0");
    const std::string music = bytesOf("t.mp3");
    // Noise with what looks like the start of a frame in it.
    std::string garbage = textPart(3000).substr(20);
    garbage.replace(100, 4, "\xFF\xFB\x90\x64");
    garbage.replace(1500, 4, "\xFF\xFA\x50\xC0");
    // The demuxer passes over the frame with the index where it is of another kind than the next, or hands it on.
    std::string alike = music;
    alike[3] = music[static_cast<size_t>(417 + 3)];
    for (const std::string& kind : {music, alike}) {
        rewrite("t.mp3", garbage + kind);
        const Sound heard = convert("t.mp3");
        EXPECT_EQ(length_, 88201);
        EXPECT_GT(signalToNoise(heard, 4096, tone, 4096, 80000), 20);
    }
}

TEST_F(SoundFormats, OggVorbisAndOpusAndFLACAreCutToTheSample)
{
    const Sound tone = makeTone(48000, 2, 144001);
    writeWav(folder_.path("tone.wav"), tone);
    struct Row {
        const char* name;
        const char* options;
    };
    for (const Row row : {Row{"t.ogg", "-c:a libvorbis -q:a 6"}, Row{"t.opus", "-c:a libopus -b:a 128k"},
                          Row{"t.flac", "-c:a flac"}, Row{"ogg.flac", "-c:a flac -f ogg"}}) {
        SCOPED_TRACE(row.name);
        convertWithFFmpeg(folder_.path("tone.wav"), row.options, folder_.path(row.name));
        EXPECT_EQ(AVURLAsset(folder_.url(row.name)).duration().value, 144001);
        const Sound heard = convert(row.name, CMTimeRange{CMTimeMake(50021, 48000), CMTimeMake(70001, 48000)});
        EXPECT_EQ(length_, 70001);
        EXPECT_GT(signalToNoise(heard, 0, tone, 50021, 70001), 15);
    }
}

TEST_F(SoundFormats, ShortOggIsHeardFromItsFirstSampleToItsLast)
{
    struct Row {
        const char* name;
        const char* options;
    };
    for (const int64_t frames : {2000, 8820, 44101, 66150})
        for (const Row row :
             {Row{"t.ogg", "-c:a libvorbis -q:a 6"}, Row{"t.opus", "-c:a libopus -b:a 128k -ar 48000"}}) {
            SCOPED_TRACE(row.name + std::to_string(frames));
            const int rate = std::string(row.name) == "t.ogg" ? 44100 : 48000;
            const Sound tone = makeTone(rate, 1, frames);
            writeWav(folder_.path("tone.wav"), tone);
            convertWithFFmpeg(folder_.path("tone.wav"), row.options, folder_.path(row.name));
            EXPECT_EQ(AVURLAsset(folder_.url(row.name)).duration().value, frames);
            const Sound whole = convert(row.name, CMTimeRange{kCMTimeZero, CMTimeMake(frames, rate)});
            EXPECT_EQ(length_, frames);
            EXPECT_GT(signalToNoise(whole, 0, tone, 0, frames), 12);
            const int64_t start = frames / 3;
            const Sound part = convert(row.name, CMTimeRange{CMTimeMake(start, rate), CMTimeMake(frames / 2, rate)});
            EXPECT_EQ(length_, frames / 2);
            EXPECT_GT(signalToNoise(part, 0, tone, start, frames / 2), 12);
        }
}

} // namespace
