#include "platform/sound/SoundReader.h"

#include "platform/libav/FFmpegHandles.h"
#include "platform/sound/TimelineReader.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/error.h>
#include <libavutil/mathematics.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <numeric>
#include <utility>
#include <vector>

namespace platform {
namespace {

/// Frames that are asked for at once.
constexpr size_t kBlock = 4096;
/// Frames beyond the end that filters reach, at the most.
constexpr size_t kReflection = 256;

} // namespace

struct SoundReader::State {
    SoundFactsPtr facts;
    int sampleRateHz = 0;
    int channels = 0;
    TimelineReader source = {};

    /// @name Only if the rates differ
    /// Output sample `toUnit` * n stands where input sample `fromUnit` * n does.
    /// @{
    int64_t fromUnit = 1;
    int64_t toUnit = 1;
    ResamplerPtr resampler = nullptr;
    /// Where the next output of the resampler stands; its input likewise.
    int64_t outputPosition = -1;
    int64_t inputPosition = 0;
    bool inputEnded = false;
    /// The last frames that the resampler was given, at most as many as are reflected at the end.
    std::vector<float> lastInput = {};
    /// @}

    bool resamples() const { return sampleRateHz != facts->sampleRateHz; }

    bool makeResampler()
    {
        AVChannelLayout layout{};
        av_channel_layout_default(&layout, facts->channels);
        SwrContext* context = nullptr;
        swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_FLT, sampleRateHz, &layout, AV_SAMPLE_FMT_FLT,
                            facts->sampleRateHz, 0, nullptr);
        resampler.reset(context);
        return context && swr_init(context) >= 0;
    }

    /// Starts anew far enough before `position` for the filter to have settled there.
    bool restartAt(int64_t position)
    {
        constexpr int64_t kSettling = 1024;
        const int64_t unit = std::max<int64_t>(0, (position - kSettling) / toUnit);
        if (!makeResampler())
            return false;
        inputPosition = unit * fromUnit;
        outputPosition = unit * toUnit;
        inputEnded = false;
        lastInput.clear();
        std::vector<float> dropped(kBlock * static_cast<size_t>(facts->channels));
        while (outputPosition < position) {
            const auto count = static_cast<size_t>(std::min<int64_t>(position - outputPosition, kBlock));
            if (resample(std::span(dropped).first(count * static_cast<size_t>(facts->channels))) == 0)
                return false;
        }
        return true;
    }

    void remember(std::span<const float> samples)
    {
        const size_t kept = kReflection * static_cast<size_t>(facts->channels);
        if (samples.size() >= kept)
            lastInput.clear();
        lastInput.insert(lastInput.end(), samples.end() - static_cast<ptrdiff_t>(std::min(kept, samples.size())),
                         samples.end());
        if (lastInput.size() > kept)
            lastInput.erase(lastInput.begin(), lastInput.end() - static_cast<ptrdiff_t>(kept));
    }

    /// Fills up a block that holds the last `count` frames. What the filter reaches beyond the end is what lies before
    /// it, turned about the last sample: after silence there would be an edge, which the filter would spread.
    void goOnBeyondEnd(std::vector<float>& block, size_t count)
    {
        const auto width = static_cast<size_t>(facts->channels);
        std::vector<float> known = lastInput;
        known.insert(known.end(), block.begin(), block.begin() + static_cast<ptrdiff_t>(count * width));
        std::fill(block.begin() + static_cast<ptrdiff_t>(count * width), block.end(), 0.0F);
        const size_t frames = known.size() / width;
        const size_t reflected = std::min({kReflection, frames > 0 ? frames - 1 : 0, kBlock - count});
        for (size_t i = 0; i < reflected * width; ++i) {
            const size_t channel = i % width;
            const float last = known[(frames - 1) * width + channel];
            block[count * width + i] = 2 * last - known[(frames - 2 - i / width) * width + channel];
        }
    }

    /// The next samples of the resampler; fewer only at the end.
    size_t resample(std::span<float> samples)
    {
        const auto width = static_cast<size_t>(facts->channels);
        const size_t wanted = samples.size() / width;
        // The last output stands where the last input does, not later.
        const int64_t last = av_rescale_rnd(facts->timeline.length(), sampleRateHz, facts->sampleRateHz, AV_ROUND_UP);
        size_t done = 0;
        std::vector<float> block(kBlock * width);
        while (done < wanted && outputPosition < last) {
            auto* output = reinterpret_cast<uint8_t*>(samples.data() + done * width);
            const int room = static_cast<int>(std::min<size_t>(wanted - done, INT32_MAX / 16));
            int got = swr_convert(resampler.get(), &output, room, nullptr, 0);
            if (got <= 0 && !inputEnded) {
                const size_t count = source.read(inputPosition, block);
                inputPosition += static_cast<int64_t>(count);
                inputEnded = count < kBlock;
                if (inputEnded)
                    goOnBeyondEnd(block, count);
                remember(std::span(block).first(count * width));
                const auto* input = reinterpret_cast<const uint8_t*>(block.data());
                got = swr_convert(resampler.get(), &output, room, &input, kBlock);
            }
            if (got <= 0)
                break;
            if (inputEnded)
                got = static_cast<int>(std::min<int64_t>(
                    got,
                    std::max<int64_t>(0, av_rescale_rnd(inputPosition, sampleRateHz, facts->sampleRateHz, AV_ROUND_UP) -
                                             outputPosition)));
            if (got == 0)
                break;
            done += static_cast<size_t>(got);
            outputPosition += got;
        }
        return done;
    }

    size_t readNarrow(int64_t position, std::span<float> samples)
    {
        if (!resamples())
            return source.read(position, samples);
        if (position != outputPosition && !restartAt(position))
            return 0;
        return resample(samples);
    }
};

SoundReader::SoundReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
SoundReader::~SoundReader() = default;

std::unique_ptr<SoundReader> SoundReader::open(SoundFactsPtr facts, int sampleRateHz, int channels, NSError* error)
{
    auto state = std::make_unique<State>(State{std::move(facts), sampleRateHz, channels, {}});
    const int common = std::gcd(state->facts->sampleRateHz, sampleRateHz);
    state->fromUnit = state->facts->sampleRateHz / common;
    state->toUnit = sampleRateHz / common;
    if (!state->source.open(*state->facts, error))
        return nullptr;
    return std::unique_ptr<SoundReader>(new SoundReader(std::move(state)));
}

size_t SoundReader::read(int64_t position, std::span<float> samples)
{
    if (state_->channels == state_->facts->channels)
        return state_->readNarrow(position, samples);
    // One channel becomes two alike.
    const size_t frames = samples.size() / 2;
    const size_t got = state_->readNarrow(position, samples.first(frames));
    for (size_t i = got; i-- > 0;)
        samples[2 * i] = samples[2 * i + 1] = samples[i];
    return got;
}

std::optional<NSError> SoundReader::failure() const
{
    const int code = state_->source.inputError();
    if (code == 0)
        return std::nullopt;
    NSError error;
    if (code == AVERROR_EOF)
        fail(&error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse,
             state_->facts->url.path() + " ends before its sound does");
    else
        failWithAVError(&error, code, state_->facts->url.path() + " could not be read to its end");
    return error;
}

} // namespace platform
