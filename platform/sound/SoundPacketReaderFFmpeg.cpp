#include "platform/sound/SoundPacketReader.h"

#include "platform/foundation/LocalizedText.h"
#include "platform/libav/FFmpegHandles.h"
#include "platform/libav/MediaInput.h"

extern "C" {
#include <libavcodec/packet.h>
#include <libavformat/avformat.h>
}

#include <cerrno>
#include <utility>

namespace platform {
namespace {

/// Bytes of the header that every packet of a raw AAC stream starts with; 0 if there is none that can be taken off.
size_t sizeOfADTSHeader(std::span<const uint8_t> packet)
{
    if (packet.size() < 7 || packet[0] != 0xFF || (packet[1] & 0xF6) != 0xF0 || (packet[6] & 0x03) != 0)
        return 0;
    const bool hasChecksum = !(packet[1] & 0x01);
    const size_t size = hasChecksum ? 9 : 7;
    return packet.size() > size ? size : 0;
}

} // namespace

struct SoundPacketReader::State {
    SoundFactsPtr facts;
    InputPtr input;
    AVStream* stream = nullptr;
    PacketPtr packet;
    bool isADTS = false;
    /// Index of the packet that is read next; -1 when not known.
    int64_t next = 0;

    bool reopen(NSError* error)
    {
        input = input ? openMediaFile(bytesOf(*input), facts->url, true, error) : openSound(*facts, error);
        stream = input ? soundStreamOf(*input, facts->streamIndex) : nullptr;
        if (!stream)
            return input ? failNoSound(error, facts->url, localized("has no sound track")) : false;
        isADTS = platform::isADTS(*input);
        next = 0;
        return true;
    }

    bool place(int64_t index)
    {
        if (index == next)
            return true;
        if (isADTS)
            return index > next || reopen(nullptr);
        if (av_seek_frame(input.get(), stream->index, index * facts->packetLength,
                          AVSEEK_FLAG_BACKWARD | AVSEEK_FLAG_ANY) < 0)
            return false;
        next = -1;
        return true;
    }
};

SoundPacketReader::SoundPacketReader(std::unique_ptr<State> state) : state_(std::move(state)) {}
SoundPacketReader::~SoundPacketReader() = default;

std::unique_ptr<SoundPacketReader> SoundPacketReader::open(SoundFactsPtr facts, NSError* error)
{
    auto state = std::make_unique<State>(State{std::move(facts), nullptr, nullptr, PacketPtr(av_packet_alloc())});
    if (!state->packet) {
        failWithErrno(error, ENOMEM, localized("{} could not be opened", {state->facts->url.path()}));
        return nullptr;
    }
    if (!state->reopen(error))
        return nullptr;
    return std::unique_ptr<SoundPacketReader>(new SoundPacketReader(std::move(state)));
}

std::span<const uint8_t> SoundPacketReader::packet(int64_t index)
{
    State& state = *state_;
    if (!state.place(index))
        return {};
    for (;;) {
        av_packet_unref(state.packet.get());
        if (readPacket(*state.input, *state.packet) < 0)
            return {};
        if (state.packet->stream_index != state.stream->index)
            continue;
        int64_t stands = state.next;
        if (!state.isADTS)
            stands = state.packet->pts / state.facts->packetLength;
        state.next = stands + 1;
        if (stands > index)
            return {};
        if (stands < index)
            continue;
        const std::span<const uint8_t> bytes(state.packet->data, static_cast<size_t>(state.packet->size));
        if (!state.isADTS)
            return bytes;
        const size_t header = sizeOfADTSHeader(bytes);
        return header > 0 ? bytes.subspan(header) : std::span<const uint8_t>{};
    }
}

} // namespace platform
