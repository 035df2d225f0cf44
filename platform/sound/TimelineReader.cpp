#include "platform/sound/TimelineReader.h"

#include <algorithm>

namespace platform {

bool TimelineReader::open(const SoundFacts& facts, NSError* error)
{
    facts_ = &facts;
    return decoder_.open(facts, error);
}

size_t TimelineReader::read(int64_t position, std::span<float> samples)
{
    const auto channels = static_cast<size_t>(facts_->channels);
    size_t done = 0;
    int64_t start = 0;
    for (const SoundSegment& segment : facts_->timeline.segments) {
        const int64_t inside = position + static_cast<int64_t>(done) - start;
        const int64_t left = segment.length - inside;
        start += segment.length;
        if (left <= 0)
            continue;
        const size_t count =
            std::min(samples.size() / channels - done, static_cast<size_t>(std::min<int64_t>(left, INT32_MAX)));
        const auto part = samples.subspan(done * channels, count * channels);
        size_t got = count;
        if (segment.mediaStart)
            got = decoder_.read(*segment.mediaStart + inside, part);
        else
            std::fill(part.begin(), part.end(), 0.0F);
        done += got;
        if (got < count || done * channels == samples.size())
            break;
    }
    return done;
}

} // namespace platform
