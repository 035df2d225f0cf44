#pragma once

#include <stillora/Export.h>
#include <stillora/Types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
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

/// What becomes of the folders in a folder.
enum class InnerFolders {
    PassedOver,
    /// Their files come after the folder's own, folder by folder in natural order of their names. Links to folders,
    /// which may lead in a circle, hidden folders and documents are passed over all the same.
    Listed,
};

/// Files stay where the user put them; a folder stands for its files in natural name order. Hidden files and files of
/// kinds that are no pictures are passed over. Opens no file.
STILLORA_EXPORT PhotoListing listPhotos(const std::vector<std::filesystem::path>& arguments,
                                        FolderSounds sounds = FolderSounds::PassedOver,
                                        InnerFolders folders = InnerFolders::PassedOver);

/// Whether the extension (without the dot, any case) is one of the picture formats that can be shown.
STILLORA_EXPORT bool isPictureExtension(const std::string& extension);

/// Whether the extension (without the dot, any case) is one of the sound formats that can be heard.
STILLORA_EXPORT bool isSoundExtension(const std::string& extension);

/// Whether file name `a` comes before `b` for a reader: numbers count by value ("img2" before "img10"), letters without
/// regard to case, names before longer names that begin alike ("img2.jpg" before "img2-1.jpg"). Names that differ at
/// all are never equal, so that a folder has one order on every machine, whatever its language.
STILLORA_EXPORT bool isBeforeInNaturalOrder(std::string_view a, std::string_view b);

/// When a photo was taken, as its camera wrote it.
struct DateTaken {
    /// As the clocks stood there.
    std::chrono::local_time<std::chrono::microseconds> clock;
    /// By how much these were ahead of UTC; nothing where the photo does not tell.
    std::optional<std::chrono::minutes> offset;

    friend bool operator==(const DateTaken&, const DateTaken&) = default;
};

/// The moment of a date; without an offset, of the time zone of this computer. Where its clocks were set back and
/// showed a time twice, the first counts.
STILLORA_EXPORT std::chrono::sys_time<std::chrono::microseconds> momentOf(const DateTaken& date);

/// "2024-05-31T09:08:07.25+02:00", as ISO 8601 writes it; without an offset where that is not known, and with as many
/// digits of the second as it needs.
STILLORA_EXPORT std::string textOfDate(const DateTaken& date);

/// A photo that was found good.
struct PhotoFacts {
    std::filesystem::path path;
    /// Upright.
    Size size;
    std::int64_t fileSize = 0;
    /// The end of the file is missing: the photo is shown as far as it goes. Seen of JPEG, PNG and GIF; of other
    /// formats such a file cannot be used.
    bool isCutOff = false;
    /// Of EXIF; nothing where the photo tells none, or what is no date.
    std::optional<DateTaken> taken = {};
    /// When the file was written last.
    std::chrono::sys_time<std::chrono::nanoseconds> modified = {};
    /// A JPEG file that comes ever finer, in several passes: decoding it takes several times as long.
    bool isProgressive = false;
    /// Tells its bytes from others of the same length; empty where they were not looked at.
    std::string fingerprint = {};
};

/// What is wrong with a photo that is cut off, as a sentence without the path.
STILLORA_EXPORT std::string reasonOfCutOffPhoto();

/// What an order of photos goes by.
enum class PhotoSort {
    AsGiven,
    /// Natural order of the files' names, wherever they are; of the same names, of their folders.
    ByName,
    /// When they were taken. A photo that does not tell goes by the one before it in its folder, in natural order of
    /// the names, or by the next one that tells; if none tells, all go by the times of their files. At the same moment
    /// they are in natural order of their folders and names.
    ByDate,
};

struct PhotoOrder {
    PhotoSort sort = PhotoSort::AsGiven;
    /// The other way round, from last to first.
    bool isReversed = false;
};

/// Photos in their order.
struct SortedPhotos {
    std::vector<PhotoFacts> photos;
    /// Sorted by date: indexes of the photos that do not tell when they were taken.
    std::vector<std::size_t> undated;
};

/// Opens no file.
/// @param photos  as they were checked, in the order in which they were given
/// @param order   those that are equal in it stay as they are
STILLORA_EXPORT SortedPhotos sortPhotos(std::vector<PhotoFacts> photos, PhotoOrder order);

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
