#include "platform/sound/SoundReader.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/sound/SoundResampler.h"
#include "platform/sound/TimelineReader.h"

extern "C" {
#include <libavutil/error.h>
}

#include <optional>
#include <utility>

namespace platform {

struct SoundReader::State {
    SoundFactsPtr facts;
    int channels = 0;
    TimelineReader source = {};
    /// Only if the rates differ.
    std::optional<SoundResampler> resampler = std::nullopt;

    size_t read(int64_t position, std::span<float> samples)
    {
        return resampler ? resampler->read(position, samples) : source.read(position, samples);
    }
};

SoundReader::SoundReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
SoundReader::~SoundReader() = default;

std::unique_ptr<SoundReader> SoundReader::open(SoundFactsPtr facts, int sampleRateHz, int channels, NSError* error)
{
    auto state = std::make_unique<State>(State{std::move(facts), channels});
    if (!state->source.open(*state->facts, error))
        return nullptr;
    if (sampleRateHz != state->facts->sampleRateHz)
        state->resampler.emplace(*state->facts, state->source, sampleRateHz);
    return std::unique_ptr<SoundReader>(new SoundReader(std::move(state)));
}

size_t SoundReader::read(int64_t position, std::span<float> samples)
{
    if (state_->channels == state_->facts->channels)
        return state_->read(position, samples);
    // One channel becomes two alike.
    const size_t frames = samples.size() / 2;
    const size_t got = state_->read(position, samples.first(frames));
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
             localized("{} ends before its sound does", {state_->facts->url.path()}));
    else
        failWithAVError(&error, code, localized("{} could not be read to its end", {state_->facts->url.path()}));
    return error;
}

} // namespace platform
