#include "platform/sound/SoundResampler.h"

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/mathematics.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <numeric>

namespace platform {
namespace {

/// Frames that are asked for at once.
constexpr size_t kBlock = 4096;
/// Frames beyond the end that filters reach, at the most.
constexpr size_t kReflection = 256;

} // namespace

SoundResampler::SoundResampler(const SoundFacts& facts, TimelineReader& source, int sampleRateHz)
    : facts_(facts), source_(source), sampleRateHz_(sampleRateHz), width_(static_cast<size_t>(facts.channels)),
      fromUnit_(facts.sampleRateHz / std::gcd(facts.sampleRateHz, sampleRateHz)),
      toUnit_(sampleRateHz / std::gcd(facts.sampleRateHz, sampleRateHz)), block_(kBlock * width_)
{}

size_t SoundResampler::read(int64_t position, std::span<float> samples)
{
    return position == outputPosition_ || restartAt(position) ? readOn(samples) : 0;
}

bool SoundResampler::restartAt(int64_t position)
{
    constexpr int64_t kSettling = 1024;
    const int64_t unit = std::max<int64_t>(0, (position - kSettling) / toUnit_);
    if (!makeFilter())
        return false;
    inputPosition_ = unit * fromUnit_;
    outputPosition_ = unit * toUnit_;
    inputEnded_ = false;
    lastInput_.clear();
    std::vector<float> dropped(kBlock * width_);
    while (outputPosition_ < position) {
        const auto count = static_cast<size_t>(std::min<int64_t>(position - outputPosition_, kBlock));
        if (readOn(std::span(dropped).first(count * width_)) == 0)
            return false;
    }
    return true;
}

bool SoundResampler::makeFilter()
{
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, facts_.channels);
    SwrContext* context = nullptr;
    swr_alloc_set_opts2(&context, &layout, AV_SAMPLE_FMT_FLT, sampleRateHz_, &layout, AV_SAMPLE_FMT_FLT,
                        facts_.sampleRateHz, 0, nullptr);
    filter_.reset(context);
    return context && swr_init(context) >= 0;
}

size_t SoundResampler::readOn(std::span<float> samples)
{
    const size_t wanted = samples.size() / width_;
    // The last output stands where the last input does, not later.
    const int64_t last = outputAt(facts_.timeline.length());
    size_t done = 0;
    while (done < wanted && outputPosition_ < last) {
        auto* output = reinterpret_cast<uint8_t*>(samples.data() + done * width_);
        const int room = static_cast<int>(std::min<size_t>(wanted - done, INT32_MAX / 16));
        int64_t got = swr_convert(filter_.get(), &output, room, nullptr, 0);
        if (got <= 0 && !inputEnded_)
            got = feed(output, room);
        if (inputEnded_)
            got = std::min(got, outputAt(inputPosition_) - outputPosition_);
        if (got <= 0)
            break;
        done += static_cast<size_t>(got);
        outputPosition_ += got;
    }
    return done;
}

int SoundResampler::feed(uint8_t* output, int room)
{
    const size_t count = source_.read(inputPosition_, block_);
    inputPosition_ += static_cast<int64_t>(count);
    inputEnded_ = count < kBlock;
    if (inputEnded_)
        goOnBeyondEnd(block_, count);
    remember(std::span(block_).first(count * width_));
    const auto* input = reinterpret_cast<const uint8_t*>(block_.data());
    return swr_convert(filter_.get(), &output, room, &input, kBlock);
}

void SoundResampler::goOnBeyondEnd(std::span<float> block, size_t count) const
{
    const auto beyond = block.subspan(count * width_);
    std::vector<float> known = lastInput_;
    known.insert(known.end(), block.begin(), beyond.begin());
    std::fill(beyond.begin(), beyond.end(), 0.0F);
    const size_t frames = known.size() / width_;
    const size_t reflected = std::min({kReflection, frames > 0 ? frames - 1 : 0, kBlock - count});
    for (size_t i = 0; i < reflected * width_; ++i) {
        const size_t channel = i % width_;
        beyond[i] = 2 * known[(frames - 1) * width_ + channel] - known[(frames - 2 - i / width_) * width_ + channel];
    }
}

void SoundResampler::remember(std::span<const float> samples)
{
    const size_t kept = kReflection * width_;
    const auto last = samples.last(std::min(kept, samples.size()));
    lastInput_.insert(lastInput_.end(), last.begin(), last.end());
    if (lastInput_.size() > kept)
        lastInput_.erase(lastInput_.begin(), lastInput_.end() - static_cast<ptrdiff_t>(kept));
}

int64_t SoundResampler::outputAt(int64_t input) const
{
    return av_rescale_rnd(input, sampleRateHz_, facts_.sampleRateHz, AV_ROUND_UP);
}

} // namespace platform
