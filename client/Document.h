#pragma once

#include "client/FileCopy.h"
#include "client/MoviePlan.h"
#include "client/MovieSettings.h"
#include "client/SoundCheck.h"
#include "items/MORPhoto.h"
#include "items/MORSoundtrack.h"
#include "platform/foundation/FileDescriptor.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSError.h"
#include "platform/foundation/NSPropertyListSerialization.h"
#include "platform/foundation/NSURL.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// The extension of a document's folder.
inline constexpr std::string_view kDocumentExtension = "stillora";

/// One photo or soundtrack of a document.
template <typename Item>
struct DocumentEntry {
    enum class State {
        Good,
        /// The item is there, its file is not.
        FileMissing,
        /// The saved form cannot be read. It stays in the document as it is.
        Damaged,
    };

    State state = State::Good;
    /// Null where the saved form cannot be read. Its properties may be changed; they are saved with the document.
    std::shared_ptr<Item> item;
    /// What is wrong, as the end of a sentence; empty where nothing is.
    std::string fault;

    /// As it stands in the property list; an item that was not changed is written back byte for byte. Nothing for a new
    /// item.
    std::optional<platform::PropertyList> saved;
    /// What the item's saved form was when it was read.
    std::optional<platform::NSData> unchanged;
};
using DocumentPhoto = DocumentEntry<MORPhoto>;
using DocumentSoundtrack = DocumentEntry<MORSoundtrack>;

/// A slideshow in a folder of its own: a property list of its photos, soundtracks and settings, and copies of their
/// files, which it finds again wherever the folder is moved or copied to. What is in memory reaches the folder by
/// `save`, in one step; other processes are never overwritten. One thread at a time.
class Document final {
public:
    /// The property list's name in the document's folder.
    static constexpr std::string_view kPropertyListName = "Document.plist";
    /// The newest form of the property list that is known here.
    static constexpr int64_t kFormatVersion = 1;

    /// A new document, which is nowhere to be seen before it is saved for the first time.
    /// @param location  of its folder; nothing may be there yet
    [[nodiscard]] static std::unique_ptr<Document> create(const platform::NSURL& location,
                                                          platform::NSError* error = nullptr);

    /// Opens a document. Its items may be damaged or lack their files, see their states.
    /// @return null for what is no document, a damaged one, or one of a newer version
    [[nodiscard]] static std::unique_ptr<Document> load(const platform::NSURL& location,
                                                        platform::NSError* error = nullptr);

    /// Opens a document and keeps other processes from changing it as long as the object lives.
    /// @param waits  asked over and over while another process changes it; whether to wait on
    [[nodiscard]] static std::unique_ptr<Document> loadForChange(const platform::NSURL& location,
                                                                 const std::function<bool()>& waits,
                                                                 platform::NSError* error = nullptr);

    /// Removes files that were added and not saved.
    ~Document();
    Document(const Document&) = delete;
    Document& operator=(const Document&) = delete;

    const platform::NSURL& location() const { return location_; }
    /// The folder's name without its extension: by it the service names a movie.
    std::string name() const;

    const std::vector<DocumentPhoto>& photos() const { return photos_; }
    const std::vector<DocumentSoundtrack>& soundtracks() const { return soundtracks_; }
    const MovieSettings& settings() const { return settings_; }
    void setSettings(MovieSettings settings) { settings_ = std::move(settings); }
    /// One sentence for each saved setting that cannot be used.
    const std::vector<std::string>& settingFaults() const { return settingFaults_; }

    /// Adds copies of files at the end; a file that is given twice is copied once. The items get their properties.
    ///
    /// @param progress  called on this thread; answers whether to go on
    /// @return false if a file could not be copied, or it was not to go on (`kClientErrorCancelled`); nothing is added
    [[nodiscard]] bool add(const std::vector<PhotoFacts>& photos, const std::vector<SoundFacts>& sounds,
                           const std::function<bool(const CopyProgress&)>& progress,
                           platform::NSError* error = nullptr);

    /// Takes an item out. Its file goes with the next `save`, unless another item may need it.
    void removePhoto(size_t index);
    void removeSoundtrack(size_t index);
    /// Gives a photo another place in the order.
    void movePhoto(size_t from, size_t to);

    /// Writes what was changed. Readers see the old document or the new one, also after a power failure.
    ///
    /// @return false if it could not be written, or another process has changed the document since it was opened
    ///         (`kClientErrorDocumentChanged`); nothing in the folder is changed then
    [[nodiscard]] bool save(platform::NSError* error = nullptr);

    /// Paths of files among the resources that no item uses; empty where a damaged item might.
    std::vector<std::string> unusedFiles() const;

private:
    explicit Document(platform::NSURL location);

    [[nodiscard]] static std::unique_ptr<Document> open(const platform::NSURL& location,
                                                        const std::function<bool()>* waits, platform::NSError* error);
    [[nodiscard]] bool read(platform::NSError* error);
    [[nodiscard]] bool isUnchangedOnDisk(platform::NSError* error) const;
    [[nodiscard]] std::optional<platform::NSData> propertyList(platform::NSError* error) const;
    void setFolder(const std::string& path);
    void adoptSaved(platform::NSData written);
    void removeFiles(const std::vector<std::string>& paths) const;
    bool isUsed(const std::string& path) const;
    bool hasDamagedItems() const;
    std::string propertyListPath() const { return folder_ + "/" + std::string(kPropertyListName); }

    const platform::NSURL location_;
    /// Where the files are: the location, but for a new document before it is saved.
    std::string folder_;
    /// Keeps other processes from changing the document, where it is held.
    platform::FileDescriptor lock_;
    bool isNew_ = false;

    std::vector<DocumentPhoto> photos_;
    std::vector<DocumentSoundtrack> soundtracks_;
    MovieSettings settings_;
    MovieSettings savedSettings_;
    std::vector<std::string> settingFaults_;

    /// The property list as it was read or written last, with all that is not known here.
    platform::PropertyList::Dictionary saved_;
    platform::NSData savedBytes_;

    /// Paths of copies that no saved item has yet.
    std::vector<std::string> addedFiles_;
    /// Paths of the files of removed items.
    std::vector<std::string> removedFiles_;
};

/// Where an item's file lies; empty where that is not known.
std::string pathOf(const DocumentPhoto& photo);
std::string pathOf(const DocumentSoundtrack& soundtrack);

/// The sound and the part of it that a soundtrack of a document plays.
SoundArgument soundArgumentOf(const MORSoundtrack& soundtrack);

} // namespace stillora
