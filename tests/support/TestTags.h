#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/// Tags and files that tests build byte by byte.
namespace testtags {

inline std::string bigEndian(uint64_t value, int count)
{
    std::string bytes;
    for (int i = count - 1; i >= 0; --i)
        bytes.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
    return bytes;
}

inline std::string littleEndian(uint64_t value, int count)
{
    std::string bytes = bigEndian(value, count);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

/// Seven bits in each of four bytes.
inline std::string syncSafe(uint32_t value)
{
    return bigEndian((value & 0x0FE00000) << 3 | (value & 0x001FC000) << 2 | (value & 0x00003F80) << 1 | (value & 0x7F),
                     4);
}

inline std::string zeros(size_t count)
{
    return std::string(count, '\0');
}

/// @name ID3
/// @{
inline std::string id3Frame(int version, const std::string& name, const std::string& content, uint16_t flags = 0)
{
    const auto size = static_cast<uint32_t>(content.size());
    if (version == 2)
        return name + bigEndian(size, 3) + content;
    return name + (version == 4 ? syncSafe(size) : bigEndian(size, 4)) + bigEndian(flags, 2) + content;
}

/// A frame of text in Latin-1.
inline std::string id3Text(int version, const std::string& name, const std::string& text)
{
    return id3Frame(version, name, zeros(1) + text);
}

inline std::string id3Tag(int version, const std::string& frames, uint8_t flags = 0)
{
    return "ID3" + bigEndian(static_cast<uint64_t>(version), 1) + zeros(1) + bigEndian(flags, 1) +
           syncSafe(static_cast<uint32_t>(frames.size())) + frames;
}

inline std::string id3Picture(const std::string& picture, const std::string& type = "image/jpeg")
{
    return zeros(1) + type + zeros(1) + "\x03" + "front" + zeros(1) + picture;
}

inline std::string paddedTo(size_t size, std::string text)
{
    text.resize(size);
    return text;
}

inline std::string id3v1Tag(const std::string& title, const std::string& artist, const std::string& album)
{
    return "TAG" + paddedTo(30, title) + paddedTo(30, artist) + paddedTo(30, album) + zeros(34) + "\xFF";
}

/// Frames of sound as the MP3 format has them: silence at 128 kbit/s and 44.1 kHz.
inline std::string mp3Frames(int count = 4)
{
    std::string frames;
    for (int i = 0; i < count; ++i)
        frames += std::string("\xFF\xFB\x90\xC0", 4) + zeros(413);
    return frames;
}
/// @}

/// @name MPEG-4 and QuickTime
/// @{
inline std::string box(const std::string& type, const std::string& content)
{
    return bigEndian(8 + content.size(), 4) + type + content;
}

/// @param type  1 is UTF-8, 2 UTF-16, 13 JPEG, 14 PNG
inline std::string dataBox(const std::string& value, uint32_t type = 1)
{
    return box("data", bigEndian(type, 4) + zeros(4) + value);
}

inline std::string handlerBox(const std::string& handler)
{
    return box("hdlr", zeros(8) + handler + zeros(13));
}

/// As in a file of iTunes's: moov, udta, meta, ilst.
inline std::string m4aWithItems(const std::string& items)
{
    return box("ftyp", "M4A " + zeros(4)) +
           box("moov", box("udta", box("meta", zeros(4) + handlerBox("mdir") + box("ilst", items))));
}

struct KeyedValue {
    std::string key;
    std::string value;
    uint32_t type = 1;
};

/// As in a QuickTime movie: moov, meta with its keys and their values.
inline std::string quickTimeMeta(const std::vector<KeyedValue>& values)
{
    std::string keys = zeros(4) + bigEndian(values.size(), 4);
    std::string items;
    for (size_t i = 0; i < values.size(); ++i) {
        keys += box("mdta", values[i].key);
        items += box(bigEndian(i + 1, 4), dataBox(values[i].value, values[i].type));
    }
    return box("meta", handlerBox("mdta") + box("keys", keys) + box("ilst", items));
}

inline std::string movieWithKeys(const std::vector<KeyedValue>& values)
{
    return box("ftyp", "qt  " + zeros(4)) + box("moov", quickTimeMeta(values));
}
/// @}

/// @name WAV and AIFF
/// @{
inline std::string littleChunk(const std::string& name, const std::string& content)
{
    return name + littleEndian(content.size(), 4) + content + zeros(content.size() % 2);
}

inline std::string bigChunk(const std::string& name, const std::string& content)
{
    return name + bigEndian(content.size(), 4) + content + zeros(content.size() % 2);
}

/// Of 8 bits, 8 kHz and one channel.
inline std::string wavFormat()
{
    return littleChunk("fmt ", littleEndian(1, 2) + littleEndian(1, 2) + littleEndian(8000, 4) + littleEndian(8000, 4) +
                                   littleEndian(1, 2) + littleEndian(8, 2));
}

inline std::string wavWith(const std::string& chunks)
{
    return littleChunk("RIFF", "WAVE" + wavFormat() + chunks);
}

/// Of 8 bits, 8 kHz and one channel.
inline std::string aiffWith(const std::string& chunks)
{
    const std::string rate = bigEndian(0x400B, 2) + bigEndian(0xFA, 1) + zeros(7);
    return bigChunk("FORM",
                    "AIFF" + bigChunk("COMM", bigEndian(1, 2) + bigEndian(8, 4) + bigEndian(8, 2) + rate) + chunks);
}
/// @}

/// @name Vorbis comments
/// @{
inline std::string vorbisComments(const std::vector<std::string>& comments)
{
    std::string bytes = littleEndian(4, 4) + "test" + littleEndian(comments.size(), 4);
    for (const std::string& comment : comments)
        bytes += littleEndian(comment.size(), 4) + comment;
    return bytes;
}

inline std::string flacPicture(const std::string& picture, const std::string& type = "image/jpeg")
{
    return bigEndian(3, 4) + bigEndian(type.size(), 4) + type + zeros(4) + zeros(16) + bigEndian(picture.size(), 4) +
           picture;
}

inline std::string flacBlock(int type, const std::string& content, bool isLast = false)
{
    return bigEndian(static_cast<uint64_t>(type | (isLast ? 0x80 : 0)), 1) + bigEndian(content.size(), 3) + content;
}

inline std::string flacWith(const std::string& blocks)
{
    // Blocks of 4096 samples at 44.1 kHz, one channel, 16 bits.
    const std::string information =
        bigEndian(4096, 2) + bigEndian(4096, 2) + zeros(6) + bigEndian(0x0AC440F0, 4) + zeros(20);
    return "fLaC" + flacBlock(0, information) + blocks + flacBlock(1, zeros(8), true);
}

/// One page with whole packets.
inline std::string oggPage(uint32_t serial, const std::vector<std::string>& packets, uint8_t flags = 0)
{
    std::string lengths;
    std::string content;
    for (const std::string& packet : packets) {
        lengths += std::string(packet.size() / 255, '\xFF') + bigEndian(packet.size() % 255, 1);
        content += packet;
    }
    return "OggS" + zeros(1) + bigEndian(flags, 1) + zeros(8) + bigEndian(serial, 4) + zeros(8) +
           bigEndian(lengths.size(), 1) + lengths + content;
}
/// @}

} // namespace testtags
