#include "platform/sound/M4AFile.h"

#include "platform/bytes/GivenFile.h"
#include "platform/foundation/LocalizedText.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace platform {
namespace {

/// Bytes of boxes, big-endian. A box's length is filled in when its scope ends.
class BoxWriter final {
public:
    void u8(uint64_t value) { put(value, 1); }
    void u16(uint64_t value) { put(value, 2); }
    void u32(uint64_t value) { put(value, 4); }
    void u64(uint64_t value) { put(value, 8); }
    void zeros(size_t count) { bytes_.append(count, '\0'); }
    void text(std::string_view text) { bytes_.append(text); }
    void bytes(std::span<const uint8_t> values)
    {
        bytes_.append(reinterpret_cast<const char*>(values.data()), values.size());
    }

    template <typename Content>
    void box(std::string_view type, Content content)
    {
        const size_t start = bytes_.size();
        u32(0);
        text(type);
        content();
        const auto size = static_cast<uint32_t>(bytes_.size() - start);
        for (size_t i = 0; i < 4; ++i)
            bytes_[start + i] = static_cast<char>(size >> (24 - 8 * i));
    }

    std::span<const uint8_t> result() const { return {reinterpret_cast<const uint8_t*>(bytes_.data()), bytes_.size()}; }

private:
    void put(uint64_t value, int count)
    {
        for (int i = count; i-- > 0;)
            bytes_.push_back(static_cast<char>(value >> (8 * i)));
    }

    std::string bytes_;
};

constexpr uint32_t kTrackID = 1;
/// Packets that lie together, about a second.
constexpr size_t kPacketsPerChunk = 43;
/// Length of the box of media's header, with room for a 64-bit length.
constexpr int64_t kMediaHeader = 16;

void identityMatrix(BoxWriter& out)
{
    for (const uint32_t value : {0x10000U, 0U, 0U, 0U, 0x10000U, 0U, 0U, 0U, 0x40000000U})
        out.u32(value);
}

/// Length of the box that names the kind of file.
constexpr int64_t kFileTypeSize = 8 + 8 + 12;

void fileTypeBox(BoxWriter& out)
{
    out.box("ftyp", [&] {
        out.text("M4A ");
        out.u32(0);
        out.text("M4A mp42isom");
    });
}

/// Where the media lies, behind its header.
constexpr int64_t kMediaStart = kFileTypeSize + kMediaHeader;

/// What the index tells of a file's only track. Times are in samples.
class Index final {
public:
    Index(const M4AFile::Format& format, const std::vector<uint32_t>& sizes, int64_t mediaBytes, int64_t start,
          int64_t length)
        : format_(format), sizes_(sizes), mediaBytes_(static_cast<uint64_t>(mediaBytes)),
          start_(static_cast<uint64_t>(start)), length_(static_cast<uint64_t>(length)),
          rate_(static_cast<uint32_t>(format.sampleRateHz)), packetLength_(static_cast<uint64_t>(format.packetLength))
    {
        // The last packet is only as long as it plays.
        const int64_t before = (static_cast<int64_t>(sizes.size()) - 1) * format.packetLength;
        lastLength_ = static_cast<uint64_t>(std::clamp<int64_t>(start + length - before, 1, format.packetLength));
        mediaLength_ = static_cast<uint64_t>(before) + lastLength_;
    }

    void write(BoxWriter& out) const
    {
        out.box("moov", [&] {
            out.box("mvhd", [&] { movieHeader(out); });
            out.box("trak", [&] {
                out.box("tkhd", [&] { trackHeader(out); });
                out.box("edts", [&] { out.box("elst", [&] { edit(out); }); });
                out.box("mdia", [&] {
                    out.box("mdhd", [&] { mediaHeader(out); });
                    out.box("hdlr", [&] { handler(out); });
                    out.box("minf", [&] {
                        out.box("smhd", [&] { out.zeros(8); });
                        out.box("dinf", [&] { out.box("dref", [&] { dataReference(out); }); });
                        out.box("stbl", [&] { sampleTables(out); });
                    });
                });
            });
        });
    }

private:
    void movieHeader(BoxWriter& out) const
    {
        out.u32(0x01000000); // version 1: 64-bit times
        out.zeros(16);
        out.u32(rate_);
        out.u64(length_);
        out.u32(0x10000); // rate 1
        out.u16(0x100);   // volume 1
        out.zeros(10);
        identityMatrix(out);
        out.zeros(24);
        out.u32(kTrackID + 1);
    }

    void trackHeader(BoxWriter& out) const
    {
        out.u32(0x01000007); // enabled, in the movie, in its preview
        out.zeros(16);
        out.u32(kTrackID);
        out.u32(0);
        out.u64(length_);
        out.zeros(12);
        out.u16(0x100); // volume 1
        out.u16(0);
        identityMatrix(out);
        out.zeros(8);
    }

    void edit(BoxWriter& out) const
    {
        out.u32(0x01000000);
        out.u32(1);
        out.u64(length_);
        out.u64(start_);
        out.u32(0x10000); // rate 1
    }

    void mediaHeader(BoxWriter& out) const
    {
        out.u32(0x01000000);
        out.zeros(16);
        out.u32(rate_);
        out.u64(mediaLength_);
        out.u16(0x55C4); // language not told
        out.u16(0);
    }

    static void handler(BoxWriter& out)
    {
        out.u32(0);
        out.u32(0);
        out.text("soun");
        out.zeros(12);
        out.text("SoundHandler");
        out.u8(0);
    }

    static void dataReference(BoxWriter& out)
    {
        out.u32(0);
        out.u32(1);
        out.box("url ", [&] { out.u32(1); }); // in this file
    }

    void sampleTables(BoxWriter& out) const
    {
        out.box("stsd", [&] {
            out.u32(0);
            out.u32(1);
            const bool isAAC = format_.codec == SoundCodec::AAC;
            out.box(isAAC ? "mp4a" : "alac", [&] { sampleEntry(out, isAAC); });
        });
        out.box("stts", [&] { durations(out); });
        out.box("stsc", [&] { chunkLengths(out); });
        out.box("stsz", [&] {
            out.u32(0);
            out.u32(0);
            out.u32(sizes_.size());
            for (const uint32_t size : sizes_)
                out.u32(size);
        });
        const bool isLarge = kMediaStart + mediaBytes_ > UINT32_MAX;
        out.box(isLarge ? "co64" : "stco", [&] { chunkPlaces(out, isLarge); });
    }

    void sampleEntry(BoxWriter& out, bool isAAC) const
    {
        out.zeros(6);
        out.u16(1);
        out.zeros(8);
        out.u16(static_cast<uint64_t>(format_.channels));
        out.u16(16);
        out.zeros(4);
        out.u32(rate_ <= 0xFFFF ? rate_ << 16 : 0);
        if (isAAC)
            out.box("esds", [&] { elementaryStream(out); });
        else
            out.bytes(format_.configuration);
    }

    /// Description of the stream in the terms of MPEG-4 systems, where the decoder's configuration lies.
    void elementaryStream(BoxWriter& out) const
    {
        const auto bitRate = static_cast<uint32_t>(static_cast<double>(mediaBytes_) * 8 * rate_ /
                                                   static_cast<double>(std::max<uint64_t>(mediaLength_, 1)));
        const uint32_t largest = sizes_.empty() ? 0 : std::ranges::max(sizes_);
        const size_t configurationSize = format_.configuration.size();
        out.u32(0);
        out.u8(0x03); // stream
        out.u8(3 + 2 + 13 + 2 + configurationSize + 3);
        out.u16(kTrackID);
        out.u8(0);
        out.u8(0x04); // decoder
        out.u8(13 + 2 + configurationSize);
        out.u8(0x40); // MPEG-4 sound
        out.u8(0x15); // a stream of sound
        out.u8(0);
        out.u16(std::min<uint32_t>(largest, 0xFFFF));
        out.u32(bitRate);
        out.u32(bitRate);
        out.u8(0x05); // the decoder's own
        out.u8(configurationSize);
        out.bytes(format_.configuration);
        out.u8(0x06); // synchronisation: as in MP4 files
        out.u8(1);
        out.u8(2);
    }

    void durations(BoxWriter& out) const
    {
        const bool isEven = lastLength_ == packetLength_ || sizes_.size() == 1;
        out.u32(0);
        out.u32(isEven ? 1 : 2);
        out.u32(isEven ? sizes_.size() : sizes_.size() - 1);
        out.u32(sizes_.size() == 1 ? lastLength_ : packetLength_);
        if (!isEven) {
            out.u32(1);
            out.u32(lastLength_);
        }
    }

    void chunkLengths(BoxWriter& out) const
    {
        const size_t whole = sizes_.size() / kPacketsPerChunk;
        const size_t rest = sizes_.size() % kPacketsPerChunk;
        out.u32(0);
        out.u32((whole > 0) + (rest > 0));
        const auto run = [&](size_t firstChunk, size_t packets) {
            out.u32(firstChunk);
            out.u32(packets);
            out.u32(1);
        };
        if (whole > 0)
            run(1, kPacketsPerChunk);
        if (rest > 0)
            run(whole + 1, rest);
    }

    void chunkPlaces(BoxWriter& out, bool isLarge) const
    {
        out.u32(0);
        out.u32((sizes_.size() + kPacketsPerChunk - 1) / kPacketsPerChunk);
        uint64_t offset = kMediaStart;
        for (size_t i = 0; i < sizes_.size(); ++i) {
            if (i % kPacketsPerChunk == 0)
                isLarge ? out.u64(offset) : out.u32(offset);
            offset += sizes_[i];
        }
    }

    const M4AFile::Format& format_;
    const std::vector<uint32_t>& sizes_;
    const uint64_t mediaBytes_;
    /// What is passed over at the start, and what plays.
    const uint64_t start_;
    const uint64_t length_;
    const uint32_t rate_;
    const uint64_t packetLength_;
    uint64_t lastLength_ = 0;
    uint64_t mediaLength_ = 0;
};

} // namespace

M4AFile::M4AFile(NSURL url, Format format, Handle<std::FILE, std::fclose> file)
    : url_(std::move(url)), format_(std::move(format)), file_(std::move(file))
{}

M4AFile::~M4AFile() = default;

std::unique_ptr<M4AFile> M4AFile::create(const NSURL& url, Format format, NSError* error)
{
    FileDescriptor descriptor = makeForWriting(url.path());
    Handle<std::FILE, std::fclose> file(descriptor ? fdopen(descriptor.get(), "wb") : nullptr);
    if (!file) {
        failWithErrno(error, errno, localized("{} could not be made", {url.path()}));
        return nullptr;
    }
    descriptor.release();
    std::unique_ptr<M4AFile> result(new M4AFile(url, std::move(format), std::move(file)));
    // Length 1: the 64-bit length that follows counts. It is filled in at the end.
    BoxWriter head;
    fileTypeBox(head);
    head.u32(1);
    head.text("mdat");
    head.u64(0);
    if (!result->write(head.result(), error))
        return nullptr;
    return result;
}

bool M4AFile::write(std::span<const uint8_t> bytes, NSError* error)
{
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) == bytes.size())
        return true;
    return failWithErrno(error, errno, localized("{} could not be written", {url_.path()}));
}

bool M4AFile::append(std::span<const uint8_t> packet, NSError* error)
{
    if (!write(packet, error))
        return false;
    sizes_.push_back(static_cast<uint32_t>(packet.size()));
    mediaBytes_ += static_cast<int64_t>(packet.size());
    return true;
}

bool M4AFile::finish(int64_t start, int64_t length, NSError* error)
{
    BoxWriter out;
    Index(format_, sizes_, mediaBytes_, start, length).write(out);
    if (!write(out.result(), error))
        return false;

    BoxWriter mediaSize;
    mediaSize.u64(static_cast<uint64_t>(mediaBytes_ + kMediaHeader));
    if (std::fflush(file_.get()) != 0 ||
        pwrite(fileno(file_.get()), mediaSize.result().data(), 8, kMediaStart - 8) != 8)
        return failWithErrno(error, errno, localized("{} could not be written", {url_.path()}));
    // Errors of delayed writing come out here.
    if (std::fclose(file_.release()) != 0)
        return failWithErrno(error, errno, localized("{} could not be written", {url_.path()}));
    return true;
}

} // namespace platform
