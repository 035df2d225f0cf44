#pragma once

#include "client/MoviePlan.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// The longest title, in bytes: it leaves room in a file's name for an extension and a number, and for the name under
/// which the movie is written.
inline constexpr size_t kMaxTitleBytes = 200;

/// Why a text cannot be a movie's title, as the end of a sentence; nothing if it can.
std::optional<std::string> faultOfTitle(const std::string& title);

/// The title of a movie that was given none: the name of the folder that all photos lie in, else "Slideshow".
std::string titleForPhotos(const std::vector<PhotoFacts>& photos);

} // namespace stillora
