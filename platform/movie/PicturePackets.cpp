#include "platform/movie/PicturePackets.h"

#include "platform/bytes/ByteReader.h"
#include "platform/bytes/ByteSource.h"
#include "platform/foundation/LocalizedText.h"
#include "platform/libav/MediaInput.h"

#include <algorithm>
#include <array>
#include <span>
#include <utility>

extern "C" {
#include <libavformat/avformat.h>
}

namespace platform {

namespace {

/// As long as the lengths in whose place they stand.
constexpr std::array<uint8_t, 4> kStartCode{0, 0, 0, 1};

std::span<const uint8_t> headerOf(const AVCodecParameters& parameters)
{
    return {parameters.extradata, static_cast<size_t>(std::max(0, parameters.extradata_size))};
}

/// How many bytes a length takes in the pictures of a movie, which have these instead of start codes; 0 for codecs
/// that know neither.
size_t bytesOfLengths(const AVCodecParameters& parameters)
{
    // Where a decoder's header keeps it, less one, in its two lowest bits.
    constexpr size_t kPlaceInH264 = 4;
    constexpr size_t kPlaceInHEVC = 21;
    const bool isH264 = parameters.codec_id == AV_CODEC_ID_H264;
    if (!isH264 && parameters.codec_id != AV_CODEC_ID_HEVC)
        return 0;
    const auto header = headerOf(parameters);
    const size_t place = isH264 ? kPlaceInH264 : kPlaceInHEVC;
    return header.size() > place ? (header[place] & 3u) + 1 : 1;
}

/// @return false if the lengths do not fill the packet
bool putStartCodes(std::span<uint8_t> packet)
{
    while (packet.size() > kStartCode.size()) {
        const uint64_t length = bigEndianNumber(packet.first(kStartCode.size()));
        if (length > packet.size() - kStartCode.size())
            return false;
        std::ranges::copy(kStartCode, packet.begin());
        packet = packet.subspan(kStartCode.size() + length);
    }
    return packet.empty();
}

class PicturePacketsFFmpeg final : public PicturePackets {
public:
    explicit PicturePacketsFFmpeg(const NSURL& url) : path_(url.path()), file_(std::make_shared<const FileBytes>(path_))
    {}

    bool open(const NSURL& url, NSError* error)
    {
        input_ = openMovieIndex(file_, url, error);
        if (!input_)
            return false;
        const std::span<AVStream* const> streams(input_->streams, input_->nb_streams);
        const auto isPicture = [](const AVStream* stream) {
            return stream->codecpar->codec_type == AVMEDIA_TYPE_VIDEO;
        };
        if (std::ranges::count_if(streams, isPicture) != 1)
            return refuse(error);
        stream_ = *std::ranges::find_if(streams, isPicture);
        lengthBytes_ = bytesOfLengths(*stream_->codecpar);
        return lengthBytes_ == 0 || lengthBytes_ == kStartCode.size() || refuse(error);
    }

    size_t count() const override
    {
        return static_cast<size_t>(std::max(0, avformat_index_get_entries_count(stream_)));
    }

    bool isAlike(const PicturePackets& other) const override
    {
        const AVCodecParameters& ours = *stream_->codecpar;
        const AVCodecParameters& theirs = *static_cast<const PicturePacketsFFmpeg&>(other).stream_->codecpar;
        return ours.codec_tag == theirs.codec_tag && ours.width == theirs.width && ours.height == theirs.height &&
               std::ranges::equal(headerOf(ours), headerOf(theirs));
    }

    std::optional<std::vector<uint8_t>> packet(size_t index, NSError* error) override
    {
        // Its length as libav keeps it in an index is not negative, and at most a gigabyte.
        const AVIndexEntry* entry =
            index < count() ? avformat_index_get_entry(stream_, static_cast<int>(index)) : nullptr;
        if (entry && entry->pos >= 0 && entry->size <= file_->size() - entry->pos) {
            std::vector<uint8_t> bytes(static_cast<size_t>(entry->size));
            if (file_->read(entry->pos, bytes) && (lengthBytes_ == 0 || putStartCodes(bytes)))
                return bytes;
        }
        fail(error, kAVFoundationErrorDomain, kAVErrorFileFailedToParse, localized("{} is cut off", {path_}));
        return std::nullopt;
    }

private:
    bool refuse(NSError* error) const
    {
        return fail(error, kAVFoundationErrorDomain, kAVErrorFileFormatNotRecognized,
                    localized("{} is no movie that can be read", {path_}));
    }

    const std::string path_;
    const FileBytesPtr file_;
    InputPtr input_;
    AVStream* stream_ = nullptr;
    size_t lengthBytes_ = 0;
};

} // namespace

std::unique_ptr<PicturePackets> PicturePackets::open(const NSURL& url, NSError* error)
{
    auto packets = std::make_unique<PicturePacketsFFmpeg>(url);
    if (!packets->open(url, error))
        return nullptr;
    return packets;
}

} // namespace platform
