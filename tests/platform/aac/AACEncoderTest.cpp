#include "platform/aac/AACEncoder.h"

#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestExport.h"
#include "tests/support/TestSound.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numbers>
#include <random>
#include <string>
#include <vector>

using namespace platform;
using namespace testsound;
using namespace testexport;

namespace {

constexpr size_t kPacket = kAACPacketLength;
constexpr int kRate = 44100;

PacketRun encode(std::span<const float> samples, int channels)
{
    auto run = encodeAAC(samples, kRate, channels, std::nullopt, [] { return false; });
    EXPECT_TRUE(run);
    return run ? *std::move(run) : PacketRun();
}

/// What an encoder makes of a sound, packet by packet, in decibels.
struct Quality {
    double worstSignalToNoise = 1000;
    double largestLevelError = 0;
};

Quality qualityOf(const Sound& heard, const Sound& wanted)
{
    Quality quality;
    for (size_t start = 0; start + kPacket <= std::min(heard.frames(), wanted.frames()); start += kPacket) {
        for (size_t channel = 0; channel < static_cast<size_t>(wanted.channels); ++channel) {
            double signal = 0;
            double energy = 0;
            double noise = 1e-12;
            for (size_t frame = start; frame < start + kPacket; ++frame) {
                const double want = wanted.at(frame, channel);
                const double got = heard.at(frame, channel);
                signal += want * want;
                energy += got * got;
                noise += (want - got) * (want - got);
            }
            // 60 dB below full scale.
            if (signal < kPacket * 0.5e-6)
                continue;
            quality.worstSignalToNoise = std::min(quality.worstSignalToNoise, 10 * std::log10(signal / noise));
            const double error = std::abs(10 * std::log10(std::max(energy, 1e-12) / signal));
            quality.largestLevelError = std::max(quality.largestLevelError, error);
        }
    }
    return quality;
}

double sine(double hertz, double seconds)
{
    return std::sin(2 * std::numbers::pi * hertz * seconds);
}

struct Row {
    const char* name;
    int channels;
    std::function<double(double seconds, int channel)> value;
    /// The worst packet's signal to noise in decibels must not be less.
    double leastSignalToNoise;
};

const std::vector<Row> kRows = {
    {"tone, .3", 1, [](double t, int) { return 0.3 * sine(441, t); }, 50},
    {"tone, .5", 1, [](double t, int) { return 0.5 * sine(441, t); }, 50},
    {"tone, .9", 1, [](double t, int) { return 0.9 * sine(441, t); }, 50},
    {"tone, 1", 1, [](double t, int) { return sine(441, t); }, 50},
    {"high tone, .9", 1, [](double t, int) { return 0.9 * sine(5000, t); }, 40},
    {"low tone, 1", 1, [](double t, int) { return sine(60, t); }, 50},
    {"left = right", 2, [](double t, int) { return 0.9 * sine(441, t); }, 50},
    {"left only", 2, [](double t, int channel) { return channel == 0 ? 0.9 * sine(441, t) : 0; }, 50},
    {"two tones", 2, [](double t, int channel) { return 0.9 * sine(channel == 0 ? 441 : 3000, t); }, 45},
    {"opposite", 2, [](double t, int channel) { return channel == 0 ? 0.9 * sine(441, t) : -0.9 * sine(441, t); }, 50},
    {"struck", 1,
     [](double t, int) {
         return 0.9 * sine(440 + 110 * std::floor(t / 0.5), std::fmod(t, 0.5)) * std::exp(-4 * std::fmod(t, 0.5));
     },
     40},
    {"sweep", 1,
     [](double t, int) {
         return 0.9 * sine(30 * 2 / std::log(600.0) * (std::exp(std::log(600.0) * t / 2) - 1) / std::max(t, 1e-9), t);
     },
     35},
    {"triangle", 1, [](double t, int) { return 0.9 * (4 * std::abs(std::fmod(220 * t + 0.25, 1.0) - 0.5) - 1); }, 30},
    {"square", 1, [](double t, int) { return sine(220, t) < 0 ? -0.9 : 0.9; }, 20},
    {"drum", 1, [](double t, int) { return 0.9 * sine(55, std::fmod(t, 0.4)) * std::exp(-7 * std::fmod(t, 0.4)); }, 35},
    {"organ", 1,
     [](double t, int) {
         return 0.15 * (sine(131, t) + sine(262, t) + sine(393, t) + sine(165, t) + sine(330, t) + sine(196, t));
     },
     45},
};

/// Two seconds.
Sound soundOf(const Row& row)
{
    return makeSound(kRate, row.channels, 2 * kRate,
                     [&](size_t frame, int channel) { return row.value(static_cast<double>(frame) / kRate, channel); });
}

TEST(AACEncoder, PartsAreThoseOfTheWhole)
{
    constexpr size_t kFrames = 60;
    constexpr size_t kCut = 29;
    const Sound music = makeMusic(kRate, 2, kFrames * kPacket);
    const auto part = [&](size_t from, size_t to) {
        return encode(std::span(music.samples).subspan(from * kPacket * 2, (to - from) * kPacket * 2), 2);
    };
    const PacketRun whole = part(0, kFrames);
    ASSERT_EQ(whole.count(), kFrames - kAACLookBehind - kAACLookAhead);
    const PacketRun start = part(0, kCut + kAACLookBehind + kAACLookAhead);
    const PacketRun end = part(kCut, kFrames);
    ASSERT_EQ(start.count(), kCut);
    ASSERT_EQ(start.count() + end.count(), whole.count());
    for (size_t i = 0; i < whole.count(); ++i)
        EXPECT_TRUE(std::ranges::equal(whole.packet(i), i < kCut ? start.packet(i) : end.packet(i - kCut))) << i;
}

/// Silence is coded once; what is 380 dB below full scale is no different, and is coded packet by packet.
TEST(AACEncoder, CodesSilenceBetweenSoundsAsItCodesWhatNobodyHears)
{
    for (const int channels : {1, 2}) {
        const auto soundsWithGaps = [&](float gap) {
            std::vector<float> samples(kPacket * 60 * static_cast<size_t>(channels));
            std::mt19937 random(7);
            std::uniform_real_distribution<float> noise(-0.3F, 0.3F);
            for (size_t i = 0; i < samples.size(); ++i) {
                // They come and go softly, without attacks, between gaps of many packets; one is cut off.
                const double frame = static_cast<double>(i / static_cast<size_t>(channels)) / kPacket;
                const double fromMiddle = std::fmod(frame, 20) - 6.3;
                const auto level = static_cast<float>(std::exp(-fromMiddle * fromMiddle / 1.2));
                const bool isCut = frame > 40 && fromMiddle > 0.5;
                samples[i] = level < 1e-6F || isCut ? gap : level * noise(random);
            }
            return samples;
        };
        const PacketRun silent = encode(soundsWithGaps(0), channels);
        const PacketRun unheard = encode(soundsWithGaps(1e-19F), channels);
        ASSERT_EQ(silent.count(), unheard.count());
        for (size_t i = 0; i < silent.count(); ++i)
            EXPECT_TRUE(std::ranges::equal(silent.packet(i), unheard.packet(i))) << channels << ", " << i;
    }
}

TEST(AACEncoder, NoPacketIsLargerThanDecodersTake)
{
    // Noise that comes and goes with every packet takes as many bits as are given.
    std::minstd_rand random(1);
    std::vector<float> samples(80 * kPacket * 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = i / 3000 % 3 == 0 ? static_cast<float>(random()) / static_cast<float>(random.max()) - 0.5F : 0;
    for (const int channels : {1, 2}) {
        const PacketRun run = encode(samples, channels);
        size_t largest = 0;
        for (size_t i = 0; i < run.count(); ++i)
            largest = std::max(largest, run.packet(i).size());
        EXPECT_LE(largest, size_t{768} * static_cast<size_t>(channels));
        EXPECT_GT(largest, size_t{300} * static_cast<size_t>(channels));
    }
}

TEST(AACEncoder, KeepsLoudAndCleanSoundClean)
{
    const TemporaryFolder folder;
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        const Sound sound = soundOf(row);
        const std::string name = std::to_string(&row - kRows.data());
        writeWav(folder.path(name + ".wav"), sound);
        expectExported(exportM4A(assetOf(folder.url(name + ".wav")), folder.url(name + ".m4a")));
        const Quality ours = qualityOf(decodeWithFFmpeg(folder.path(name + ".m4a")), sound);
        EXPECT_LT(ours.largestLevelError, 0.3);
        EXPECT_GT(ours.worstSignalToNoise, row.leastSignalToNoise);
        const std::string bits = row.channels == 2 ? "128k" : "64k";
        convertWithFFmpeg(folder.path(name + ".wav"), "-c:a aac -b:a " + bits, folder.path(name + "-theirs.m4a"));
        const Quality theirs = qualityOf(decodeWithFFmpeg(folder.path(name + "-theirs.m4a")), sound);
        EXPECT_GT(ours.worstSignalToNoise, theirs.worstSignalToNoise - 3);
        EXPECT_LT(std::filesystem::file_size(folder.path(name + ".m4a")),
                  1.35 * static_cast<double>(std::filesystem::file_size(folder.path(name + "-theirs.m4a"))));
    }
}

TEST(AACEncoder, CarriesTheHighestSounds)
{
    const TemporaryFolder folder;
    const Sound tone = makeSound(kRate, 1, kRate, [](size_t frame, int) {
        const double seconds = static_cast<double>(frame) / kRate;
        return 0.01 * sine(19000, seconds) + 0.3 * sine(1000, seconds);
    });
    writeWav(folder.path("t.wav"), tone);
    expectExported(exportM4A(assetOf(folder.url("t.wav")), folder.url("t.m4a")));
    EXPECT_GT(signalToNoise(decodeWithFFmpeg(folder.path("t.m4a")), 4096, tone, 4096, 32768), 40);
}

} // namespace
