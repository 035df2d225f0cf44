#pragma once

#include "platform/bytes/ByteSource.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/NSError.h"

#include <cstdint>
#include <memory>

struct AVFormatContext;
struct AVPacket;

namespace platform {

struct CloseInput {
    void operator()(AVFormatContext* context) const;
};
using InputPtr = std::unique_ptr<AVFormatContext, CloseInput>;

/// @name Media files that may be hostile: regular files only, of a short list of formats, reading nothing but the file
/// itself, with a short list of decoders
/// All null if the file cannot be opened; `error` names it and says why.
/// @{

/// The streams are known; edit lists of movies are not applied when `ignoreEditLists` is set.
[[nodiscard]] InputPtr openMediaFile(const NSURL& url, bool ignoreEditLists, NSError* error = nullptr);
/// The same from the start, of a file that is open already.
[[nodiscard]] InputPtr openMediaFile(FileBytesPtr file, const NSURL& url, bool ignoreEditLists,
                                     NSError* error = nullptr);

/// As `openMediaFile`, but knows no more than the file's head and index tell, and gives up where they are longer than
/// those of any sound, at 64 MB. Decodes nothing.
///
/// @param opened  null where the file is not open yet
InputPtr openMediaHead(const NSURL& url, FileBytesPtr opened = nullptr);

/// An ID3 tag that stands from `begin` to `end` in an opened file of another kind; only its texts are known.
InputPtr openID3Tag(const AVFormatContext& file, int64_t begin, int64_t end);

/// The index of a movie. Its packets come as they are stored: nothing is parsed or decoded.
[[nodiscard]] InputPtr openMovieIndex(FileBytesPtr file, const NSURL& url, NSError* error = nullptr);
/// @}

/// Reads the next packet of a sound, as the library does, but gives up where none begins within 32 MB: files of zeros
/// would be kept in memory until one does.
/// @return negative at the end, or where that failed
int readPacket(AVFormatContext& input, AVPacket& packet);

/// What an opened media file is read from.
const FileBytesPtr& bytesOf(const AVFormatContext& input);

} // namespace platform
