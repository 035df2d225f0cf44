#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Why a photo gave no frame.
enum class FrameFailure { NoSource, NoImage, NoBuffer };

/// Tells it in the log, as frame production's own.
/// @param ofWhat  the photo's address; of a buffer what it was to be
void logFrameFailure(FrameFailure failure, std::string_view ofWhat);

/// Whether a line of a process's log was written by `logFrameFailure`.
/// @return the photo's address as a text, empty where it was not the photo's fault; nothing if the line tells something
/// else
std::optional<std::string> photoOfFailedFrame(std::string_view logLine);
