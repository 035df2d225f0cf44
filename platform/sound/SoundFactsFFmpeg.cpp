#include "platform/sound/SoundFacts.h"

#include "platform/aac/AACEncoder.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/libav/MovieBoxes.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/intreadwrite.h>
}

#include <algorithm>
#include <span>
#include <string_view>

namespace platform {
namespace {

/// Whether every packet of a movie's track stands where counting puts it.
bool hasEvenPackets(const AVStream& stream, int64_t packetLength)
{
    const int count = avformat_index_get_entries_count(&stream);
    for (int i = 0; i < count; ++i) {
        const AVIndexEntry* entry = avformat_index_get_entry(const_cast<AVStream*>(&stream), i);
        if (!entry || entry->timestamp != i * packetLength)
            return false;
    }
    return count > 0;
}

void describePackets(const AVFormatContext& input, const AVStream& stream, SoundFacts& facts)
{
    const AVCodecParameters& parameters = *stream.codecpar;
    const bool isMovie = std::string_view(input.iformat->name).starts_with("mov,");
    const bool countsSamples = stream.time_base.num == 1 && stream.time_base.den == parameters.sample_rate;
    if (parameters.ch_layout.nb_channels > 2)
        return;
    if (parameters.codec_id == AV_CODEC_ID_AAC && parameters.profile == FF_PROFILE_AAC_LOW &&
        nearestAACRate(parameters.sample_rate) == parameters.sample_rate && facts.timeline.segments.size() == 1 &&
        facts.timeline.segments[0].mediaStart) {
        constexpr int kLength = kAACPacketLength;
        const std::vector<uint8_t> plain = configurationOfAAC(parameters.sample_rate, parameters.ch_layout.nb_channels);
        const std::span<const uint8_t> stored(parameters.extradata, static_cast<size_t>(parameters.extradata_size));
        // Longer configurations may end in the note that no bands are replicated; the first bytes must be the plain
        // ones.
        const bool isPlain = stored.size() >= 2 && std::equal(plain.begin(), plain.end(), stored.begin());
        if ((isMovie && countsSamples && isPlain && hasEvenPackets(stream, kLength)) || isADTS(input)) {
            facts.codec = SoundCodec::AAC;
            facts.configuration = plain;
            facts.packetLength = kLength;
        }
        return;
    }
    // The configuration is a box: length, type, version, then the length of packets.
    const int packetLength = parameters.codec_id == AV_CODEC_ID_ALAC && parameters.extradata_size >= 36
                                 ? static_cast<int>(AV_RB32(parameters.extradata + 12) & INT32_MAX)
                                 : 0;
    if (packetLength > 0 && isMovie && countsSamples && facts.timeline.segments.size() == 1 &&
        facts.timeline.segments[0].mediaStart && hasEvenPackets(stream, packetLength)) {
        facts.codec = SoundCodec::ALAC;
        facts.configuration.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
        facts.packetLength = packetLength;
    }
}

} // namespace

InputPtr openSound(const SoundFacts& facts, NSError* error)
{
    FileBytesPtr file = facts.opened.lock();
    return file ? openMediaFile(std::move(file), facts.url, true, error) : openMediaFile(facts.url, true, error);
}

bool isADTS(const AVFormatContext& input)
{
    return std::string_view(input.iformat->name) == "aac";
}

bool failNoSound(NSError* error, const NSURL& url, const std::string& why)
{
    return fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized, url.path() + " " + why);
}

SoundFacts soundFactsOf(AVFormatContext& input, const AVStream& stream, const NSURL& url,
                        const std::optional<MovieBoxes>& boxes, TimelinePrecision precision)
{
    const FileBytesPtr& file = bytesOf(input);
    SoundFacts facts{.url = url,
                     .file = file->state(),
                     .opened = file,
                     .streamIndex = stream.index,
                     .sampleRateHz = stream.codecpar->sample_rate,
                     .channels = std::min(stream.codecpar->ch_layout.nb_channels, 2)};
    facts.timeline = soundTimelineOf(input, stream, boxes, precision);
    describePackets(input, stream, facts);
    return facts;
}

SoundFactsPtr readSoundFacts(const NSURL& url, std::optional<int> streamIndex, NSError* error)
{
    const InputPtr input = openMediaFile(url, true, error);
    if (!input)
        return nullptr;
    const AVStream* stream = soundStreamOf(*input, streamIndex);
    if (!stream) {
        failNoSound(error, url, localized("has no sound track"));
        return nullptr;
    }
    auto facts = soundFactsOf(*input, *stream, url, readMovieBoxes(*bytesOf(*input)), TimelinePrecision::ByScanning);
    if (facts.timeline.length() <= 0) {
        failNoSound(error, url, localized("has a sound track without sound"));
        return nullptr;
    }
    return std::make_shared<const SoundFacts>(std::move(facts));
}

} // namespace platform
