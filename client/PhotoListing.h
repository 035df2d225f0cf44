#pragma once

#include <string>
#include <vector>

namespace stillora {

/// A file that may become a photo of the movie.
struct PhotoCandidate {
    enum class Origin {
        /// The user named the file: it has to be a photo.
        Named,
        /// In a named folder, with a picture's extension: it has to be a photo too.
        FoundAsPicture,
        /// In a named folder, with another extension or none: a photo if its content is one.
        FoundAsFile,
    };

    std::string path;
    Origin origin = Origin::Named;
};

/// A photo that cannot be shown, and why.
struct BadPhoto {
    std::string path;
    /// One sentence without the path.
    std::string reason;
};

/// The files that the user's arguments stand for, in showing order.
struct PhotoListing {
    std::vector<PhotoCandidate> candidates;
    /// Arguments that are neither a file nor a folder with photos.
    std::vector<BadPhoto> bad;
    /// What was passed over, one sentence each.
    std::vector<std::string> notes;
    /// Sound files of folders, where they are wanted.
    std::vector<std::string> sounds;
};

/// What becomes of the sound files in a folder, by their names.
enum class FolderSounds { PassedOver, Listed };

/// Files stay where the user put them; a folder stands for its files in natural name order. Folders inside it, hidden
/// files and files of kinds that are no pictures are passed over. Opens no file.
PhotoListing listPhotos(const std::vector<std::string>& arguments, FolderSounds sounds = FolderSounds::PassedOver);

/// Whether the extension (without the dot, any case) is one of the picture formats that can be shown.
bool isPictureExtension(const std::string& extension);

/// Whether the extension (without the dot, any case) is one of the sound formats that can be heard.
bool isSoundExtension(const std::string& extension);

} // namespace stillora
