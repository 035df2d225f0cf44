#pragma once

#include <stillora/Document.h>

#include "client/command/making/MovieCommand.h"

#include <filesystem>
#include <string>

namespace stillora {

/// A document may be given without its extension.
std::filesystem::path locationOfDocument(const std::string& given);

/// Opens a document and keeps it from changes of others; tells if it waits for one that another program makes.
///
/// @param given   as on the command line
/// @param status  out: the program's exit status where there is none, which was then told
std::optional<Document> openForChange(const std::string& given, MovieCommand& command, int& status);

/// Ends a command that could not do something with a document.
int endBy(const Error& error, ExitStatus status, MovieCommand& command);

} // namespace stillora
