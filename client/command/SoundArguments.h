#pragma once

#include "client/SoundCheck.h"

#include <string>

/// Reads "START-END", of which one may be left out. Returns what is wrong, or nothing.
std::string readRange(const std::string& text, SoundArgument& sound);
