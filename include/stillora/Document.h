#pragma once

#include <stillora/Error.h>
#include <stillora/Export.h>
#include <stillora/Movie.h>
#include <stillora/Photos.h>
#include <stillora/Sounds.h>
#include <stillora/Types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// The extension of a document's folder.
inline constexpr std::string_view kDocumentExtension = "stillora";

/// What photos and soundtracks of a document have in common.
struct DocumentItem {
    enum class State {
        Good,
        /// The item is there, its file is not.
        FileMissing,
        /// The saved form cannot be read. It stays in the document as it is, and nothing else is known of it.
        Damaged,
    };

    State state = State::Good;
    /// What is wrong, as the end of a sentence; empty where nothing is.
    std::string fault;
    /// Where the file lies; empty where that is not known.
    std::filesystem::path path;
};

/// One photo of a document.
struct DocumentPhoto : DocumentItem {
    std::string title;
    /// Upright.
    Size size;
    std::int64_t fileSize = 0;
    std::optional<Color> averageColor;
    /// When the file was made.
    std::optional<std::chrono::time_point<std::chrono::system_clock, Seconds>> created;
    bool isFeatured = false;
};

/// One soundtrack of a document.
struct DocumentSoundtrack : DocumentItem {
    /// Nothing plays the whole file.
    std::optional<SoundFacts::Selection> selection;
    /// Of the file that was copied into the document.
    std::optional<std::filesystem::path> originalPath;
};

/// How far the copying of files is.
struct CopyProgress {
    std::size_t filesDone = 0;
    std::size_t fileCount = 0;
    std::uint64_t bytesDone = 0;
    std::uint64_t byteCount = 0;
};

/// A slideshow in a folder of its own: a property list of its photos, soundtracks and settings, and copies of their
/// files, which it finds again wherever the folder is moved or copied to. What is in memory reaches the folder by
/// `save`, in one step; other processes are never overwritten. One thread at a time.
class STILLORA_EXPORT Document final {
public:
    /// A new document, which is nowhere to be seen before it is saved for the first time.
    /// @param location  of its folder; nothing may be there yet
    static Result<Document> create(const std::filesystem::path& location);

    /// Opens a document. Its items may be damaged or lack their files, see their states.
    /// @return an error for what is no document, a damaged one, or one of a newer version
    static Result<Document> load(const std::filesystem::path& location);

    /// Opens a document and keeps other processes from changing it as long as the object lives.
    /// @param location  of its folder
    /// @param waits     asked over and over while another process changes it; whether to wait on
    static Result<Document> loadForChange(const std::filesystem::path& location, const std::function<bool()>& waits);

    /// Removes files that were added and not saved.
    ~Document();
    Document(Document&& other) noexcept;
    Document& operator=(Document&& other) noexcept;

    const std::filesystem::path& location() const;
    /// The folder's name without its extension: by it the service names a movie.
    std::string name() const;

    std::vector<DocumentPhoto> photos() const;
    std::vector<DocumentSoundtrack> soundtracks() const;
    const MovieSettings& settings() const;
    void setSettings(MovieSettings settings);
    /// Makes `save` write a setting even where it is what was taken instead of a saved one that cannot be used.
    /// @param key  its name in the property list
    void rewriteSetting(std::string_view key);
    /// One sentence for each saved setting that cannot be used.
    const std::vector<std::string>& settingFaults() const;

    /// Adds copies of files at the end; a file that is given twice is copied once. The items get their properties.
    ///
    /// @param photos    files that were found good
    /// @param sounds    files that were found good, and the parts of them that are wanted
    /// @param progress  called on this thread; answers whether to go on
    /// @return an error if a file could not be copied, or it was not to go on (`Cancelled`); nothing is added then
    Result<void> add(const std::vector<PhotoFacts>& photos, const std::vector<SoundFacts>& sounds,
                     const std::function<bool(const CopyProgress&)>& progress = {});

    /// @name Changes, which are saved with the document; of items that are there and not damaged
    /// @{
    void setFeatured(std::size_t photo, bool isFeatured);
    void setSelection(std::size_t soundtrack, const std::optional<SoundFacts::Selection>& selection);
    /// @}

    /// @name Take an item out. Its file goes with the next `save`, unless another item may need it.
    /// @{
    void removePhoto(std::size_t index);
    void removeSoundtrack(std::size_t index);
    /// @}
    /// Gives a photo another place in the order.
    void movePhoto(std::size_t from, std::size_t to);
    /// Puts all photos into another order.
    /// @param order  the photo at `order[i]` comes to be the one at i; each index stands there once
    void setPhotoOrder(const std::vector<std::size_t>& order);
    /// As `setPhotoOrder`.
    /// @param order  of soundtracks
    void setSoundtrackOrder(const std::vector<std::size_t>& order);

    /// Writes what was changed. Readers see the old document or the new one, also after a power failure.
    /// @return an error if it could not be written, or another process has changed the document since it was opened
    ///         (`DocumentChanged`); nothing in the folder is changed then
    Result<void> save();

    /// Leaves the files of items that are removed from now on where they are, so that the items can be added again.
    void keepRemovedFiles();
    /// Removes the files that were kept and that no item uses. Where another process has changed the document since it
    /// was opened or saved, they stay.
    void removeKeptFiles();

    /// Paths of files among the resources that no item uses; empty where a damaged item might.
    std::vector<std::filesystem::path> unusedFiles() const;

private:
    class Content;
    STILLORA_HIDDEN explicit Document(std::unique_ptr<Content> content);

    std::unique_ptr<Content> content_;
};

/// An item of a document that cannot be used, and why.
struct BadItem {
    enum class Kind { Photo, Soundtrack };

    Kind kind = Kind::Photo;
    /// In the document's list.
    std::size_t index = 0;
    /// Its file's path, as far as that is known; else "photo 3".
    std::string path;
    /// One sentence without the path.
    std::string reason;
};

/// What a look into every file of a document found.
struct CheckedDocument {
    /// In the document's order.
    std::vector<PhotoFacts> photos;
    std::vector<SoundFacts> sounds;
    std::vector<BadItem> bad;
    /// Photos whose files are not as they were added, one sentence each with the path.
    std::vector<std::string> changed;
    bool isCancelled = false;
};

/// Finds items that are damaged, whose files are missing, or whose files do not decode.
///
/// @param document  is not changed
/// @param progress  called on this thread after some of the photos, with how many are done; answers whether to go on
STILLORA_EXPORT CheckedDocument checkDocument(const Document& document,
                                              const std::function<bool(std::size_t)>& progress = {});

/// The items that are seen to be bad without opening a file.
STILLORA_EXPORT std::vector<BadItem> badItemsOf(const Document& document);

/// The sound and the part of it that a soundtrack of a document plays.
STILLORA_EXPORT SoundArgument soundArgumentOf(const DocumentSoundtrack& soundtrack);

} // namespace stillora
