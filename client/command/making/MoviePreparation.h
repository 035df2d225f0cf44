#pragma once

#include <stillora/Document.h>
#include <stillora/Error.h>
#include <stillora/Movie.h>

#include "client/command/options/CreateOptions.h"

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace stillora {

/// @name From what was asked for to what the service is sent, for a command and for the lines of a list alike
/// @{

/// Sounds that stand among the photos are heard before those of --soundtrack.
void takeOutSounds(CreateOptions& options);

/// What is wrong with asking for a document's movie in this way; empty if nothing is.
std::string faultOfDocumentMovie(const std::filesystem::path& document, const CreateOptions& options);

/// The document's settings, but for those that the options give.
MovieSettings settingsFor(const Document& document, const CreateOptions& options);

/// What a movie is made of: photos and sounds that were checked, and how it is to be.
struct MovieParts {
    std::vector<PhotoFacts> photos;
    std::vector<SoundFacts> sounds;
    MovieSettings settings;
    std::string title;
    /// The document that they are of, if they are of one and the movie has its name.
    std::optional<std::filesystem::path> document;
    MovieUse use = MovieUse::Anywhere;
};

/// @return the request without a save folder, or an error if what is wanted cannot be made
Result<MovieRequest> plannedMovie(MovieParts parts);

/// Everything from the options to the request, where nobody can be asked: looks into all files. What cannot be used is
/// an error that names it, unless the options have it left out.
/// @param goesOn  asked a few times a second on this thread; false stops the work
/// @return the request without a save folder; `ErrorCode::Cancelled` if it was not to go on
Result<MovieRequest> prepareMovie(const CreateOptions& options, const std::function<bool()>& goesOn);
/// @}

} // namespace stillora
