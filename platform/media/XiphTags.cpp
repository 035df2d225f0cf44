#include "platform/media/XiphTags.h"

#include "platform/foundation/NSData.h"
#include "platform/bytes/ByteReader.h"
#include "platform/media/TagText.h"

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace platform {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr std::string_view kPictureKey = "METADATA_BLOCK_PICTURE";

// Blocks of FLAC.
constexpr int kCommentBlock = 4;
constexpr int kPictureBlock = 6;
constexpr int kLastBlock = 0x80;
constexpr int kMaxBlocks = 1024;

/// Pages to look through for comments: gigabytes, if each is as long as it can be.
constexpr int kMaxPages = 1 << 16;

std::string_view charactersOf(Bytes bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

bool startsWith(Bytes bytes, std::string_view start)
{
    return charactersOf(bytes).starts_with(start);
}

/// Takes bytes from the front; fewer than asked for are none.
std::optional<Bytes> taken(Bytes& bytes, uint64_t count)
{
    if (count > bytes.size())
        return std::nullopt;
    const Bytes front = bytes.first(static_cast<size_t>(count));
    bytes = bytes.subspan(static_cast<size_t>(count));
    return front;
}

/// Bytes with their length in front, of the given order.
std::optional<Bytes> takenWithLength(Bytes& bytes, std::optional<uint32_t> (*number)(Bytes, size_t))
{
    const auto length = number(bytes, 0);
    if (!length)
        return std::nullopt;
    taken(bytes, 4);
    return taken(bytes, *length);
}

/// Kind, type of file, description, size, colours, picture.
void readPicture(Bytes block, TagItems& items)
{
    if (!taken(block, 4))
        return;
    const auto type = takenWithLength(block, bigEndian32);
    if (!type || charactersOf(*type) == "-->" || !takenWithLength(block, bigEndian32) || !taken(block, 16))
        return;
    const auto picture = takenWithLength(block, bigEndian32);
    if (picture && !picture->empty())
        items.addData(kAVMetadataKeySpaceVorbisComment, kPictureKey, *picture);
}

/// What stands for bytes in 64 characters; others end it.
NSData fromBase64(Bytes text)
{
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::array<int, 256> values{};
    values.fill(-1);
    for (size_t i = 0; i < kDigits.size(); ++i)
        values[static_cast<uint8_t>(kDigits[i])] = static_cast<int>(i);
    NSData bytes;
    bytes.reserve(text.size() / 4 * 3);
    uint32_t bits = 0;
    int count = 0;
    for (const uint8_t character : text) {
        if (values[character] < 0)
            break;
        bits = bits << 6 | static_cast<uint32_t>(values[character]);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes.push_back(static_cast<uint8_t>(bits >> count));
        }
    }
    return bytes;
}

/// The program's name, then texts of the form "KEY=value".
void readComments(Bytes block, TagItems& items)
{
    if (!takenWithLength(block, littleEndian32) || !taken(block, 4))
        return;
    while (const auto comment = takenWithLength(block, littleEndian32)) {
        const auto equals = std::find(comment->begin(), comment->end(), '=');
        if (equals == comment->end())
            continue;
        const auto keySize = static_cast<size_t>(equals - comment->begin());
        std::string key(charactersOf(comment->first(std::min<size_t>(keySize, 64))));
        std::transform(key.begin(), key.end(), key.begin(),
                       [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
        const Bytes value = comment->subspan(keySize + 1);
        if (!items.wants(kAVMetadataKeySpaceVorbisComment, key))
            continue;
        if (key == kPictureKey)
            readPicture(fromBase64(value), items);
        else
            items.addText(kAVMetadataKeySpaceVorbisComment, key, textFromUTF8(value));
    }
}

/// The packets of one stream at the start of an Ogg file.
class OggPackets final {
public:
    explicit OggPackets(const BoxFile& file) : file_(file) {}

    /// Joins the next packet of the first stream of sound; nothing at the end, or if it is broken or too long.
    std::optional<NSData> next()
    {
        NSData packet;
        for (;;) {
            while (lacing_ < segmentCount_) {
                const uint8_t size = segments_[lacing_++];
                const size_t before = packet.size();
                if (before + size > static_cast<size_t>(TagItems::kMaxBytes))
                    return std::nullopt;
                packet.resize(before + size);
                if (!file_.read(offset_, std::span(packet).subspan(before)))
                    return std::nullopt;
                offset_ += size;
                if (size < 255)
                    return packet;
            }
            if (!findPage())
                return std::nullopt;
        }
    }

private:
    /// Goes to the next page of the stream, or to the first page of one with sound.
    bool findPage()
    {
        constexpr int64_t kHeaderSize = 27;
        constexpr uint8_t kStreamBegins = 0x02;
        for (; pagesLeft_ > 0; --pagesLeft_) {
            std::array<uint8_t, kHeaderSize> header{};
            if (!file_.read(nextPage_, header) || !startsWith(header, "OggS"))
                return false;
            segmentCount_ = header[26];
            lacing_ = 0;
            if (!file_.read(nextPage_ + kHeaderSize, std::span(segments_).first(segmentCount_)))
                return false;
            offset_ = nextPage_ + kHeaderSize + static_cast<int64_t>(segmentCount_);
            nextPage_ = offset_;
            for (size_t i = 0; i < segmentCount_; ++i)
                nextPage_ += segments_[i];
            const uint32_t serial = *bigEndian32(header, 14);
            if (!serial_ && header[5] & kStreamBegins && isSound())
                serial_ = serial;
            if (serial_ == serial) {
                --pagesLeft_;
                return true;
            }
        }
        return false;
    }

    bool isSound() const
    {
        std::array<uint8_t, 8> start{};
        if (!file_.read(offset_, start))
            return false;
        return startsWith(start, "\x01vorbis") || startsWith(start, "OpusHead") || startsWith(start, "Speex   ") ||
               startsWith(start, "\x7F"
                                 "FLAC");
    }

    const BoxFile& file_;
    int pagesLeft_ = kMaxPages;
    int64_t nextPage_ = 0;
    std::optional<uint32_t> serial_;
    // Of the page at hand: lengths of its segments, and where the next one lies.
    std::array<uint8_t, 255> segments_{};
    size_t segmentCount_ = 0;
    size_t lacing_ = 0;
    int64_t offset_ = 0;
};

} // namespace

void readFLACTags(const BoxFile& file, int64_t offset, TagItems& items)
{
    for (int i = 0; i < kMaxBlocks; ++i) {
        std::array<uint8_t, 4> header{};
        if (!file.read(offset, header))
            return;
        const auto size = static_cast<int64_t>(bigEndianNumber(std::span(header).last(3)));
        const int type = header[0] & ~kLastBlock;
        offset += 4;
        if (size > file.size() - offset)
            return;
        if (type == kCommentBlock || type == kPictureBlock) {
            NSData block(static_cast<size_t>(size));
            if (!file.read(offset, block))
                return;
            type == kCommentBlock ? readComments(block, items) : readPicture(block, items);
        }
        if (header[0] & kLastBlock)
            return;
        offset += size;
    }
}

void readOggTags(const BoxFile& file, TagItems& items)
{
    OggPackets packets(file);
    const auto head = packets.next();
    if (!head)
        return;
    if (startsWith(*head, "\x7F"
                          "FLAC")) {
        for (int i = 0; i < kMaxBlocks; ++i) {
            const auto block = packets.next();
            if (!block || block->size() < 4)
                return;
            const int type = (*block)[0] & ~kLastBlock;
            if (type == kCommentBlock)
                readComments(Bytes(*block).subspan(4), items);
            if (type == kPictureBlock)
                readPicture(Bytes(*block).subspan(4), items);
            if ((*block)[0] & kLastBlock)
                return;
        }
        return;
    }
    const auto comments = packets.next();
    if (!comments)
        return;
    Bytes block = *comments;
    for (const std::string_view start : {"\x03vorbis", "OpusTags"})
        if (startsWith(block, start))
            block = block.subspan(start.size());
    readComments(block, items);
}

} // namespace platform
