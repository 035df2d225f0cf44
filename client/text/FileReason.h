#pragma once

#include "platform/files/NSURL.h"

#include <string>

namespace stillora {

/// The system's words for an `errno` value, in the user's language.
std::string reasonOfErrno(int errnoValue);

/// An error's sentence without the path that it may begin with, for reports that name the path themselves.
std::string reasonWithoutPath(const std::string& sentence, const platform::NSURL& url);

} // namespace stillora
