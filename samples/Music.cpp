#include "samples/Music.h"

#include "samples/Noise.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <numbers>
#include <vector>

namespace {

constexpr int kRateHz = 48000;
constexpr double kBeatSeconds = 0.375;
constexpr int kBeatsPerChord = 8;
constexpr size_t kChannels = 2;

struct Chord {
    int bass;
    std::array<int, 5> notes;
};

/// MIDI notes. Am9, Fmaj7, C, G6, and the same with another end.
constexpr std::array<Chord, 10> kChords{{{45, {57, 60, 64, 71, 72}},
                                         {41, {57, 60, 64, 69, 72}},
                                         {48, {55, 60, 64, 67, 76}},
                                         {43, {55, 59, 62, 64, 74}},
                                         {45, {57, 60, 64, 71, 76}},
                                         {41, {57, 60, 65, 69, 76}},
                                         {50, {57, 62, 65, 69, 77}},
                                         {43, {55, 59, 62, 67, 74}},
                                         {48, {55, 60, 64, 67, 72}},
                                         {48, {55, 60, 64, 67, 72}}}};
constexpr std::array<size_t, kBeatsPerChord> kPattern{0, 2, 3, 4, 1, 3, 2, 4};

class Track final {
public:
    explicit Track(double seconds) : samples_(static_cast<size_t>(seconds * kRateHz) * kChannels) {}

    size_t frameCount() const { return samples_.size() / kChannels; }
    /// @param place  from 0, left, to 1, right
    void add(size_t frame, double value, double place)
    {
        if (frame >= frameCount())
            return;
        samples_[frame * kChannels] += value * (1.0 - place);
        samples_[frame * kChannels + 1] += value * place;
    }
    std::vector<double>& samples() { return samples_; }

private:
    std::vector<double> samples_;
};

double frequency(int note)
{
    return 440.0 * std::pow(2.0, (note - 69) / 12.0);
}

/// A string: a loop of noise as long as one period, which loses its overtones at every turn.
void pluck(Track& track, double second, int note, double strength, double place)
{
    const double period = kRateHz / frequency(note);
    const auto length = static_cast<size_t>(period);
    // The string's tune between two samples.
    const double fraction = period - static_cast<double>(length);
    std::vector<double> string(length + 1);
    double before = 0;
    for (size_t i = 0; i < string.size(); ++i) {
        const double raw = 2.0 * noise::white(static_cast<int32_t>(i), note, 77) - 1.0;
        // A soft finger: without the highest overtones.
        before += 0.45 * (raw - before);
        string[i] = before;
    }
    const auto start = static_cast<size_t>(second * kRateHz);
    size_t at = 0;
    for (size_t frame = 0; frame < 4 * kRateHz; ++frame) {
        const size_t next = (at + 1) % string.size();
        const double value = string[at] + fraction * (string[next] - string[at]);
        string[at] = 0.9965 * (0.52 * string[at] + 0.48 * string[next]);
        track.add(start + frame, strength * value, place);
        at = next;
    }
}

/// A slow chord of slightly detuned tones.
void pad(Track& track, double second, double seconds, int note, double strength, double place)
{
    const auto start = static_cast<size_t>(second * kRateHz);
    const auto count = static_cast<size_t>(seconds * kRateHz);
    for (const double detune : {0.9985, 1.0, 1.0017})
        for (size_t frame = 0; frame < count; ++frame) {
            const double time = static_cast<double>(frame) / kRateHz;
            const double swell = std::sin(std::numbers::pi * time / seconds);
            const double phase = 2.0 * std::numbers::pi * frequency(note) * detune * time;
            track.add(start + frame, strength * swell * swell * (std::sin(phase) + 0.25 * std::sin(2.0 * phase)),
                      place);
        }
}

/// Echoes of a hall: delays that no whole number relates, each feeding itself.
void addHall(Track& track)
{
    auto& samples = track.samples();
    std::vector<double> wet(samples.size());
    size_t channel = 0;
    for (const size_t delay : {1433U, 1601U, 1867U, 2053U, 2251U, 2399U}) {
        std::vector<double> line(delay);
        size_t at = 0;
        double dull = 0;
        for (size_t frame = 0; frame < track.frameCount(); ++frame) {
            const double out = line[at];
            dull += 0.35 * (out - dull);
            line[at] = samples[frame * kChannels + channel % kChannels] + 0.86 * dull;
            wet[frame * kChannels + (channel + 1) % kChannels] += 0.09 * out;
            at = (at + 1) % delay;
        }
        ++channel;
    }
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] += wet[i];
}

void put(std::vector<uint8_t>& bytes, uint32_t value, int size)
{
    for (int i = 0; i < size; ++i)
        bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

} // namespace

bool writeMusic(const std::filesystem::path& file)
{
    const double chordSeconds = kBeatSeconds * kBeatsPerChord;
    Track track(chordSeconds * kChords.size() + 3.0);
    for (size_t index = 0; index < kChords.size(); ++index) {
        const Chord& chord = kChords[index];
        const double start = chordSeconds * static_cast<double>(index);
        pluck(track, start, chord.bass, 0.55, 0.5);
        for (size_t beat = 0; beat < kPattern.size(); ++beat) {
            // The last chord is let ring.
            if (index + 1 == kChords.size() && beat > 4)
                break;
            // A hand is never quite even.
            const double late = 0.012 * noise::white(static_cast<int32_t>(beat), static_cast<int32_t>(index), 5);
            const double strength =
                0.30 + 0.10 * noise::white(static_cast<int32_t>(beat), static_cast<int32_t>(index), 6);
            pluck(track, start + kBeatSeconds * static_cast<double>(beat) + late, chord.notes[kPattern[beat]], strength,
                  0.3 + 0.1 * static_cast<double>(kPattern[beat]));
        }
        for (size_t i = 0; i < 3; ++i)
            pad(track, std::max(0.0, start - 0.6), chordSeconds + 1.2, chord.notes[i], 0.035,
                0.25 + 0.25 * static_cast<double>(i));
    }
    addHall(track);

    double loudest = 0;
    for (const double value : track.samples())
        loudest = std::max(loudest, std::abs(value));
    const auto dataBytes = static_cast<uint32_t>(track.samples().size() * sizeof(int16_t));
    std::vector<uint8_t> bytes;
    bytes.reserve(44 + dataBytes);
    for (const char letter : {'R', 'I', 'F', 'F'})
        bytes.push_back(static_cast<uint8_t>(letter));
    put(bytes, 36 + dataBytes, 4);
    for (const char letter : {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '})
        bytes.push_back(static_cast<uint8_t>(letter));
    constexpr uint32_t kFrameBytes = kChannels * sizeof(int16_t);
    put(bytes, 16, 4), put(bytes, 1, 2), put(bytes, kChannels, 2), put(bytes, kRateHz, 4);
    put(bytes, kRateHz * kFrameBytes, 4), put(bytes, kFrameBytes, 2), put(bytes, 16, 2);
    for (const char letter : {'d', 'a', 't', 'a'})
        bytes.push_back(static_cast<uint8_t>(letter));
    put(bytes, dataBytes, 4);
    for (const double value : track.samples())
        put(bytes, static_cast<uint16_t>(static_cast<int16_t>(std::lround(29000.0 * value / loudest))), 2);

    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    out.close();
    return out.good();
}
