#pragma once

#include <stillora/Files.h>

#include <functional>

namespace stillora {

/// As without it, and until `goesOn` answers false, which then is `ErrorCode::Cancelled`.
/// @param goesOn  asked every few hundredths of a second
Result<FileFacts> factsOfFile(const std::filesystem::path& file, const std::function<bool()>& goesOn);

} // namespace stillora
