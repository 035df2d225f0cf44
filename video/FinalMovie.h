#pragma once

#include "platform/files/NSURL.h"
#include "platform/media/AVURLAsset.h"

#include <optional>

class StageContext;

/// Where the finished movie goes: the document's name with the extension "mov" in the destination folder, or, without a
/// document, the localised name for untitled movies, which gets no extension.
///
/// @return a location at which no file exists now
platform::NSURL URLForFinalVideoAtDocumentURL(StageContext& context, const std::optional<platform::NSURL>& documentURL);

/// Joins the silent video and the finished soundtrack: both start at zero, both are copied as they are, and the movie
/// is as long as the longer one. Blocks the calling thread, sending progress about once a second; a cancelled context
/// ends it at the next look.
///
/// @param video, soundtrack  null: nothing is done and nothing is sent
/// @param finalDocURL        names the movie, see above; if that name is taken meanwhile, the next free one is used
/// @param error              out, optional: why there is no movie; untouched when cancelled or when an asset is null
/// @return the written movie, or null
[[nodiscard]] platform::AVURLAssetPtr movieByCombiningVideo(StageContext& context, const platform::AVURLAssetPtr& video,
                                                            const platform::AVURLAssetPtr& soundtrack,
                                                            const std::optional<platform::NSURL>& finalDocURL,
                                                            platform::NSError* error = nullptr);
