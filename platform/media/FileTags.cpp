#include "platform/media/FileTags.h"

#include "platform/media/BoxFile.h"
#include "platform/media/ChunkTags.h"
#include "platform/media/ID3Tag.h"
#include "platform/media/MovieTags.h"
#include "platform/media/TagItems.h"
#include "platform/media/XiphTags.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace platform {
namespace {

/// Some programs put a new tag in front of the old one, and leave that.
constexpr int kMaxLeadingTags = 8;

bool isMovie(std::string_view boxType)
{
    constexpr std::string_view kFirstBoxes[] = {"ftyp", "moov", "mdat", "wide", "free", "skip", "pnot"};
    return std::find(std::begin(kFirstBoxes), std::end(kFirstBoxes), boxType) != std::end(kFirstBoxes);
}

} // namespace

AVMetadataItemList readFileTags(const NSURL& url)
{
    const BoxFile file(url.path());
    TagItems items;
    int64_t offset = 0;
    for (int i = 0; i < kMaxLeadingTags; ++i) {
        const auto end = readID3v2Tag(file, offset, file.size(), items);
        if (!end)
            break;
        offset = *end;
    }

    // A file may be shorter than this; what is missing stays zero.
    std::array<uint8_t, 12> start{};
    file.read(offset, std::span(start).first(static_cast<size_t>(std::clamp<int64_t>(file.size() - offset, 0, 12))));
    const std::string_view characters(reinterpret_cast<const char*>(start.data()), start.size());
    const std::string_view first = characters.substr(0, 4);
    const std::string_view second = characters.substr(4, 4);
    const std::string_view third = characters.substr(8, 4);
    if (first == "fLaC") {
        readFLACTags(file, offset + 4, items);
    } else if (offset > 0) {
        // Sound in frames; the end comes below.
    } else if ((first == "RIFF" || first == "RF64" || first == "BW64") && third == "WAVE") {
        readWAVTags(file, items);
        return items.items();
    } else if (first == "FORM" && (third == "AIFF" || third == "AIFC")) {
        readAIFFTags(file, items);
        return items.items();
    } else if (first == "OggS") {
        readOggTags(file, items);
        return items.items();
    } else if (isMovie(second)) {
        readMovieTags(file, items);
        return items.items();
    }
    readAppendedID3v2Tag(file, items);
    readID3v1Tag(file, items);
    return items.items();
}

} // namespace platform
