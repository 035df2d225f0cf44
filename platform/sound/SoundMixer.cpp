#include "platform/sound/SoundMixer.h"

#include <algorithm>

namespace platform {
namespace {

/// In samples of each channel.
constexpr int64_t kMostAtOnce = 1 << 16;

float volumeAt(const std::vector<SoundRamp>& ramps, int64_t position)
{
    float volume = 1;
    const auto time = static_cast<double>(position);
    for (const SoundRamp& ramp : ramps) {
        if (time < ramp.start)
            break;
        if (time < ramp.end) {
            const double part = (time - ramp.start) / (ramp.end - ramp.start);
            return static_cast<float>(ramp.startVolume + (ramp.endVolume - ramp.startVolume) * part);
        }
        volume = ramp.endVolume;
    }
    return volume;
}

} // namespace

SoundMixer::SoundMixer(const SoundPlan& plan) : plan_(plan)
{
    for (const SoundPiece& piece : plan.pieces)
        voices_.push_back({&piece});
}

// An encoder that hears what lies before and after a cut hears no edge there: the first piece begins before the range,
// and the last ends after it, where there is more of them.
int64_t SoundMixer::startOf(const Voice& voice) const
{
    const int64_t start = voice.piece->targetStart;
    return &voice == &voices_.front() && start <= plan_.rangeStart ? INT64_MIN : start;
}

int64_t SoundMixer::endOf(const Voice& voice) const
{
    const int64_t end = voice.piece->targetEnd();
    return &voice == &voices_.back() && end >= plan_.rangeEnd ? INT64_MAX : end;
}

bool SoundMixer::read(int64_t position, std::span<float> samples, NSError* error)
{
    const auto count = static_cast<int64_t>(samples.size() / static_cast<size_t>(plan_.channels));
    std::fill(samples.begin(), samples.end(), 0.0F);
    for (Voice& voice : voices_) {
        const int64_t to = std::min(position + count, endOf(voice));
        // In pieces: what is read in one go is there twice.
        for (int64_t from = std::max(position, startOf(voice)); from < to; from += kMostAtOnce)
            if (!add(voice, from, std::min(to, from + kMostAtOnce), position, samples, error))
                return false;
        if (position >= endOf(voice))
            voice.reader.reset();
    }
    return true;
}

bool SoundMixer::add(Voice& voice, int64_t from, int64_t to, int64_t position, std::span<float> samples, NSError* error)
{
    if (!voice.reader)
        voice.reader = SoundReader::open(voice.piece->facts, plan_.sampleRateHz, plan_.channels, error);
    if (!voice.reader)
        return false;
    // The first sound of a file has nothing before it.
    const int64_t source = from - voice.piece->targetStart + voice.piece->sourceStart;
    const int64_t missing = std::clamp<int64_t>(-source, 0, to - from);
    if (missing == to - from)
        return true;
    const auto channels = static_cast<size_t>(plan_.channels);
    block_.resize(static_cast<size_t>(to - from - missing) * channels);
    const size_t got = voice.reader->read(source + missing, block_);
    const int64_t start = from + missing;
    for (size_t frame = 0; frame < got; ++frame) {
        const float volume = volumeAt(voice.piece->ramps, start + static_cast<int64_t>(frame));
        const size_t target = (static_cast<size_t>(start - position) + frame) * channels;
        for (size_t channel = 0; channel < channels; ++channel)
            samples[target + channel] += block_[frame * channels + channel] * volume;
    }
    const int64_t heard = start + static_cast<int64_t>(got);
    if (heard < std::min(to, voice.piece->targetEnd()) && &voice == &voices_.back() && !end_)
        end_ = heard;
    return true;
}

} // namespace platform
