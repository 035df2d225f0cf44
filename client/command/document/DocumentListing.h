#pragma once

#include <stillora/Document.h>

#include "client/text/JSONWriter.h"

#include <string>

namespace stillora {

/// What is in a document, for a reader: lines with a line end each.
std::string listingOf(const Document& document);

/// The same for a program.
JSONWriter listingAsJSON(const Document& document);

/// A document's settings, for a program.
JSONWriter settingsAsJSON(const MovieSettings& settings);

} // namespace stillora
