#include "platform/aac/AACEncoder.h"

#include "platform/aac/AACHalves.h"
#include "platform/aac/AACLanes.h"
#include "platform/aac/AACMasking.h"
#include "platform/aac/AACPacketCoder.h"
#include "platform/aac/AACTables.h"
#include "platform/aac/AACTransform.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>
#include <utility>

namespace platform {
namespace {

// Standard order: the index is what a decoder's configuration holds.
constexpr std::array kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

constexpr size_t kFrame = kAACPacketLength;
/// Leaks less of a tone into distant lines than the other.
constexpr AACShape kShape = AACShape::KaiserBessel;
/// Stretches in which an attack is looked for, as long as a short window's half.
constexpr size_t kStretch = AACTransform::kShortLines;
constexpr size_t kStretchesOfFrame = kFrame / kStretch;

int bitsOfPacket(int sampleRateHz)
{
    // Two bits a sample where the rate is too low to use more.
    const int64_t bitRate = std::min(67000, 2 * sampleRateHz);
    return static_cast<int>(bitRate * kAACPacketLength / sampleRateHz);
}

/// Finds where one channel's sound sets in so suddenly that a long window would spread its noise before it.
class AttackFinder final {
public:
    AttackFinder(std::span<const float> samples, size_t channels, size_t channel)
        : attacks_(samples.size() / channels / kStretch)
    {
        std::vector<float> levels(attacks_.size());
        std::vector<float> slopes(attacks_.size());
        std::vector<float> bends(attacks_.size());
        // The last two samples of the stretch before, then the stretch.
        std::array<float, 2 + kStretch> part{};
        std::array<float, kStretch> changes;
        for (size_t stretch = 0; stretch < attacks_.size(); ++stretch) {
            std::copy(part.end() - 2, part.end(), part.begin());
            for (size_t i = 0; i < kStretch; ++i)
                part[2 + i] = samples[(stretch * kStretch + i) * channels + channel];
            levels[stretch] = energyOf(std::span(part).subspan(2));
            for (size_t i = 0; i < kStretch; ++i)
                changes[i] = part[i + 2] - part[i + 1];
            slopes[stretch] = energyOf(changes);
            for (size_t i = 0; i < kStretch; ++i)
                changes[i] = part[i + 2] - 2 * part[i + 1] + part[i];
            bends[stretch] = energyOf(changes);
        }
        // High sounds set in more sharply than low ones, which they must not hide behind.
        find(bends, 10);
        find(slopes, 20);
        find(levels, 20);
    }

    /// Whether the window that begins with this frame is one of short ones.
    bool isShort(size_t frame) const
    {
        // Between two of them there is no room for a long one.
        return isAttackIn(frame) || (isAttackIn(frame - 1) && isAttackIn(frame + 1));
    }

private:
    /// In the middle of the window that begins with the frame.
    bool isAttackIn(size_t frame) const
    {
        const auto first = attacks_.begin() + static_cast<ptrdiff_t>(frame * kStretchesOfFrame + kStretchesOfFrame / 2);
        // Into the slope with which a long window would end before short ones.
        const auto end = first + kStretchesOfFrame + 1;
        return std::find(first, end, true) != end;
    }

    void find(const std::vector<float>& energies, float ratio)
    {
        // Silence, 90 dB below full scale.
        constexpr float kQuiet = kStretch * 1e-9F;
        // A sound that returns, as that of a low voice, is none.
        constexpr size_t kMemory = 10;
        constexpr float kForgetting = 0.8F;
        constexpr float kFall = 100;
        for (size_t i = kMemory; i < energies.size(); ++i) {
            float loudest = kQuiet;
            float weight = 1;
            for (size_t back = 1; back <= kMemory; ++back) {
                loudest = std::max(loudest, energies[i - back] * weight);
                weight *= kForgetting;
            }
            if (energies[i] > ratio * loudest)
                attacks_[i] = true;
            // An end that is as sudden leaves noise behind it.
            if (i + 2 < energies.size() && energies[i] > kFall * std::max({kQuiet, energies[i + 1], energies[i + 2]}))
                attacks_[i] = true;
            // So does what falls by 5 dB in two stretches and goes on falling, by 30 dB in a frame: a long window would
            // have to be as fine as its softest part.
            if (i + kStretchesOfFrame < energies.size() && energies[i] > 3 * energies[i + 2] &&
                energies[i] > 1000 * std::max(kQuiet, energies[i + kStretchesOfFrame]))
                attacks_[i] = true;
        }
    }

    std::vector<bool> attacks_;
};

/// Decibels between the mean energy of a window's stretches and the mean of their levels.
float unevennessOf(std::span<const float> samples)
{
    float energy = 0;
    float level = 0;
    for (size_t start = 0; start < samples.size(); start += kStretch) {
        const auto stretch = samples.subspan(start, kStretch);
        const float part = energyOf(stretch) + kStretch * 1e-9F;
        energy += part;
        level += std::log10(part);
    }
    const size_t stretches = samples.size() / kStretch;
    const auto count = static_cast<float>(stretches);
    return 10 * (std::log10(energy / count) - level / count);
}

/// Encodes the packets of one part in order.
class PartCoder final {
public:
    PartCoder(int sampleRateHz, size_t channels, std::unique_ptr<AACTransform> transform)
        : channels_(channels), wantedBits_(bitsOfPacket(sampleRateHz) * static_cast<int>(channels)),
          longMasking_(longBandsOfAAC(sampleRateHz), sampleRateHz),
          shortMasking_(shortBandsOfAAC(sampleRateHz), sampleRateHz), transform_(std::move(transform))
    {
        packet_.channelCount = channels;
    }

    /// @param around     interleaved, four frames; the packet's window lies in the middle. A frame further each time
    /// @param sequences  one a channel
    std::vector<uint8_t> code(std::span<const float> around, std::span<const AACSequence> sequences, AACShape rising,
                              AACShape falling)
    {
        const bool isAsLookedAt = rising == kShape && falling == kShape;
        const bool isSilent = isAsLookedAt &&
                              std::ranges::count(sequences, AACSequence::Long) == std::ssize(sequences) &&
                              around.front() == 0 && energyOf(around) == 0;
        if (!isSilent)
            return codeSound(around, sequences, isAsLookedAt, rising, falling);
        if (silence_.empty())
            silence_ = codeSound(around, sequences, isAsLookedAt, rising, falling);
        // What was looked at last is as silent as what lies before the end of this silence.
        return silence_;
    }

private:
    using Spectrum = std::array<float, AACTransform::kLines>;
    using Samples = std::array<float, AACTransform::kSamples>;
    using Bands = std::array<float, AACChannel::kMostBands>;

    /// A channel's sound in a long window of the usual shape, and what it masks.
    struct Look {
        Samples samples;
        Spectrum spectrum;
        Bands energies;
        Bands masked;
    };

    std::vector<uint8_t> codeSound(std::span<const float> around, std::span<const AACSequence> sequences,
                                   bool isAsLookedAt, AACShape rising, AACShape falling)
    {
        lookAround(around);
        packet_.shape = falling;
        packet_.sharesWindow = channels_ == 2 && sequences[0] == sequences[1];
        packet_.unevenness = 0;
        for (size_t i = 0; i < channels_; ++i) {
            Samples samples = lookAt(i, 1).samples;
            packet_.unevenness = std::max(packet_.unevenness, unevennessOf(samples));
            packet_.channels[i].sequence = sequences[i];
            isLookedAt_[i] = isAsLookedAt && sequences[i] == AACSequence::Long;
            if (!isLookedAt_[i])
                transform_->transform(samples, sequences[i], rising, falling, spectra_[i]);
            packet_.halves[i].energies = takeFirstHalf(samples, packet_.channels[i].isShort());
            transform_->transform(samples, sequences[i], rising, falling, firstHalves_[i]);
        }
        for (size_t i = 0; i < channels_; ++i) {
            if (packet_.channels[i].isShort())
                layOutShort(packet_.channels[i], i,
                            packet_.sharesWindow ? std::span<const Spectrum>(spectra_)
                                                 : std::span(spectra_).subspan(i, 1));
            else
                layOutLong(packet_.channels[i], i);
        }
        for (size_t i = 0; i < channels_; ++i) {
            packet_.halves[i].addUp();
            boundNoise(packet_.channels[i], packet_.halves[i]);
        }
        if (packet_.sharesWindow)
            chooseStereo();
        return coder_.code(packet_, wantedBits_);
    }

    /// @param place  0 for the window a frame before the packet's, 1 for the packet's and 2 for that behind it
    Look& lookAt(size_t channel, size_t place) { return looks_[channel][(oldestLook_ + place) % kLooks]; }

    /// Finds what long windows mask a frame before the packet, in its place and a frame behind it.
    void lookAround(std::span<const float> around)
    {
        oldestLook_ = (oldestLook_ + 1) % kLooks;
        for (size_t i = 0; i < channels_; ++i) {
            for (size_t place = hasLooked_ ? kLooks - 1 : 0; place < kLooks; ++place) {
                Look& look = lookAt(i, place);
                const auto window = around.subspan(place * kFrame * channels_, 2 * kFrame * channels_);
                for (size_t sample = 0; sample < look.samples.size(); ++sample)
                    look.samples[sample] = window[sample * channels_ + i];
                transform_->transform(look.samples, AACSequence::Long, kShape, kShape, look.spectrum);
                longMasking_.measure(look.spectrum, look.energies, look.masked);
            }
        }
        hasLooked_ = true;
    }

    /// Bounds the noise of bands that make up much of the level: they have few lines, whose errors do not even out.
    static void boundNoise(AACChannel& channel, const AACHalves& halves)
    {
        // The error that the noise of a band may make of a half's energy, and how many such bands there may be.
        constexpr float kLevelError = 0.015F;
        constexpr float kLoudBands = 3;
        channel.levelNoises.fill(std::numeric_limits<float>::max());
        for (size_t band = 0; band < channel.bandCount(); ++band) {
            for (size_t half = 0; half < 2; ++half) {
                const auto lines = std::span(halves.lines[half]).subspan(channel.bandStarts[band], channel.width(band));
                const float energy = energyOf(lines) + 1;
                const float error = kLevelError * halves.energies[half];
                channel.levelNoises[band] =
                    std::min(channel.levelNoises[band], error / (4 * kLoudBands * energy) * error);
            }
        }
    }

    void layOutLong(AACChannel& channel, size_t index)
    {
        const auto bands = longMasking_.bands();
        channel.groups = {1};
        channel.bandStarts.assign(bands.begin(), bands.end());
        const Look& own = lookAt(index, 1);
        if (isLookedAt_[index]) {
            channel.lines = own.spectrum;
            channel.energies = own.energies;
            channel.thresholds = own.masked;
        } else {
            channel.lines = spectra_[index];
            longMasking_.measure(channel.lines, channel.energies, channel.thresholds);
        }
        // A tenth of the noise is heard in the window before, beside the sound there, and a tenth in the one behind.
        constexpr float kElsewhere = 5;
        for (size_t band = 0; band < channel.bandCount(); ++band)
            channel.thresholds[band] = std::min({channel.thresholds[band], kElsewhere * lookAt(index, 0).masked[band],
                                                 kElsewhere * lookAt(index, 2).masked[band]});
        AACHalves& halves = packet_.halves[index];
        halves.lines[0] = firstHalves_[index];
        std::transform(channel.lines.begin(), channel.lines.end(), halves.lines[0].begin(), halves.lines[1].begin(),
                       std::minus<>());
        halves.firstShares.fill(0.5F);
    }

    /// Short windows of about equal loudness in these channels share their steps.
    std::vector<uint8_t> groupsOf(std::span<const Spectrum> spectra) const
    {
        std::vector<uint8_t> groups;
        std::array<float, 2> loudness{};
        for (size_t window = 0; window < AACTransform::kShortWindows; ++window) {
            bool isAlike = window > 0;
            std::array<float, 2> now{};
            for (size_t i = 0; i < spectra.size(); ++i) {
                const auto lines =
                    std::span(spectra[i]).subspan(window * AACTransform::kShortLines, AACTransform::kShortLines);
                now[i] = energyOf(lines) + 1e4F;
                isAlike = isAlike && now[i] < 4 * loudness[i] && loudness[i] < 4 * now[i];
            }
            if (isAlike) {
                ++groups.back();
            } else {
                groups.push_back(1);
                loudness = now;
            }
        }
        return groups;
    }

    /// @param alike  spectra of the channels that have the same groups
    void layOutShort(AACChannel& channel, size_t index, std::span<const Spectrum> alike)
    {
        const auto bands = shortMasking_.bands();
        const size_t count = bands.size() - 1;
        // The middle of the packet lies between the fourth window and the fifth.
        constexpr std::array<float, AACTransform::kShortWindows> kFirstShares = {1, 1, 1, 0.98F, 0.02F, 0, 0, 0};
        const Spectrum& spectrum = spectra_[index];
        const Spectrum& firstHalf = firstHalves_[index];
        AACHalves& halves = packet_.halves[index];
        channel.groups = groupsOf(alike);
        channel.bandStarts.clear();
        channel.energies.fill(0);
        channel.thresholds.fill(0);
        size_t target = 0;
        size_t firstWindow = 0;
        for (size_t group = 0; group < channel.groups.size(); ++group) {
            const size_t endWindow = firstWindow + channel.groups[group];
            for (size_t window = firstWindow; window < endWindow; ++window) {
                Bands energies;
                Bands thresholds;
                shortMasking_.measure(
                    std::span(spectrum).subspan(window * AACTransform::kShortLines, AACTransform::kShortLines),
                    energies, thresholds);
                for (size_t band = 0; band < count; ++band) {
                    channel.energies[group * count + band] += energies[band];
                    channel.thresholds[group * count + band] += thresholds[band];
                }
            }
            for (size_t band = 0; band < count; ++band) {
                channel.bandStarts.push_back(static_cast<uint16_t>(target));
                for (size_t window = firstWindow; window < endWindow; ++window) {
                    const size_t source = window * AACTransform::kShortLines + bands[band];
                    const size_t width = bands[band + 1] - bands[band];
                    for (size_t line = source; line < source + width; ++line, ++target) {
                        channel.lines[target] = spectrum[line];
                        halves.lines[0][target] = firstHalf[line];
                        halves.lines[1][target] = spectrum[line] - firstHalf[line];
                        halves.firstShares[target] = kFirstShares[window];
                    }
                }
            }
            firstWindow = endWindow;
        }
        channel.bandStarts.push_back(static_cast<uint16_t>(target));
    }

    /// Codes mean and difference of the channels where that takes fewer bits.
    void chooseStereo()
    {
        AACChannel& left = packet_.channels[0];
        AACChannel& right = packet_.channels[1];
        for (size_t band = 0; band < left.bandCount(); ++band) {
            const size_t end = left.bandStarts[band + 1];
            FloatLanes sums{};
            FloatLanes differences{};
            for (size_t line = left.bandStarts[band]; line < end; line += kLanes) {
                const FloatLanes sum = lanesAt(&left.lines[line]) + lanesAt(&right.lines[line]);
                const FloatLanes difference = lanesAt(&left.lines[line]) - lanesAt(&right.lines[line]);
                sums += sum * sum;
                differences += difference * difference;
            }
            const float middle = sumOf(sums) / 4;
            const float side = sumOf(differences) / 4;
            // The noise of both comes together in each channel.
            const float threshold = std::min(left.thresholds[band], right.thresholds[band]) / 2;
            // Bits grow with the logarithm of this, that of a product with both.
            const auto demand = [](float energy, float noise) { return 1 + double{energy} / noise; };
            packet_.isMidSide[band] = demand(middle, threshold) * demand(side, threshold) <
                                      demand(left.energies[band], left.thresholds[band]) *
                                          demand(right.energies[band], right.thresholds[band]);
            if (!packet_.isMidSide[band])
                continue;
            left.energies[band] = middle;
            right.energies[band] = side;
            left.thresholds[band] = threshold;
            right.thresholds[band] = threshold;
            left.levelNoises[band] = std::min(left.levelNoises[band], right.levelNoises[band]) / 2;
            right.levelNoises[band] = left.levelNoises[band];
            for (size_t line = left.bandStarts[band]; line < end; ++line) {
                const float mean = (left.lines[line] + right.lines[line]) / 2;
                right.lines[line] = (left.lines[line] - right.lines[line]) / 2;
                left.lines[line] = mean;
            }
        }
    }

    const size_t channels_;
    const int wantedBits_;
    AACMasking longMasking_;
    AACMasking shortMasking_;
    const std::unique_ptr<AACTransform> transform_;
    AACPacketCoder coder_;
    AACPacket packet_;
    static constexpr size_t kLooks = 3;
    std::array<std::array<Look, kLooks>, 2> looks_{};
    size_t oldestLook_ = 0;
    bool hasLooked_ = false;
    /// Of each channel: whether the packet's window is the one that was looked at; else its lines are here.
    std::array<bool, 2> isLookedAt_{};
    std::array<Spectrum, 2> spectra_{};
    /// Of the sound in the first half of the packet's window.
    std::array<Spectrum, 2> firstHalves_{};
    /// The packet of nothing but zeros, all around it as well; empty until there was one.
    std::vector<uint8_t> silence_;
};

} // namespace

void PacketRun::append(std::span<const uint8_t> packet)
{
    bytes_.insert(bytes_.end(), packet.begin(), packet.end());
    ends_.push_back(bytes_.size());
}

std::span<const uint8_t> PacketRun::packet(size_t index) const
{
    const size_t start = index == 0 ? 0 : ends_[index - 1];
    return std::span(bytes_).subspan(start, ends_[index] - start);
}

int nearestAACRate(int sampleRateHz)
{
    // From low to high.
    for (size_t i = kRates.size(); i-- > 3;) {
        if (kRates[i] >= sampleRateHz)
            return kRates[i];
    }
    return 48000;
}

std::vector<uint8_t> configurationOfAAC(int sampleRateHz, int channels)
{
    const auto index = static_cast<unsigned>(std::find(kRates.begin(), kRates.end(), sampleRateHz) - kRates.begin());
    // Object type 2 in 5 bits, rate index in 4, channels in 4, three flags of 0.
    const unsigned bits = 2U << 11 | index << 7 | static_cast<unsigned>(channels) << 3;
    return {static_cast<uint8_t>(bits >> 8), static_cast<uint8_t>(bits & 0xFF)};
}

std::optional<PacketRun> encodeAAC(std::span<const float> samples, int sampleRateHz, int channels,
                                   const std::optional<AACWindow>& before, const std::function<bool()>& isCancelled,
                                   NSError* error)
{
    auto transform = AACTransform::create(error);
    if (!transform)
        return std::nullopt;
    const auto width = static_cast<size_t>(channels);
    std::vector<AttackFinder> attacks;
    for (size_t channel = 0; channel < width; ++channel)
        attacks.emplace_back(samples, width, channel);
    PartCoder coder(sampleRateHz, width, std::move(transform));
    PacketRun run;
    const size_t frames = samples.size() / width / kFrame;
    for (size_t frame = kAACLookBehind; frame + kAACLookAhead < frames; ++frame) {
        if (isCancelled())
            return std::nullopt;
        const bool isJoint = before && frame == kAACLookBehind;
        std::vector<AACSequence> sequences;
        for (const AttackFinder& channel : attacks) {
            AACSequence sequence = AACSequence::Long;
            const bool isBeforeShort = channel.isShort(frame + 1);
            const bool isAfterShort = isJoint ? before->fallsShortly : channel.isShort(frame - 1);
            // Between two of short windows there is no room for a long one.
            const bool isShort = channel.isShort(frame) || (isAfterShort && isBeforeShort);
            if (isShort) // What comes after another encoder's long window begins as a long one.
                sequence = isJoint && !isAfterShort ? AACSequence::Start : AACSequence::Short;
            else if (isAfterShort)
                sequence = AACSequence::Stop;
            else if (isBeforeShort)
                sequence = AACSequence::Start;
            sequences.push_back(sequence);
        }
        const AACShape rising = isJoint && !before->isKaiserBessel ? AACShape::Sine : kShape;
        run.append(
            coder.code(samples.subspan((frame - 1) * kFrame * width, 4 * kFrame * width), sequences, rising, kShape));
    }
    return run;
}

std::optional<AACWindow> windowOfAAC(std::span<const uint8_t> packet)
{
    if (packet.size() < 4)
        return std::nullopt;
    const uint32_t bits = uint32_t{packet[0]} << 24 | uint32_t{packet[1]} << 16 | uint32_t{packet[2]} << 8 | packet[3];
    const auto take = [bits](int offset, int count) { return bits << offset >> (32 - count); };
    constexpr uint32_t kSingle = 0;
    constexpr uint32_t kPair = 1;
    // Element, its tag; then a single channel's gain, or whether a pair shares its window; then a reserved bit,
    // sequence and shape.
    int offset = 0;
    if (take(0, 3) == kSingle)
        offset = 16;
    else if (take(0, 3) == kPair && take(7, 1) == 1)
        offset = 9;
    else
        return std::nullopt;
    const auto sequence = static_cast<AACSequence>(take(offset, 2));
    return AACWindow{sequence == AACSequence::Start || sequence == AACSequence::Short,
                     sequence == AACSequence::Stop || sequence == AACSequence::Short, take(offset + 2, 1) == 1};
}

} // namespace platform
