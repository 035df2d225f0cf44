#pragma once

#include "platform/files/NSURL.h"
#include "platform/media/AVMetadataItem.h"

#include <optional>
#include <string>

/// The name of a document's movie without an extension.
std::string titleOfDocument(const platform::NSURL& documentURL);

/// What a document's movie tells of itself: its title. Nothing without a document.
platform::AVMetadataItemList metadataOfMovie(const std::optional<platform::NSURL>& documentURL);
