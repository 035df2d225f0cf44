#pragma once

#include <string>

/// The system's words for an `errno` value, in English whatever the user's language.
std::string reasonOfErrno(int errnoValue);
