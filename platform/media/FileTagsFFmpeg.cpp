#include "platform/media/FileTags.h"

#include "platform/bytes/BoxWalker.h"
#include "platform/bytes/ByteReader.h"
#include "platform/foundation/NSString.h"
#include "platform/libav/MediaInput.h"

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/dict.h>
}

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace platform {
namespace {

/// Other: with common keys alone.
enum class TagKind { ID3, Movie, Other };

/// What a name in the library's dictionary stands for; a key is empty where tags of its kind have none that is common.
struct Tag {
    const char* name;
    std::string_view commonKey;
    std::string_view id3Key = {};
    std::string_view iTunesKey = {};
};

// Band, conductor and remixer (TPE2 to TPE4) stand for nothing common, and the original artist is one who contributed.
constexpr Tag kTags[] = {
    {"title", kAVMetadataCommonKeyTitle, kAVMetadataID3MetadataKeyTitleDescription,
     kAVMetadataiTunesMetadataKeySongName},
    {"album", kAVMetadataCommonKeyAlbumName, kAVMetadataID3MetadataKeyAlbumTitle, kAVMetadataiTunesMetadataKeyAlbum},
    {"artist", kAVMetadataCommonKeyArtist, kAVMetadataID3MetadataKeyLeadPerformer, kAVMetadataiTunesMetadataKeyArtist},
    {"encoder", "software", {}, "\xA9too"},
    {"composer", "creator", "TCOM"},
    {"publisher", "publisher", "TPUB"},
    {"genre", "type", "TCON"},
    {"copyright", "copyrights", "TCOP"},
    {"grouping", "subject", "TIT1"},
};

// Frames of ID3 that the library has no name for; those of three letters are of version 2.2.
constexpr Tag kFrames[] = {
    {"TOPE", "contributor", kAVMetadataID3MetadataKeyOriginalArtist},
    {"TOA", "contributor", kAVMetadataID3MetadataKeyOriginalArtist},
    {"TT1", "subject", "TIT1"},
    {"TIT3", "description", "TIT3"},
    {"TT3", "description", "TIT3"},
    {"TEXT", "author", "TEXT"},
    {"TXT", "author", "TEXT"},
    {"TCM", "creator", "TCOM"},
    {"TPB", "publisher", "TPUB"},
    {"TCR", "copyrights", "TCOP"},
};

constexpr Tag kQuickTimeKeys[] = {
    {kAVMetadataQuickTimeMetadataKeyTitle.data(), kAVMetadataCommonKeyTitle},
    {kAVMetadataQuickTimeMetadataKeyAlbum.data(), kAVMetadataCommonKeyAlbumName},
    {kAVMetadataQuickTimeMetadataKeyArtist.data(), kAVMetadataCommonKeyArtist},
};

/// In whatever letters the name is written; null if it stands for nothing common.
template <size_t count>
const Tag* tagNamed(const char* name, const Tag (&tags)[count])
{
    const auto found = std::find_if(std::begin(tags), std::end(tags),
                                    [&](const Tag& tag) { return av_strcasecmp(name, tag.name) == 0; });
    return found == std::end(tags) ? nullptr : found;
}

TagKind kindOf(std::string_view format)
{
    if (format == "mp3" || format == "aac")
        return TagKind::ID3;
    return format.starts_with("mov,") ? TagKind::Movie : TagKind::Other;
}

/// Tags that do not tell their characters come as they are; those of old programs are Latin-1. Nothing for UTF-16, of
/// which the library hands on what stands before the first zero.
std::optional<std::string> textOf(std::string_view bytes)
{
    if (bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE"))
        return std::nullopt;
    if (isValidUTF8(bytes))
        return std::string(bytes);
    std::string text;
    for (const char byte : bytes) {
        const auto character = static_cast<unsigned char>(byte);
        if (character >= 0x80)
            text += static_cast<char>(0xC0 | character >> 6);
        text += static_cast<char>(character < 0x80 ? character : 0x80 | (character & 0x3F));
    }
    return text;
}

void add(AVMetadataItemList& items, std::string_view keySpace, std::string_view key, std::string_view commonKey,
         AVMetadataItem::Value value)
{
    items.push_back(std::make_shared<AVMetadataItem>(
        AVMetadataItem{std::string(keySpace), std::string(key), std::string(commonKey), std::move(value)}));
}

void addText(AVMetadataItemList& items, TagKind kind, const char* name, std::string_view value)
{
    const auto text = textOf(value);
    if (!text)
        return;
    if (const Tag* const key = tagNamed(name, kQuickTimeKeys))
        return add(items, kAVMetadataKeySpaceQuickTimeMetadata, key->name, key->commonKey, *text);
    if (const Tag* const frame = tagNamed(name, kFrames))
        return add(items, kAVMetadataKeySpaceID3, frame->id3Key, frame->commonKey, *text);
    const Tag* const tag = tagNamed(name, kTags);
    if (!tag)
        return;
    if (kind == TagKind::Other)
        add(items, kAVMetadataKeySpaceCommon, tag->commonKey, tag->commonKey, *text);
    else if (kind == TagKind::ID3 && !tag->id3Key.empty())
        add(items, kAVMetadataKeySpaceID3, tag->id3Key, tag->commonKey, *text);
    else if (kind == TagKind::Movie && !tag->iTunesKey.empty())
        add(items, kAVMetadataKeySpaceiTunes, tag->iTunesKey, tag->commonKey, *text);
}

void addTexts(AVMetadataItemList& items, TagKind kind, const AVDictionary* dictionary)
{
    const AVDictionaryEntry* entry = nullptr;
    while ((entry = av_dict_get(dictionary, "", entry, AV_DICT_IGNORE_SUFFIX)))
        addText(items, kind, entry->key, entry->value);
}

void addCover(AVMetadataItemList& items, TagKind kind, const AVPacket& picture)
{
    constexpr std::string_view kArtwork = kAVMetadataCommonKeyArtwork;
    NSData data(picture.data, picture.data + picture.size);
    // One that is cut off is no picture.
    if (data.empty() || picture.flags & AV_PKT_FLAG_CORRUPT)
        return;
    if (kind == TagKind::ID3)
        add(items, kAVMetadataKeySpaceID3, kAVMetadataID3MetadataKeyAttachedPicture, kArtwork, std::move(data));
    else if (kind == TagKind::Movie)
        add(items, kAVMetadataKeySpaceiTunes, kAVMetadataiTunesMetadataKeyCoverArt, kArtwork, std::move(data));
    else
        add(items, kAVMetadataKeySpaceCommon, kArtwork, kArtwork, std::move(data));
}

/// The chunk of a WAV file that holds an ID3 tag.
std::optional<Box> chunkOfID3(const ByteSource& file)
{
    constexpr int kMaxChunks = 4096;
    std::array<uint8_t, 8> header{};
    int64_t offset = 12;
    for (int i = 0; i < kMaxChunks && file.read(offset, header); ++i) {
        const uint32_t type = *bigEndian32(header, 0);
        const int64_t size = *littleEndian32(header, 4);
        const int64_t begin = offset + static_cast<int64_t>(header.size());
        if (type == fourCharacterCode("id3 ") || type == fourCharacterCode("ID3 "))
            return Box{type, begin, std::min(begin + size, file.size())};
        // Chunks begin at even places.
        offset = begin + size + size % 2;
    }
    return std::nullopt;
}

/// The library drops the texts of a WAV file's ID3 tag where the file has a list of texts too, were it only the name
/// of the program that wrote it.
void addTextsOfID3Chunk(AVMetadataItemList& items, const AVFormatContext& input)
{
    constexpr int64_t kMaxTagBytes = int64_t{64} << 20;
    const auto chunk = chunkOfID3(*bytesOf(input));
    if (!chunk || chunk->size() > kMaxTagBytes)
        return;
    if (const InputPtr tag = openID3Tag(input, chunk->begin, chunk->end))
        addTexts(items, TagKind::ID3, tag->metadata);
}

} // namespace

AVMetadataItemList readFileTags(const NSURL& url, FileBytesPtr opened)
{
    const InputPtr input = openMediaHead(url, std::move(opened));
    if (!input)
        return {};
    AVMetadataItemList items;
    const std::string_view format(input->iformat->name);
    const TagKind kind = kindOf(format);
    if (format == "wav")
        addTextsOfID3Chunk(items, *input);
    AVMetadataItemList texts;
    addTexts(texts, kind, input->metadata);
    std::erase_if(texts, [&](const AVMetadataItemPtr& text) {
        return std::ranges::find(items, text->commonKey, [](const auto& item) { return item->commonKey; }) !=
               items.end();
    });
    items.insert(items.end(), texts.begin(), texts.end());
    for (unsigned i = 0; i < input->nb_streams; ++i) {
        const AVStream& stream = *input->streams[i];
        if (stream.disposition & AV_DISPOSITION_ATTACHED_PIC)
            addCover(items, kind, stream.attached_pic);
        // In Ogg each stream has tags of its own.
        else if (format == "ogg" && stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
            addTexts(items, kind, stream.metadata);
    }
    return items;
}

} // namespace platform
