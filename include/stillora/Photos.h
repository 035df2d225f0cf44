#pragma once

#include <stillora/Export.h>
#include <stillora/Types.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
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

    std::filesystem::path path;
    Origin origin = Origin::Named;
};

/// The files that the user's arguments stand for, in showing order.
struct PhotoListing {
    std::vector<PhotoCandidate> candidates;
    /// Arguments that are neither a file nor a folder with photos.
    std::vector<BadFile> bad;
    /// What was passed over, one sentence each.
    std::vector<std::string> notes;
    /// Sound files of folders, where they are wanted.
    std::vector<std::filesystem::path> sounds;
};

/// What becomes of the sound files in a folder, by their names.
enum class FolderSounds { PassedOver, Listed };

/// Files stay where the user put them; a folder stands for its files in natural name order. Folders inside it, hidden
/// files and files of kinds that are no pictures are passed over. Opens no file.
STILLORA_EXPORT PhotoListing listPhotos(const std::vector<std::filesystem::path>& arguments,
                                        FolderSounds sounds = FolderSounds::PassedOver);

/// Whether the extension (without the dot, any case) is one of the picture formats that can be shown.
STILLORA_EXPORT bool isPictureExtension(const std::string& extension);

/// Whether the extension (without the dot, any case) is one of the sound formats that can be heard.
STILLORA_EXPORT bool isSoundExtension(const std::string& extension);

/// Whether file name `a` comes before `b` for a reader: numbers count by value ("img2" before "img10"), letters without
/// regard to case, names before longer names that begin alike ("img2.jpg" before "img2-1.jpg"). Names that differ at
/// all are never equal, so that a folder has one order on every machine, whatever its language.
STILLORA_EXPORT bool isBeforeInNaturalOrder(std::string_view a, std::string_view b);

/// A photo that was found good.
struct PhotoFacts {
    std::filesystem::path path;
    /// Upright.
    Size size;
    std::int64_t fileSize = 0;
    /// The end of the file is missing: the photo is shown as far as it goes. Seen of JPEG, PNG and GIF; of other
    /// formats such a file cannot be used.
    bool isCutOff = false;
};

/// What is wrong with a photo that is cut off, as a sentence without the path.
STILLORA_EXPORT std::string_view reasonOfCutOffPhoto();

/// What a look into every candidate found.
struct CheckedPhotos {
    /// In the order of the candidates.
    std::vector<PhotoFacts> good;
    std::vector<BadFile> bad;
    /// Files of folders that turned out to be no pictures.
    std::size_t passedOver = 0;
    bool isCancelled = false;
};

/// Opens each candidate, reads its header and decodes a small picture of it, so that no photo which the service would
/// wait for in vain ever reaches it. Looks at the end of it, too. Uses all processors.
///
/// @param candidates  files, as `listPhotos` finds them
/// @param progress    called on this thread after some of them, with how many are done; answers whether to go on
STILLORA_EXPORT CheckedPhotos checkPhotos(const std::vector<PhotoCandidate>& candidates,
                                          const std::function<bool(std::size_t)>& progress = {});

} // namespace stillora
