#include "platform/aac/AACPacketCoder.h"

#include "platform/aac/AACBooks.h"
#include "platform/aac/AACLanes.h"
#include "platform/aac/AACTables.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <optional>
#include <utility>

namespace platform {
namespace {

/// The step of size 1, and the largest difference between the steps of bands in a row.
constexpr int kStepOfOne = 100;
constexpr int kLargestStep = 255;
constexpr int kLargestDifference = 60;
/// Magnitudes up to which level is kept; larger ones keep it by themselves.
constexpr int kSmallValue = 12;
/// Values are rounded up from here, less than a half because small ones are more frequent than large ones.
constexpr float kRounding = 0.4054F;
/// Noise of a line, as finely as is worth it: 9 dB below that of samples of 16 bits.
constexpr float kFinestNoise = 21;

/// Bits of a channel that every decoder takes.
constexpr size_t kMostBits = 6144;
/// The bounds of what all steps are changed by, and the change below which noise is masked well, in steps of 1.5 dB.
constexpr int kMostOffset = 96;
constexpr int kEnoughOffset = -3;
/// Noise of a line is at most so many times what is masked, 6 dB, unless all noise has to be.
constexpr float kMostAboveMask = 4;

class BitWriter final {
public:
    void put(uint32_t value, int count)
    {
        pending_ = pending_ << count | value;
        pendingBits_ += count;
        while (pendingBits_ >= 8) {
            pendingBits_ -= 8;
            bytes_.push_back(static_cast<uint8_t>(pending_ >> pendingBits_));
        }
    }
    void put(AACCodeWord word) { put(word.bits, word.length); }

    std::vector<uint8_t> finish()
    {
        if (pendingBits_ > 0)
            put(0, 8 - pendingBits_);
        return std::move(bytes_);
    }

private:
    std::vector<uint8_t> bytes_;
    uint64_t pending_ = 0;
    int pendingBits_ = 0;
};

void writeValues(BitWriter& writer, std::span<const int32_t> values, int book)
{
    const auto words = wordsOfAACBook(book);
    const size_t lines = book < kFirstPairBook ? 4 : 2;
    const int largest = std::min(kLargestOfBook[static_cast<size_t>(book)], 16);
    const bool isSigned = isSignedBook(book);
    const int base = isSigned ? 2 * largest + 1 : largest + 1;
    for (size_t i = 0; i < values.size(); i += lines) {
        int word = 0;
        for (size_t j = 0; j < lines; ++j)
            word = word * base + (isSigned ? values[i + j] + largest : std::min(std::abs(values[i + j]), largest));
        writer.put(words[static_cast<size_t>(word)]);
        if (isSigned)
            continue;
        for (size_t j = 0; j < lines; ++j) {
            if (values[i + j] != 0)
                writer.put(values[i + j] < 0, 1);
        }
        for (size_t j = 0; book == kEscapeBook && j < lines; ++j) {
            const auto magnitude = static_cast<uint32_t>(std::abs(values[i + j]));
            if (magnitude < 16)
                continue;
            // As many ones as the number has bits beyond five, a zero, then the number without its first bit.
            const int width = std::bit_width(magnitude) - 1;
            writer.put((1U << (width - 4)) - 1, width - 4);
            writer.put(0, 1);
            writer.put(magnitude - (1U << width), width);
        }
    }
}

/// One more than the last band of a group that holds anything.
size_t usedBands(const AACChannel& channel)
{
    size_t used = 0;
    for (size_t band = 0; band < channel.bandCount(); ++band) {
        if (channel.books[band] != 0)
            used = std::max(used, band % channel.bandsPerGroup() + 1);
    }
    return used;
}

void writeWindow(BitWriter& writer, AACShape shape, const AACChannel& channel, size_t used)
{
    writer.put(0, 1);
    writer.put(static_cast<uint32_t>(channel.sequence), 2);
    writer.put(static_cast<uint32_t>(shape), 1);
    if (!channel.isShort()) {
        writer.put(static_cast<uint32_t>(used), 6);
        // No prediction.
        writer.put(0, 1);
        return;
    }
    writer.put(static_cast<uint32_t>(used), 4);
    // A bit for each window but the first: whether it belongs to the group of the one before.
    for (size_t group = 0; group < channel.groups.size(); ++group) {
        for (int window = 0; window < channel.groups[group]; ++window) {
            if (group > 0 || window > 0)
                writer.put(window > 0, 1);
        }
    }
}

void writeSections(BitWriter& writer, const AACChannel& channel, size_t used)
{
    const int bits = channel.lengthBits();
    const size_t longest = (size_t{1} << bits) - 1;
    for (size_t group = 0; group < channel.groups.size(); ++group) {
        const size_t first = group * channel.bandsPerGroup();
        for (size_t band = 0; band < used;) {
            size_t end = band + 1;
            while (end < used && channel.books[first + end] == channel.books[first + band])
                ++end;
            writer.put(channel.books[first + band], 4);
            size_t length = end - band;
            for (; length >= longest; length -= longest)
                writer.put(static_cast<uint32_t>(longest), bits);
            writer.put(static_cast<uint32_t>(length), bits);
            band = end;
        }
    }
}

void writeChannel(BitWriter& writer, const AACChannel& channel, size_t used, std::optional<AACShape> shape)
{
    const auto forEachCodedBand = [&](const auto& visit) {
        for (size_t group = 0; group < channel.groups.size(); ++group) {
            for (size_t band = 0; band < used; ++band) {
                if (channel.books[group * channel.bandsPerGroup() + band] != 0)
                    visit(group * channel.bandsPerGroup() + band);
            }
        }
    };
    int step = -1;
    forEachCodedBand([&](size_t band) { step = step < 0 ? channel.steps[band] : step; });
    step = std::max(step, 0);
    writer.put(static_cast<uint32_t>(step), 8);
    if (shape)
        writeWindow(writer, *shape, channel, used);
    writeSections(writer, channel, used);
    forEachCodedBand([&](size_t band) {
        writer.put(scaleFactorWordsOfAAC()[static_cast<size_t>(channel.steps[band] - step + kLargestDifference)]);
        step = channel.steps[band];
    });
    // Neither pulses nor noise shaping nor gain control.
    writer.put(0, 3);
    forEachCodedBand([&](size_t band) { writeValues(writer, channel.valuesOf(band), channel.books[band]); });
}

void writeStereo(BitWriter& writer, const AACPacket& packet, size_t used)
{
    const AACChannel& channel = packet.channels[0];
    std::vector<bool> choices;
    for (size_t group = 0; group < channel.groups.size(); ++group) {
        for (size_t band = 0; band < used; ++band)
            choices.push_back(packet.isMidSide[group * channel.bandsPerGroup() + band]);
    }
    const auto count = static_cast<size_t>(std::count(choices.begin(), choices.end(), true));
    const bool isMixed = count > 0 && count < choices.size();
    writer.put(isMixed ? 1 : count > 0 ? 2 : 0, 2);
    for (size_t i = 0; isMixed && i < choices.size(); ++i)
        writer.put(choices[i], 1);
}

std::vector<uint8_t> write(const AACPacket& packet)
{
    constexpr uint32_t kSingle = 0;
    constexpr uint32_t kPair = 1;
    constexpr uint32_t kEnd = 7;
    BitWriter writer;
    const bool isPair = packet.channelCount == 2;
    const auto& channels = packet.channels;
    std::array<size_t, 2> used{};
    for (size_t i = 0; i < packet.channelCount; ++i)
        used[i] = usedBands(channels[i]);
    writer.put(isPair ? kPair : kSingle, 3);
    writer.put(0, 4);
    if (isPair)
        writer.put(packet.sharesWindow, 1);
    if (packet.sharesWindow) {
        used.fill(std::max(used[0], used[1]));
        writeWindow(writer, packet.shape, channels[0], used[0]);
        writeStereo(writer, packet, used[0]);
    }
    for (size_t i = 0; i < packet.channelCount; ++i)
        writeChannel(writer, channels[i], used[i], packet.sharesWindow ? std::nullopt : std::optional(packet.shape));
    writer.put(kEnd, 3);
    return writer.finish();
}

/// A band of zeros in a section of others costs least with the step of the one before.
void shareSteps(AACChannel& channel)
{
    int step = -1;
    for (size_t band = 0; band < channel.bandCount(); ++band) {
        if (channel.books[band] == 0)
            continue;
        const auto values = channel.valuesOf(band);
        const bool isSilent = std::all_of(values.begin(), values.end(), [](int value) { return value == 0; });
        if (isSilent && step >= 0)
            channel.steps[band] = step;
        step = channel.steps[band];
    }
}

/// The first step whose size is above a power of 2 with this number of quarters as its exponent.
int stepAbove(float quarters)
{
    return static_cast<int>(std::ceil(static_cast<float>(kStepOfOne) + quarters));
}

/// Bits of a packet whose noise is heard, for so many of another: more, and many more where loudness changes within
/// it, since noise is spread all over it and the soft part hides little.
int bitsOfCoarsePacket(const AACPacket& packet, int wantedBits)
{
    const float factor = std::min(1.2F + 0.3F * packet.unevenness, 3.5F);
    return std::min(static_cast<int>(factor * static_cast<float>(wantedBits)),
                    static_cast<int>(packet.channelCount * kMostBits));
}

/// Masked noise of a line, on the average of those that are heard.
float evenNoiseOf(const AACPacket& packet)
{
    float sum = 0;
    float count = 0;
    for (size_t index = 0; index < packet.channelCount; ++index) {
        const AACChannel& channel = packet.channels[index];
        for (size_t band = 0; band < channel.bandCount(); ++band) {
            if (channel.energies[band] <= channel.thresholds[band])
                continue;
            const auto width = static_cast<float>(channel.width(band));
            sum += width * std::log2(channel.thresholds[band] / width);
            count += width;
        }
    }
    return count > 0 ? std::exp2(sum / count) : 1;
}

/// Has values rounded from these lines.
void setRoots(AACChannel& channel, const AACHalves::Lines& lines)
{
    for (size_t line = 0; line < lines.size(); ++line) {
        const float magnitude = std::abs(lines[line]);
        channel.roots[line] = std::copysign(std::sqrt(magnitude * std::sqrt(magnitude)), lines[line]);
    }
    for (size_t band = 0; band < channel.bandCount(); ++band) {
        FloatLanes largest{};
        for (size_t line = channel.bandStarts[band]; line < channel.bandStarts[band + 1]; line += kLanes)
            largest = larger(largest, magnitudes(lanesAt(&channel.roots[line])));
        channel.largestRoots[band] = std::max({largest[0], largest[1], largest[2], largest[3]});
    }
}

/// Makes left and right of mean and half difference where the channels hold these.
void separate(const AACPacket& packet, std::array<AACHalves::Lines, 2>& lines)
{
    const auto& starts = packet.channels[0].bandStarts;
    for (size_t band = 0; packet.sharesWindow && band < packet.channels[0].bandCount(); ++band) {
        for (size_t line = starts[band]; packet.isMidSide[band] && line < starts[band + 1]; ++line) {
            const float mean = lines[0][line];
            lines[0][line] = mean + lines[1][line];
            lines[1][line] = mean - lines[1][line];
        }
    }
}

/// The other way round.
void combine(const AACPacket& packet, std::array<AACHalves::Lines, 2>& lines)
{
    separate(packet, lines);
    const auto& starts = packet.channels[0].bandStarts;
    for (size_t band = 0; packet.sharesWindow && band < packet.channels[0].bandCount(); ++band) {
        for (size_t line = starts[band]; packet.isMidSide[band] && line < starts[band + 1]; ++line) {
            lines[0][line] /= 2;
            lines[1][line] /= 2;
        }
    }
}

/// What decoders make of values and of steps.
struct Sizes {
    static constexpr int kLargestValue = kLargestOfBook[kEscapeBook];

    Sizes()
    {
        for (int value = -kLargestValue; value <= kLargestValue; ++value)
            decoded[static_cast<size_t>(value + kLargestValue)] =
                std::copysign(std::pow(std::abs(static_cast<float>(value)), 4 / 3.0F), static_cast<float>(value));
        for (int value = 0; value <= kSmallValue; ++value)
            smallEnergies[static_cast<size_t>(value)] = decodedOf(value) * decodedOf(value);
        for (size_t step = 0; step < ofSteps.size(); ++step) {
            const float exponent = (static_cast<float>(step) - kStepOfOne) / 4;
            ofSteps[step] = std::exp2(exponent);
            inverseRoots[step] = std::exp2(-0.75F * exponent);
        }
    }
    float decodedOf(int value) const { return decoded[static_cast<size_t>(value + kLargestValue)]; }

    /// Of values of step kStepOfOne, from -kLargestValue on.
    std::array<float, 2 * kLargestValue + 1> decoded{};
    std::array<float, kSmallValue + 1> smallEnergies{};
    std::array<float, kLargestStep + 1> ofSteps{};
    /// To the power of -3/4.
    std::array<float, kLargestStep + 1> inverseRoots{};
};

const Sizes& sizes()
{
    static const Sizes sizes;
    return sizes;
}

/// Decides between which steps each band's is sought.
void prepare(AACChannel& channel, float evenNoise)
{
    setRoots(channel, channel.lines);
    AACHalves::Lines squareRoots;
    for (size_t line = 0; line < squareRoots.size(); ++line)
        squareRoots[line] = std::sqrt(std::abs(channel.lines[line]));
    for (size_t band = 0; band < channel.bandCount(); ++band) {
        const float rootSum =
            std::max(sumOf(std::span(squareRoots).subspan(channel.bandStarts[band], channel.width(band))), 1e-6F);
        // A step adds a twelfth of its square to each line; by the power law of values it grows with the root of the
        // line's cube root, 4/3 of it.
        constexpr float kNoiseOfStep = 16 / 9.0F / 12;
        const auto stepOfNoise = [&](float noise) {
            // A step's size is the noise to the power of 2/3, and has four steps to the double.
            return stepAbove(8 / 3.0F * std::log2(noise / (kNoiseOfStep * rootSum))) - 1;
        };
        const auto lines = static_cast<float>(channel.width(band));
        // The largest value that can be coded bounds the step from below: beyond it the peak would be cut off.
        constexpr float kLargest = 0.999F * Sizes::kLargestValue;
        const float largest = channel.largestRoots[band];
        const int bound = largest > 0 ? stepAbove(16 / 3.0F * std::log2(largest / kLargest)) : 0;
        // Half way between noise that follows the mask and noise that is the same everywhere: as little is heard of it,
        // and the sound's strong parts, its level with them, are nearer to the source.
        const float masked = channel.thresholds[band] / lines;
        channel.wishedSteps[band] = stepOfNoise(
            lines * std::min({std::sqrt(masked * evenNoise), kMostAboveMask * masked, channel.levelNoises[band]}));
        channel.finestSteps[band] = std::clamp(std::max(bound, stepOfNoise(kFinestNoise * lines)), 0, kLargestStep);
    }
}

void quantizeBand(AACChannel& channel, size_t band)
{
    // Steps are chosen for the peak; lines that are raised afterwards, to keep the level of short times, stay codable.
    const float most = static_cast<float>(Sizes::kLargestValue) / std::max(channel.largestRoots[band], 1e-20F);
    const float scale =
        std::min(most, sizes().inverseRoots[static_cast<size_t>(channel.steps[band])] * channel.gains[band]);
    channel.largest[band] = static_cast<int>(channel.largestRoots[band] * scale + kRounding);
    if (channel.largest[band] == 0) {
        std::fill_n(&channel.values[channel.bandStarts[band]], channel.width(band), 0);
        return;
    }
    for (size_t line = channel.bandStarts[band]; line < channel.bandStarts[band + 1]; line += kLanes) {
        const FloatLanes exact = lanesAt(&channel.roots[line]) * scale;
        const FloatLanes rounded = exact + (exact < 0 ? sameInAll(-kRounding) : sameInAll(kRounding));
        put(__builtin_convertvector(rounded, IntLanes), &channel.values[line]);
    }
}

/// With all steps changed by `offset`.
void quantize(AACPacket& packet, int offset)
{
    for (size_t index = 0; index < packet.channelCount; ++index) {
        AACChannel& channel = packet.channels[index];
        channel.gains.fill(1);
        for (size_t band = 0; band < channel.bandCount(); ++band) {
            channel.steps[band] =
                std::clamp(channel.wishedSteps[band] + offset, channel.finestSteps[band], kLargestStep);
            quantizeBand(channel, band);
        }
    }
}

/// Quantizes with all steps changed by `offset` and returns about how many bits the packet takes then.
int bitsWith(AACPacket& packet, int offset)
{
    quantize(packet, offset);
    int bits = 0;
    for (size_t index = 0; index < packet.channelCount; ++index)
        bits += bitsOfValues(packet.channels[index]);
    return bits;
}

/// The least change of all steps with which the packet takes no more bits than it may.
int offsetFor(AACPacket& packet, int wantedBits)
{
    // Where noise is masked well enough the packet takes no more than it should.
    const int enough = std::max(kEnoughOffset - static_cast<int>(packet.unevenness), -kMostOffset);
    const int enoughBits = bitsWith(packet, enough);
    const int coarseBits = bitsOfCoarsePacket(packet, wantedBits);
    const bool isCoarse = enoughBits > coarseBits;
    const int mostBits = isCoarse ? coarseBits : wantedBits;
    // An offset with which the packet takes more bits, and one with which it does not; the ends are not tried.
    int finer = isCoarse ? enough : -kMostOffset - 1;
    int coarser = isCoarse ? kMostOffset : enough;
    std::optional<int> finerBits;
    int coarserBits = 0;
    if (isCoarse)
        finerBits = enoughBits;
    else
        coarserBits = enoughBits;
    for (int tries = 1; finer + 1 < coarser; ++tries) {
        int offset = 0;
        if (tries % 3 == 0) // Bits do not fall evenly: the guess from both can come near from one side alone.
            offset = (finer + coarser) >> 1;
        else if (finerBits)
            offset = finer + (coarser - finer) * (*finerBits - mostBits) / (*finerBits - coarserBits) + 1;
        else // About a sixteenth for each step.
            offset = coarser - 16 * (mostBits - coarserBits) / std::max(coarserBits, 1);
        offset = std::clamp(offset, finer + 1, coarser - 1);
        const int bits = bitsWith(packet, offset);
        if (bits > mostBits) {
            finer = offset;
            finerBits = bits;
        } else {
            coarser = offset;
            coarserBits = bits;
        }
    }
    return coarser;
}

/// Keeps the energy of every band.
void keepBandLevels(AACChannel& channel)
{
    // Rounding down takes away from the level of what is coded coarsely.
    for (size_t band = 0; band < channel.bandCount(); ++band) {
        const float size = sizes().ofSteps[static_cast<size_t>(channel.steps[band])];
        float& gain = channel.gains[band];
        for (int pass = 0; pass < 3; ++pass) {
            if (channel.largest[band] == 0 || channel.largest[band] > kSmallValue)
                break;
            const auto values = channel.valuesOf(band);
            const auto energyAt = [&](size_t i) {
                return sizes().smallEnergies[static_cast<size_t>(std::abs(values[i]))];
            };
            FloatLanes energies{};
            for (size_t i = 0; i < values.size(); i += kLanes)
                energies += FloatLanes{energyAt(i), energyAt(i + 1), energyAt(i + 2), energyAt(i + 3)};
            const float ratio = channel.energies[band] / (sumOf(energies) * size * size);
            if (std::abs(ratio - 1) < 0.02F)
                break;
            // Values follow the power of 3/8 of an energy; more of them also become larger than zero.
            gain = std::clamp(gain * std::pow(ratio, 0.3F), 0.85F, 1.2F);
            quantizeBand(channel, band);
        }
    }
}

void limitDifferences(AACChannel& channel)
{
    // Steps are made larger only: a smaller one would not hold the band's peak. What is then cut to zero is no longer
    // coded, which can leave another difference.
    bool isChanged = true;
    while (std::exchange(isChanged, false)) {
        std::vector<size_t> coded;
        for (size_t band = 0; band < channel.bandCount(); ++band) {
            if (channel.books[band] != 0)
                coded.push_back(band);
        }
        const auto limit = [&](size_t band, size_t other) {
            const int least = channel.steps[other] - kLargestDifference;
            if (channel.steps[band] >= least)
                return;
            channel.steps[band] = least;
            quantizeBand(channel, band);
            isChanged = true;
        };
        for (size_t i = 1; i < coded.size(); ++i)
            limit(coded[i], coded[i - 1]);
        for (size_t i = coded.size(); i-- > 1;)
            limit(coded[i - 1], coded[i]);
        if (isChanged)
            chooseBooks(channel);
    }
}

} // namespace

void AACPacketCoder::findErrors(const AACPacket& packet)
{
    for (size_t index = 0; index < packet.channelCount; ++index) {
        const AACChannel& channel = packet.channels[index];
        for (size_t band = 0; band < channel.bandCount(); ++band) {
            const float size = sizes().ofSteps[static_cast<size_t>(channel.steps[band])];
            for (size_t line = channel.bandStarts[band]; line < channel.bandStarts[band + 1]; ++line)
                changes_[index][line] = sizes().decodedOf(channel.values[line]) * size - channel.lines[line];
        }
    }
    separate(packet, changes_);
}

void AACPacketCoder::quantizeShifted(AACPacket& packet, const std::array<std::array<float, 2>, 2>& shifts)
{
    for (size_t index = 0; index < packet.channelCount; ++index) {
        const auto& [first, second] = packet.halves[index].lines;
        for (size_t line = 0; line < first.size(); ++line)
            changes_[index][line] = shifts[index][0] * first[line] + shifts[index][1] * second[line];
    }
    combine(packet, changes_);
    for (size_t index = 0; index < packet.channelCount; ++index) {
        AACChannel& channel = packet.channels[index];
        for (size_t line = 0; line < channel.lines.size(); ++line)
            changes_[index][line] += channel.lines[line];
        setRoots(channel, changes_[index]);
        for (size_t band = 0; band < channel.bandCount(); ++band)
            quantizeBand(channel, band);
    }
}

void AACPacketCoder::keepHalfLevels(AACPacket& packet)
{
    // Where the sound is louder in one half, bands that keep their energy make the other one too loud. Lines are
    // rounded from what they would be if one half were a little louder or softer; values are few, so that the best of
    // some tries counts.
    constexpr int kTries = 4;
    constexpr float kEnough = 0.004F;
    constexpr float kMostShift = 0.25F;
    std::array<std::array<float, 2>, 2> shifts{};
    auto best = shifts;
    float least = std::numeric_limits<float>::max();
    for (int attempt = 0;; ++attempt) {
        findErrors(packet);
        auto next = shifts;
        float worst = 0;
        for (size_t index = 0; index < packet.channelCount; ++index) {
            const AACHalfErrors errors = halfErrorsOf(packet.halves[index], changes_[index]);
            worst = std::max(worst, errors.worst);
            // Later ones go on more carefully, since rounding answers less and less evenly.
            for (size_t half = 0; half < 2; ++half)
                next[index][half] = std::clamp(next[index][half] + (attempt > 1 ? 0.6F : 1.0F) * errors.shifts[half],
                                               -kMostShift, kMostShift);
        }
        if (worst < least) {
            least = worst;
            best = shifts;
        }
        if (worst <= kEnough || attempt + 1 == kTries)
            break;
        shifts = next;
        quantizeShifted(packet, shifts);
    }
    if (best != shifts)
        quantizeShifted(packet, best);
}

std::vector<uint8_t> AACPacketCoder::code(AACPacket& packet, int wantedBits)
{
    const float evenNoise = evenNoiseOf(packet);
    for (size_t index = 0; index < packet.channelCount; ++index)
        prepare(packet.channels[index], evenNoise);
    std::vector<uint8_t> bytes;
    // Few packets take more than they were thought to, and hardly any as much as no decoder takes.
    for (int offset = offsetFor(packet, wantedBits); offset <= kMostOffset; ++offset) {
        quantize(packet, offset);
        for (size_t index = 0; index < packet.channelCount; ++index)
            keepBandLevels(packet.channels[index]);
        keepHalfLevels(packet);
        for (size_t index = 0; index < packet.channelCount; ++index) {
            AACChannel& channel = packet.channels[index];
            chooseBooks(channel);
            shareSteps(channel);
            limitDifferences(channel);
        }
        bytes = write(packet);
        if (bytes.size() * 8 <= kMostBits * packet.channelCount)
            break;
        for (size_t index = 0; index < packet.channelCount; ++index)
            setRoots(packet.channels[index], packet.channels[index].lines);
    }
    return bytes;
}

} // namespace platform
