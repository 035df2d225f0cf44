#pragma once

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

/// What tests of sound share: tones, files made with the ffmpeg command, and decoding with it.
namespace testsound {

/// Names of all files in a folder and below, hidden ones too.
inline std::vector<std::string> filesBelow(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_directory())
            names.push_back(std::filesystem::relative(entry.path(), folder).string());
    }
    return names;
}

/// Interleaved samples, full scale at +-1.
struct Sound {
    int rateHz = 0;
    int channels = 0;
    std::vector<float> samples;

    size_t frames() const { return channels > 0 ? samples.size() / static_cast<size_t>(channels) : 0; }
    float at(size_t frame, size_t channel = 0) const
    {
        return samples[frame * static_cast<size_t>(channels) + channel];
    }
};

inline Sound makeSound(int rateHz, int channels, size_t frames, const std::function<double(size_t, int)>& value)
{
    Sound sound{rateHz, channels, {}};
    sound.samples.reserve(frames * static_cast<size_t>(channels));
    for (size_t frame = 0; frame < frames; ++frame) {
        for (int channel = 0; channel < channels; ++channel)
            sound.samples.push_back(static_cast<float>(value(frame, channel)));
    }
    return sound;
}

/// A sine of half scale that has its phase 0 at sample 0; `firstFrame` cuts it in phase. The right channel is lower.
inline Sound makeTone(int rateHz, int channels, size_t frames, double frequencyHz = 997, size_t firstFrame = 0)
{
    return makeSound(rateHz, channels, frames, [=](size_t frame, int channel) {
        const double frequency = channel == 0 ? frequencyHz : frequencyHz / 2;
        return 0.5 * std::sin(2 * std::numbers::pi * frequency * static_cast<double>(frame + firstFrame) / rateHz);
    });
}

/// Like music: chords that change, with hard attacks and a little noise. The same on every run.
inline Sound makeMusic(int rateHz, int channels, size_t frames)
{
    uint32_t noise = 1;
    return makeSound(rateHz, channels, frames, [&, rateHz](size_t frame, int channel) {
        const double seconds = static_cast<double>(frame) / rateHz;
        const double inBeat = std::fmod(seconds, 0.37);
        const int chord = static_cast<int>(seconds / 0.37) % 5;
        double value = 0;
        for (int voice = 0; voice < 4; ++voice) {
            const double frequency = 110 * std::pow(2.0, (chord * 3 + voice * 4 + channel) / 12.0);
            value += std::sin(2 * std::numbers::pi * frequency * seconds) * std::exp(-4 * inBeat) * 0.2;
        }
        noise = noise * 1664525U + 1013904223U;
        return value + (static_cast<double>(noise >> 8) / (1 << 24) - 0.5) * 0.3 * std::exp(-60 * inBeat);
    });
}

inline void putLittleEndian(std::string& bytes, uint32_t value, int count)
{
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
}

/// Head of a WAV file of 16-bit samples; `dataBytes` may lie.
inline std::string wavHeader(uint32_t rateHz, uint16_t channels, uint32_t dataBytes)
{
    std::string bytes = "RIFF";
    putLittleEndian(bytes, dataBytes + 36, 4);
    bytes += "WAVEfmt ";
    putLittleEndian(bytes, 16, 4);
    putLittleEndian(bytes, 1, 2);
    putLittleEndian(bytes, channels, 2);
    putLittleEndian(bytes, rateHz, 4);
    putLittleEndian(bytes, rateHz * channels * 2, 4);
    putLittleEndian(bytes, channels * 2U, 2);
    putLittleEndian(bytes, 16, 2);
    bytes += "data";
    putLittleEndian(bytes, dataBytes, 4);
    return bytes;
}

inline void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream file(path, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (!file)
        throw std::runtime_error("cannot write " + path);
}

inline std::string readBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A WAV file of 16-bit samples.
inline void writeWav(const std::string& path, const Sound& sound)
{
    const auto dataBytes = static_cast<uint32_t>(sound.samples.size() * 2);
    std::string bytes =
        wavHeader(static_cast<uint32_t>(sound.rateHz), static_cast<uint16_t>(sound.channels), dataBytes);
    for (const float sample : sound.samples)
        putLittleEndian(bytes, static_cast<uint32_t>(static_cast<int32_t>(std::lround(sample * 32767))), 2);
    writeBytes(path, bytes);
}

inline std::string shellWord(const std::string& text)
{
    std::string result = "'";
    for (const char c : text)
        result += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return result + "'";
}

/// What a command writes; fails the test by an exception if the command fails.
inline std::string outputOf(const std::string& command)
{
    // A command that waits for ever must not hold the tests.
    FILE* pipe = popen(("timeout 60 sh -c " + shellWord(command)).c_str(), "r");
    if (!pipe)
        throw std::runtime_error("cannot run " + command);
    std::string output;
    char buffer[65536];
    while (const size_t got = fread(buffer, 1, sizeof buffer, pipe))
        output.append(buffer, got);
    if (pclose(pipe) != 0)
        throw std::runtime_error("failed: " + command);
    return output;
}

/// Runs the ffmpeg command: `-i input`, then `options`, then the output.
inline void convertWithFFmpeg(const std::string& input, const std::string& options, const std::string& output)
{
    outputOf("ffmpeg -nostdin -v error -y -i " + shellWord(input) + " " + options + " " + shellWord(output));
}

/// Decoded by the ffmpeg command, as it plays the file; padding at the end may be left in.
inline Sound decodeWithFFmpeg(const std::string& path)
{
    const std::string facts = outputOf("ffprobe -v error -select_streams a:0 -show_entries "
                                       "stream=sample_rate,channels -of csv=p=0 " +
                                       shellWord(path));
    Sound sound;
    if (std::sscanf(facts.c_str(), "%d,%d", &sound.rateHz, &sound.channels) != 2)
        throw std::runtime_error("no sound in " + path);
    const std::string bytes =
        outputOf("ffmpeg -nostdin -v error -i " + shellWord(path) + " -map 0:a:0 -f f32le -c:a pcm_f32le -");
    sound.samples.resize(bytes.size() / sizeof(float));
    std::memcpy(sound.samples.data(), bytes.data(), sound.samples.size() * sizeof(float));
    return sound;
}

/// One field of ffprobe's answer for the first stream of a kind ("a" or "v").
inline std::string probe(const std::string& path, const std::string& kind, const std::string& field)
{
    std::string answer = outputOf("ffprobe -v error -select_streams " + kind + ":0 -show_entries stream=" + field +
                                  " -of default=nw=1:nk=1 " + shellWord(path));
    while (!answer.empty() && answer.back() == '\n')
        answer.pop_back();
    return answer;
}

/// Signal to noise in decibels of `heard` against `wanted`, both over `count` frames from the given starts.
inline double signalToNoise(const Sound& heard, size_t heardFrom, const Sound& wanted, size_t wantedFrom, size_t count)
{
    double signal = 0;
    double noise = 1e-20;
    for (size_t frame = 0; frame < count; ++frame) {
        for (size_t channel = 0; channel < static_cast<size_t>(wanted.channels); ++channel) {
            const double want = wanted.at(wantedFrom + frame, channel);
            const double got = heard.at(heardFrom + frame, channel);
            signal += want * want;
            noise += (want - got) * (want - got);
        }
    }
    return 10 * std::log10(signal / noise);
}

} // namespace testsound
