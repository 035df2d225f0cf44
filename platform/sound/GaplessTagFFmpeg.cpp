#include "platform/sound/GaplessTag.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/libav/ID3Head.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

#include <algorithm>
#include <array>
#include <cstdio>
#include <initializer_list>
#include <span>
#include <vector>

namespace platform {
namespace {

/// Bytes of the frame of MPEG sound, layer 3, that starts here; 0 if none does.
size_t sizeOfMP3Frame(std::span<const uint8_t> bytes)
{
    if (bytes.size() < 4 || bytes[0] != 0xFF || (bytes[1] & 0xE6) != 0xE2)
        return 0;
    const unsigned version = bytes[1] >> 3 & 3;
    const unsigned bitRateIndex = bytes[2] >> 4;
    const unsigned rateIndex = bytes[2] >> 2 & 3;
    constexpr unsigned kReservedVersion = 1;
    if (version == kReservedVersion || bitRateIndex == 0 || bitRateIndex == 15 || rateIndex == 3)
        return 0;
    // In kbit/s: for version 1, and for the versions of lower rates.
    constexpr std::array<size_t, 15> kBitRates = {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320};
    constexpr std::array<size_t, 15> kLowBitRates = {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
    constexpr std::array<size_t, 3> kSampleRates = {44100, 48000, 32000};
    const bool isVersion1 = version == 3;
    const size_t rate = kSampleRates[rateIndex] / (isVersion1 ? 1 : version == 2 ? 2 : 4);
    const size_t bitRate = 1000 * (isVersion1 ? kBitRates : kLowBitRates)[bitRateIndex];
    return (isVersion1 ? 144 : 72) * bitRate / rate + (bytes[2] >> 1 & 1);
}

bool isAnyOf(std::optional<uint32_t> code, std::initializer_list<uint32_t> codes)
{
    return code && std::ranges::find(codes, *code) != codes.end();
}

/// Where the first frame starts. Noise has what looks like one, but hardly another of its kind right behind it.
std::optional<size_t> firstFrameOfMP3(std::span<const uint8_t> bytes)
{
    for (size_t at = 0; at + 4 <= bytes.size(); ++at) {
        const auto frame = bytes.subspan(at);
        const size_t size = sizeOfMP3Frame(frame);
        if (size == 0 || size + 4 > frame.size() || sizeOfMP3Frame(frame.subspan(size)) == 0)
            continue;
        const bool isAlike =
            (frame[1] & 0xFE) == (frame[size + 1] & 0xFE) && (frame[2] & 0x0C) == (frame[size + 2] & 0x0C);
        if (isAlike)
            return at;
    }
    return std::nullopt;
}

} // namespace

std::optional<GaplessTag> gaplessTagOfMP3(const FileBytes& file)
{
    const int64_t start = endOfID3Tags(file);
    std::vector<uint8_t> bytes(static_cast<size_t>(std::clamp<int64_t>(file.size() - start, 0, 1 << 16)));
    if (!file.read(start, bytes))
        return std::nullopt;

    const auto first = firstFrameOfMP3(bytes);
    if (!first)
        return std::nullopt;
    const size_t frame = *first;
    const bool isMPEG1 = (bytes[frame + 1] & 0x18) == 0x18;
    const bool isMono = (bytes[frame + 3] & 0xC0) == 0xC0;
    const size_t sideInformation = isMPEG1 ? (isMono ? 17 : 32) : (isMono ? 9 : 17);
    const size_t tag = frame + 4 + sideInformation;
    if (!isAnyOf(bigEndian32(bytes, tag), {fourCharacterCode("Xing"), fourCharacterCode("Info")}))
        return std::nullopt;

    const uint32_t flags = bigEndian32(bytes, tag + 4).value_or(0);
    size_t field = tag + 8;
    int64_t frames = 0;
    if (flags & 1) {
        frames = bigEndian32(bytes, field).value_or(0);
        field += 4;
    }
    if (flags & 2)
        field += 4;
    if (flags & 4)
        field += 100;
    if (flags & 8)
        field += 4;
    if (field + 24 > bytes.size())
        return std::nullopt;
    // Only these encoders write delay and padding here.
    if (!isAnyOf(bigEndian32(bytes, field),
                 {fourCharacterCode("LAME"), fourCharacterCode("Lavc"), fourCharacterCode("Lavf")}))
        return std::nullopt;
    const auto pads = static_cast<int64_t>(bigEndianNumber(std::span(bytes).subspan(field + 21, 3)));
    const int64_t startPad = pads >> 12;
    const int64_t endPad = pads & 0xFFF;
    // The decoder's own delay comes on top of the encoder's.
    constexpr int64_t kDecoderDelay = 528 + 1;
    const int64_t frameLength = isMPEG1 ? 1152 : 576;
    GaplessTag result{startPad + kDecoderDelay, std::nullopt, start + static_cast<int64_t>(frame), frameLength};
    if (const int64_t length = frames * frameLength - startPad - endPad; length > 0)
        result.length = length;
    return result;
}

std::optional<GaplessTag> gaplessTagOfCAF(const FileBytes& file)
{
    int64_t offset = 8;
    // Chunks before the packet table are few; a file with more is not worth the walk.
    for (int chunk = 0; chunk < 256; ++chunk) {
        std::array<uint8_t, 24> bytes{};
        if (!file.read(offset, std::span(bytes).first(12)))
            return std::nullopt;
        const auto size = static_cast<int64_t>(*bigEndian64(bytes, 4));
        if (bigEndian32(bytes, 0) == fourCharacterCode("pakt")) {
            if (size < 24 || !file.read(offset + 12, bytes))
                return std::nullopt;
            const auto validFrames = static_cast<int64_t>(*bigEndian64(bytes, 8));
            const auto priming = static_cast<int32_t>(*bigEndian32(bytes, 16));
            if (priming < 0 || validFrames <= 0)
                return std::nullopt;
            return GaplessTag{.delay = priming, .length = validFrames};
        }
        if (size < 0 || size > INT64_MAX / 2)
            return std::nullopt;
        offset += 12 + size;
    }
    return std::nullopt;
}

std::optional<GaplessTag> gaplessTagOfMovie(const AVFormatContext& input)
{
    const AVDictionaryEntry* entry = av_dict_get(input.metadata, "iTunSMPB", nullptr, 0);
    if (!entry)
        return std::nullopt;
    unsigned delay = 0;
    unsigned padding = 0;
    unsigned long long length = 0;
    if (std::sscanf(entry->value, "%*x %x %x %llx", &delay, &padding, &length) != 3 || length > INT64_MAX)
        return std::nullopt;
    return GaplessTag{.delay = delay,
                      .length = length > 0 ? std::optional(static_cast<int64_t>(length)) : std::nullopt};
}

} // namespace platform
