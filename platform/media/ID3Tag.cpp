#include "platform/media/ID3Tag.h"

#include "platform/media/TagText.h"

#include <algorithm>
#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include <gio/gio.h>

namespace platform {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr int64_t kHeaderSize = 10;
constexpr int64_t kID3v1Size = 128;

// Of a tag.
constexpr uint8_t kUnsynchronised = 0x80;
constexpr uint8_t kHasExtendedHeader = 0x40;
constexpr uint8_t kHasFooter = 0x10;

/// Names of version 2.2 and what they are called since; only those that stand for something common.
constexpr std::pair<std::string_view, std::string_view> kShortNames[] = {
    {"TT2", "TIT2"}, {"TAL", "TALB"}, {"TP1", "TPE1"}, {"TOA", "TOPE"}, {"TCM", "TCOM"}, {"TT1", "TIT1"},
    {"TT3", "TIT3"}, {"TPB", "TPUB"}, {"TCO", "TCON"}, {"TCR", "TCOP"}, {"TXT", "TEXT"}, {"PIC", "APIC"},
};

/// Seven bits of each byte; nothing if an eighth is set.
std::optional<uint32_t> syncSafeNumber(Bytes bytes)
{
    uint32_t value = 0;
    for (const uint8_t byte : bytes.first(4)) {
        if (byte & 0x80)
            return std::nullopt;
        value = value << 7 | byte;
    }
    return value;
}

/// Takes out the zeros that were put behind bytes of all ones, so that nothing looked like the start of sound.
NSData synchronised(Bytes bytes)
{
    NSData result;
    result.reserve(bytes.size());
    for (size_t i = 0; i < bytes.size(); ++i) {
        result.push_back(bytes[i]);
        if (bytes[i] == 0xFF && i + 1 < bytes.size() && bytes[i + 1] == 0)
            ++i;
    }
    return result;
}

/// Whether the zeros were put in at all: some programs only say so.
bool isUnsynchronised(Bytes bytes)
{
    for (size_t i = 0; i + 1 < bytes.size(); ++i)
        if (bytes[i] == 0xFF && bytes[i + 1] >= 0xE0)
            return false;
    return true;
}

/// Unpacks a zlib stream to at most as many bytes as a tag may have; nothing if it is broken or longer.
std::optional<NSData> inflated(Bytes bytes)
{
    struct Unref {
        void operator()(GZlibDecompressor* object) const { g_object_unref(object); }
    };
    const std::unique_ptr<GZlibDecompressor, Unref> unpacker(g_zlib_decompressor_new(G_ZLIB_COMPRESSOR_FORMAT_ZLIB));
    NSData result;
    std::array<uint8_t, 16384> buffer{};
    while (result.size() <= static_cast<size_t>(TagItems::kMaxBytes)) {
        gsize consumed = 0;
        gsize made = 0;
        GError* error = nullptr;
        const GConverterResult state =
            g_converter_convert(G_CONVERTER(unpacker.get()), bytes.data(), bytes.size(), buffer.data(), buffer.size(),
                                G_CONVERTER_INPUT_AT_END, &consumed, &made, &error);
        if (state == G_CONVERTER_ERROR) {
            g_clear_error(&error);
            return std::nullopt;
        }
        result.insert(result.end(), buffer.begin(), buffer.begin() + static_cast<ptrdiff_t>(made));
        bytes = bytes.subspan(consumed);
        if (state == G_CONVERTER_FINISHED)
            return result;
        if (consumed == 0 && made == 0)
            return std::nullopt;
    }
    return std::nullopt;
}

bool isNameCharacter(uint8_t byte)
{
    return (byte >= 'A' && byte <= 'Z') || (byte >= '0' && byte <= '9');
}

/// The frames of one tag.
class Frames final {
public:
    Frames(Bytes body, int version, bool isUnsynchronised)
        : body_(body), version_(version), isUnsynchronised_(isUnsynchronised), headerSize_(version == 2 ? 6 : 10)
    {}

    void read(TagItems& items) const
    {
        size_t offset = 0;
        while (startsFrame(offset)) {
            const Bytes header = body_.subspan(offset, headerSize_);
            const size_t size = sizeOfFrame(offset);
            const size_t begin = offset + headerSize_;
            if (size > body_.size() - begin)
                return;
            const std::string_view name = nameOf(header);
            if (items.wants(kAVMetadataKeySpaceID3, name))
                readFrame(name, header, body_.subspan(begin, size), items);
            offset = begin + size;
        }
    }

private:
    /// Not padding, and not what lies behind a size that is wrong.
    bool startsFrame(size_t offset) const
    {
        if (offset > body_.size() || body_.size() - offset < headerSize_)
            return false;
        const Bytes name = body_.subspan(offset, version_ == 2 ? 3 : 4);
        // Version 2.3 with names of 2.2, as some programs have written.
        return std::all_of(name.begin(), name.begin() + 3, isNameCharacter) &&
               (name.size() == 3 || isNameCharacter(name[3]) || name[3] == 0);
    }

    /// As `startsFrame`, or the end of the frames.
    bool isPlausible(uint64_t offset) const
    {
        if (offset >= body_.size())
            return offset == body_.size();
        return body_[static_cast<size_t>(offset)] == 0 || startsFrame(static_cast<size_t>(offset));
    }

    size_t sizeOfFrame(size_t offset) const
    {
        const Bytes header = body_.subspan(offset, headerSize_);
        if (version_ == 2)
            return static_cast<size_t>(bigEndianNumber(header.subspan(3, 3)));
        const auto plain = static_cast<uint32_t>(bigEndianNumber(header.subspan(4, 4)));
        const auto safe = syncSafeNumber(header.subspan(4, 4));
        if (!safe)
            return plain;
        // Version 2.4 counts in seven bits, 2.3 in eight; programs have mixed that up.
        const uint32_t right = version_ == 4 ? *safe : plain;
        const uint32_t wrong = version_ == 4 ? plain : *safe;
        const uint64_t begin = offset + headerSize_;
        return right != wrong && !isPlausible(begin + right) && isPlausible(begin + wrong) ? wrong : right;
    }

    /// As version 2.3 calls it; empty for frames that nobody asks for.
    std::string_view nameOf(Bytes header) const
    {
        const std::string_view name(reinterpret_cast<const char*>(header.data()), 4);
        if (version_ != 2 && name[3] != 0)
            return name;
        for (const auto& [shortName, longName] : kShortNames)
            if (shortName == name.substr(0, 3))
                return longName;
        return {};
    }

    void readFrame(std::string_view name, Bytes header, Bytes content, TagItems& items) const
    {
        NSData plain;
        bool isCompressed = false;
        bool isUnsynchronised = false;
        size_t extra = 0;
        if (version_ == 3) {
            // Encrypted.
            if (header[9] & 0x40)
                return;
            isCompressed = header[9] & 0x80;
            extra = (isCompressed ? 4 : 0) + (header[9] & 0x20 ? 1 : 0);
        } else if (version_ == 4) {
            if (header[9] & 0x04)
                return;
            isCompressed = header[9] & 0x08;
            isUnsynchronised = isUnsynchronised_ || header[9] & 0x02;
            extra = (header[9] & 0x40 ? 1 : 0) + (header[9] & 0x01 ? 4 : 0);
        }
        if (extra > content.size())
            return;
        content = content.subspan(extra);
        if (isUnsynchronised && platform::isUnsynchronised(content)) {
            plain = synchronised(content);
            content = plain;
        }
        if (isCompressed) {
            auto unpacked = inflated(content);
            if (!unpacked)
                return;
            plain = std::move(*unpacked);
            content = plain;
        }
        if (name == kAVMetadataID3MetadataKeyAttachedPicture)
            readPicture(content, items);
        else
            items.addText(kAVMetadataKeySpaceID3, name, textOf(content));
    }

    static std::string textOf(Bytes content)
    {
        if (content.empty())
            return {};
        const Bytes text = content.subspan(1);
        switch (content[0]) {
        case 1:
            return textFromMarkedUTF16(text);
        case 2:
            return textFromUTF16BigEndian(text);
        case 3:
            return textFromUTF8(text);
        default:
            return textFromLatin1(text);
        }
    }

    /// Encoding, type of file, kind of picture, description, picture.
    void readPicture(Bytes content, TagItems& items) const
    {
        if (content.empty())
            return;
        const bool isWide = content[0] == 1 || content[0] == 2;
        content = content.subspan(1);
        size_t typeSize = 3;
        if (version_ != 2) {
            const auto nul = std::find(content.begin(), content.end(), 0);
            typeSize = static_cast<size_t>(nul - content.begin());
        }
        // The type's end, where it has one, and the kind.
        const size_t before = typeSize + (version_ == 2 ? 1 : 2);
        if (before > content.size())
            return;
        // An address in place of a picture.
        if (typeSize == 3 && std::equal(content.begin(), content.begin() + 3, "-->"))
            return;
        content = content.subspan(before);
        const size_t step = isWide ? 2 : 1;
        for (size_t i = 0; i + step <= content.size(); i += step) {
            if (content[i] != 0 || (isWide && content[i + 1] != 0))
                continue;
            if (const Bytes picture = content.subspan(i + step); !picture.empty())
                items.addData(kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyAttachedPicture, picture);
            return;
        }
    }

    const Bytes body_;
    const int version_;
    const bool isUnsynchronised_;
    const size_t headerSize_;
};

/// Length of the extended header, which tells nothing that is needed.
size_t extendedHeaderSize(Bytes body, int version)
{
    if (body.size() < 4 || (version == 3 && std::all_of(body.begin(), body.begin() + 4, isNameCharacter)))
        return 0;
    const uint64_t size = version == 4 ? syncSafeNumber(body).value_or(UINT32_MAX) : bigEndianNumber(body.first(4)) + 4;
    return size <= body.size() ? static_cast<size_t>(size) : 0;
}

} // namespace

std::optional<int64_t> readID3v2Tag(const BoxFile& file, int64_t offset, int64_t limit, TagItems& items)
{
    std::array<uint8_t, kHeaderSize> header{};
    if (limit - offset < kHeaderSize || !file.read(offset, header) ||
        !std::equal(header.begin(), header.begin() + 3, "ID3"))
        return std::nullopt;
    const int version = header[3];
    const uint8_t flags = header[5];
    const auto claimed = syncSafeNumber(std::span(header).subspan(6, 4));
    if (version == 0xFF || header[4] == 0xFF || !claimed)
        return std::nullopt;
    const int64_t begin = offset + kHeaderSize;
    const int64_t size = std::min<int64_t>(*claimed, limit - begin);
    const int64_t end = std::min(begin + size + (version == 4 && flags & kHasFooter ? kHeaderSize : 0), limit);
    // The same flag of version 2.2 means a compression that was never settled.
    if (version < 2 || version > 4 || (version == 2 && flags & kHasExtendedHeader))
        return end;

    NSData body(static_cast<size_t>(std::min(size, TagItems::kMaxBytes)));
    if (!file.read(begin, body))
        return end;
    if (version < 4 && flags & kUnsynchronised)
        body = synchronised(body);
    Bytes frames = body;
    if (flags & kHasExtendedHeader)
        frames = frames.subspan(extendedHeaderSize(frames, version));
    Frames(frames, version, flags & kUnsynchronised).read(items);
    return end;
}

void readAppendedID3v2Tag(const BoxFile& file, TagItems& items)
{
    std::array<uint8_t, kHeaderSize> footer{};
    for (const int64_t end : {file.size(), file.size() - kID3v1Size}) {
        if (end < 2 * kHeaderSize || !file.read(end - kHeaderSize, footer) ||
            !std::equal(footer.begin(), footer.begin() + 3, "3DI"))
            continue;
        const auto size = syncSafeNumber(std::span(footer).subspan(6, 4));
        if (size && *size <= end - 2 * kHeaderSize)
            readID3v2Tag(file, end - 2 * kHeaderSize - *size, end, items);
        return;
    }
}

void readID3v1Tag(const BoxFile& file, TagItems& items)
{
    std::array<uint8_t, kID3v1Size> tag{};
    if (file.size() < kID3v1Size || !file.read(file.size() - kID3v1Size, tag) ||
        !std::equal(tag.begin(), tag.begin() + 3, "TAG"))
        return;
    size_t offset = 3;
    for (const std::string_view key : {kAVMetadataID3MetadataKeyTitleDescription,
                                       kAVMetadataID3MetadataKeyLeadPerformer, kAVMetadataID3MetadataKeyAlbumTitle}) {
        constexpr size_t kFieldSize = 30;
        std::string text = textFromLatin1(std::span(tag).subspan(offset, kFieldSize));
        text.erase(text.find_last_not_of(' ') + 1);
        if (!text.empty() && !items.has(kAVMetadataKeySpaceID3, key))
            items.addText(kAVMetadataKeySpaceID3, key, std::move(text));
        offset += kFieldSize;
    }
}

} // namespace platform
