#include "platform/aac/AACEncoder.h"
#include "platform/libav/FFmpegHandles.h"
#include "tests/platform/aac/NoiseMeasure.h"
#include "tests/support/TestSound.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <functional>
#include <numbers>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

using namespace platform;
using namespace testsound;

namespace {

constexpr size_t kPacket = kAACPacketLength;

AVChannelLayout layoutOf(int channels)
{
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    return layout;
}

/// Decodes packets and leaves out their first 1024 samples.
class Decoder final {
public:
    Decoder(int rateHz, int channels, std::span<const uint8_t> configuration)
        : context_(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_AAC))), sound_{rateHz, channels, {}}
    {
        context_->extradata = static_cast<uint8_t*>(av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        context_->extradata_size = static_cast<int>(configuration.size());
        std::ranges::copy(configuration, context_->extradata);
        EXPECT_EQ(avcodec_open2(context_.get(), nullptr, nullptr), 0);
    }

    void decode(std::span<const uint8_t> bytes)
    {
        const PacketPtr packet(av_packet_alloc());
        ASSERT_EQ(av_new_packet(packet.get(), static_cast<int>(bytes.size())), 0);
        std::ranges::copy(bytes, packet->data);
        ASSERT_EQ(avcodec_send_packet(context_.get(), packet.get()), 0);
        const FramePtr frame(av_frame_alloc());
        while (avcodec_receive_frame(context_.get(), frame.get()) == 0) {
            if (!std::exchange(isBehindDelay_, true))
                continue;
            for (int i = 0; i < frame->nb_samples; ++i) {
                for (int channel = 0; channel < sound_.channels; ++channel)
                    sound_.samples.push_back(reinterpret_cast<const float*>(frame->extended_data[channel])[i]);
            }
        }
    }

    const Sound& sound() const { return sound_; }

private:
    const CodecPtr context_;
    Sound sound_;
    bool isBehindDelay_ = false;
};

Sound codedByUs(const Sound& sound)
{
    const auto channels = static_cast<size_t>(sound.channels);
    std::vector<float> around((kAACLookBehind + 1) * kPacket * channels);
    around.insert(around.end(), sound.samples.begin(), sound.samples.end());
    around.resize(around.size() + kAACLookAhead * kPacket * channels);
    const auto run = encodeAAC(around, sound.rateHz, sound.channels, std::nullopt, [] { return false; });
    EXPECT_TRUE(run);
    Decoder decoder(sound.rateHz, sound.channels, configurationOfAAC(sound.rateHz, sound.channels));
    for (size_t i = 0; run && i < run->count(); ++i)
        decoder.decode(run->packet(i));
    return decoder.sound();
}

/// As the ffmpeg command does by itself, at 64 kbit/s a channel.
Sound codedByTheLibrary(const Sound& sound)
{
    const CodecPtr encoder(avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_AAC)));
    encoder->sample_rate = sound.rateHz;
    encoder->ch_layout = layoutOf(sound.channels);
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->bit_rate = int64_t{64000} * sound.channels;
    encoder->flags = AV_CODEC_FLAG_GLOBAL_HEADER;
    EXPECT_EQ(avcodec_open2(encoder.get(), nullptr, nullptr), 0);
    Decoder decoder(sound.rateHz, sound.channels,
                    std::span(encoder->extradata, static_cast<size_t>(encoder->extradata_size)));
    const PacketPtr packet(av_packet_alloc());
    const auto receive = [&] {
        while (avcodec_receive_packet(encoder.get(), packet.get()) == 0) {
            decoder.decode(std::span(packet->data, static_cast<size_t>(packet->size)));
            av_packet_unref(packet.get());
        }
    };
    for (size_t start = 0; start < sound.frames(); start += kPacket) {
        const FramePtr frame(av_frame_alloc());
        frame->nb_samples = kPacket;
        frame->format = AV_SAMPLE_FMT_FLTP;
        frame->ch_layout = layoutOf(sound.channels);
        frame->sample_rate = sound.rateHz;
        frame->pts = static_cast<int64_t>(start);
        EXPECT_EQ(av_frame_get_buffer(frame.get(), 0), 0);
        for (size_t channel = 0; channel < static_cast<size_t>(sound.channels); ++channel) {
            auto* plane = reinterpret_cast<float*>(frame->extended_data[channel]);
            for (size_t i = 0; i < kPacket; ++i)
                plane[i] = sound.at(start + i, channel);
        }
        EXPECT_EQ(avcodec_send_frame(encoder.get(), frame.get()), 0);
        receive();
    }
    EXPECT_EQ(avcodec_send_frame(encoder.get(), nullptr), 0);
    receive();
    return decoder.sound();
}

std::vector<float> channelOf(const Sound& sound, size_t channel, size_t frames)
{
    std::vector<float> samples(frames);
    for (size_t i = 0; i < frames; ++i)
        samples[i] = sound.at(i, channel);
    return samples;
}

double sine(double hertz, double seconds, double phase = 0)
{
    return std::sin(2 * std::numbers::pi * hertz * seconds + phase);
}

double decay(double seconds, double every, double fall)
{
    return std::exp(-fall * std::fmod(seconds, every));
}

/// White noise, another one for each channel, the same on every run.
class Noise final {
public:
    double operator()(int channel)
    {
        std::minstd_rand& random = random_[static_cast<size_t>(channel)];
        return static_cast<double>(random()) / static_cast<double>(std::minstd_rand::max()) * 2 - 1;
    }
    /// Without low sounds.
    double bright(int channel)
    {
        auto& [before, last] = last_[static_cast<size_t>(channel)];
        const double now = (*this)(channel);
        const double result = (now - 2 * last + before) / 4;
        before = std::exchange(last, now);
        return result;
    }

private:
    std::array<std::minstd_rand, 2> random_ = {std::minstd_rand(1), std::minstd_rand(2)};
    std::array<std::pair<double, double>, 2> last_{};
};

/// Pulses through two resonances that change four times a second; silences and hisses between.
class Voice final {
public:
    explicit Voice(double pitchHertz) : pitchHertz_(pitchHertz) {}

    double operator()(double seconds, int rateHz)
    {
        const double hertz = pitchHertz_ * (1 + 0.06 * sine(2.3, seconds));
        phase_ += hertz / rateHz;
        double value = phase_ >= 1 ? 1 : 0;
        phase_ -= std::floor(phase_);
        constexpr std::array<std::array<double, 2>, 4> kVowels = {{{730, 1090}, {270, 2290}, {300, 870}, {530, 1840}}};
        const auto& vowel = kVowels[static_cast<size_t>(seconds * 4) % 4];
        for (size_t i = 0; i < 2; ++i) {
            auto& [last, before] = memory_[i];
            const double radius = std::exp(-std::numbers::pi * 80 / rateHz);
            value += 2 * radius * std::cos(2 * std::numbers::pi * vowel[i] / rateHz) * last - radius * radius * before;
            before = std::exchange(last, value);
        }
        const double inWord = std::fmod(seconds, 0.5);
        return (inWord <= 0.42 ? 0.002 * value : 0) + (inWord > 0.4 ? 0.5 * noise_.bright(0) : 0);
    }

private:
    const double pitchHertz_;
    double phase_ = 0;
    std::array<std::pair<double, double>, 2> memory_{};
    Noise noise_;
};

struct Row {
    std::string name;
    int rateHz;
    int channels;
    /// Called for every channel of a frame in turn.
    std::function<double(double seconds, int channel)> value;
};

std::vector<Row> makeRows()
{
    const auto struck = [](double t, double hertz, double every) {
        const double steps[] = {1, 1.26, 1.498, 2, 1.335};
        return sine(hertz * steps[static_cast<int>(t / every) % 5], std::fmod(t, every)) * decay(t, every, 4);
    };
    auto music = [struck, noise = Noise()](double t, int channel) mutable {
        double value = 0.5 * noise(channel) * decay(t, 0.41, 40) + 0.02 * noise(channel);
        for (const double hertz : {110, 220, 277, 330, 880})
            value += 0.16 * struck(t, hertz + 3 * channel, 0.41);
        return value;
    };
    const auto drum = [](double t) {
        const double since = std::fmod(t, 0.5);
        return sine(1, 55 * since + 12 * (1 - std::exp(-30 * since)) / (2 * std::numbers::pi)) * decay(t, 0.5, 7);
    };
    const auto saw = [](double t, double hertz) { return 2 * (t * hertz - std::floor(t * hertz)) - 1; };
    return {
        {"tone, .3", 44100, 1, [](double t, int) { return 0.3 * sine(441, t); }},
        {"tone, 1", 48000, 1, [](double t, int) { return sine(997, t); }},
        {"high tone", 44100, 1, [](double t, int) { return 0.9 * sine(12000, t); }},
        {"left = right", 44100, 2, [](double t, int) { return 0.9 * sine(441, t); }},
        {"left only", 44100, 2, [](double t, int channel) { return channel == 0 ? 0.9 * sine(441, t) : 0; }},
        {"two tones", 44100, 2, [](double t, int channel) { return 0.9 * sine(channel == 0 ? 441 : 3000, t); }},
        {"sweep", 44100, 1, [](double t, int) { return 0.9 * sine(1, 30 * (std::exp(4 * t) - 1) / 4); }},
        {"struck", 44100, 2, [=](double t, int channel) { return 0.9 * struck(t, 440 - 110 * channel, 0.25); }},
        {"plucked", 44100, 1, [=](double t, int) { return 0.9 * saw(std::fmod(t, 0.3), 220) * decay(t, 0.3, 9); }},
        {"square", 44100, 1, [](double t, int) { return sine(55, t) < 0 ? -0.9 : 0.9; }},
        {"triangle", 44100, 2,
         [](double t, int channel) { return 3.6 * std::abs(std::fmod((70 + 35 * channel) * t, 1.0) - 0.5) - 0.9; }},
        {"drum and hats", 44100, 2,
         [=, noise = Noise()](double t, int channel) mutable {
             return 0.8 * drum(t) + 0.2 * noise.bright(channel) * decay(t, 0.25, 25);
         }},
        {"hats", 44100, 1,
         [noise = Noise()](double t, int) mutable { return 0.7 * noise.bright(0) * decay(t, 0.2, 25); }},
        {"castanets", 32000, 2,
         [noise = Noise()](double t, int channel) mutable { return noise.bright(channel) * decay(t, 0.23, 180); }},
        {"organ", 44100, 2,
         [](double t, int channel) {
             double value = 0;
             for (const int n : {1, 2, 3, 4, 6, 8})
                 value += sine((131 - 33 * channel) * n, t, n) / n + sine((165 - 33 * channel) * n, t, n) / n;
             return 0.2 * value;
         }},
        {"low voice", 44100, 1, [voice = Voice(105)](double t, int) mutable { return voice(t, 44100); }},
        {"high voice", 44100, 2,
         [voice = Voice(210), value = 0.0](double t, int channel) mutable {
             if (channel == 0)
                 value = voice(t, 44100);
             return value;
         }},
        {"noise", 44100, 1, [noise = Noise()](double, int) mutable { return 0.5 * noise(0); }},
        {"noise, two", 48000, 2, [noise = Noise()](double, int channel) mutable { return 0.9 * noise(channel); }},
        {"music", 44100, 1, music},
        {"dense music", 44100, 2,
         [=](double t, int channel) mutable {
             return 0.6 * music(t, channel) + 0.2 * saw(t, 110 + 14 * channel) + 0.3 * drum(t);
         }},
        {"clipped music", 44100, 2,
         [=](double t, int channel) mutable { return std::clamp(4 * music(t, channel), -1.0, 1.0); }},
        {"soft music", 48000, 2, [=](double t, int channel) mutable { return 0.01 * music(t, channel); }},
        {"castanets, faster", 48000, 2,
         [noise = Noise()](double t, int channel) mutable { return noise.bright(channel) * decay(t, 0.23, 180); }},
        {"click", 44100, 1, [](double t, int) { return t > 0.6 && t < 0.6005 ? 0.9 : 0; }},
    };
}

class SoundQuality : public testing::TestWithParam<size_t> {};

TEST_P(SoundQuality, NoPacketIsMuchWorseThanTheLibrarysAndEveryLevelIsKept)
{
    constexpr size_t kFrames = 70 * kPacket;
    const Row row = makeRows()[GetParam()];
    SCOPED_TRACE(row.name);
    const Sound sound = makeSound(row.rateHz, row.channels, kFrames, [&](size_t frame, int channel) {
        return row.value(static_cast<double>(frame) / row.rateHz, channel);
    });
    const Sound ours = codedByUs(sound);
    const Sound theirs = codedByTheLibrary(sound);
    for (size_t channel = 0; channel < static_cast<size_t>(row.channels); ++channel) {
        const auto wanted = channelOf(sound, channel, kFrames);
        const auto heard = channelOf(ours, channel, kFrames);
        const auto worse = noisemeasure::noiseToMask(wanted, heard, row.rateHz);
        const auto other = noisemeasure::noiseToMask(wanted, channelOf(theirs, channel, kFrames), row.rateHz);
        ASSERT_EQ(worse.size(), 69U);
        ASSERT_EQ(other.size(), 69U);
        for (size_t i = 0; i < worse.size(); ++i)
            EXPECT_LE(worse[i], other[i] + 3) << "packet " << i << " of channel " << channel;
        EXPECT_LE(noisemeasure::largestLevelError(wanted, heard), 0.3) << "channel " << channel;
    }
}

INSTANTIATE_TEST_SUITE_P(Sounds, SoundQuality, testing::Range(size_t{0}, makeRows().size()));

} // namespace
