#pragma once

#include <stillora/Movie.h>
#include <stillora/Photos.h>

#include <string>
#include <vector>

namespace stillora {

/// Tells in one sentence which photos are smaller than the frame: few by name, many by number. Empty where none is.
std::string smallPhotosSentence(Size frame, const std::vector<PhotoFacts>& photos);

/// Tells in one sentence by what photos go that do not say when they were taken. Empty where all do, and where there is
/// only one photo.
std::string undatedSentence(const SortedPhotos& sorted);

} // namespace stillora
