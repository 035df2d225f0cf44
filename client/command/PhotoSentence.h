#pragma once

#include <stillora/Movie.h>
#include <stillora/Photos.h>

#include <string>
#include <vector>

namespace stillora {

/// Tells in one sentence which photos are smaller than the frame: few by name, many by number. Empty where none is.
std::string smallPhotosSentence(Size frame, const std::vector<PhotoFacts>& photos);

} // namespace stillora
