#pragma once

#include <stillora/Document.h>
#include <stillora/Error.h>
#include <stillora/Movie.h>

#include "platform/foundation/FileDescriptor.h"
#include "window/state/document/Items.h"
#include "window/state/document/SessionFile.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// A photo that is to be saved.
struct PhotoToSave {
    PhotoID id{};
    std::filesystem::path path;
    /// Where they are known; else the photo is looked at before it is copied.
    std::optional<PhotoFacts> facts;
};

/// A document as it stands on the screen.
struct DocumentToSave {
    std::vector<PhotoToSave> photos;
    std::vector<SoundItem> sounds;
    MovieSettings settings;
};

/// How saving came out.
struct SavedDocument {
    std::optional<Error> error = {};
    /// Where the copies of files are that were copied.
    std::map<PhotoID, std::filesystem::path> photos = {};
    std::map<SoundID, std::filesystem::path> sounds = {};
};

/// A document as it was found.
struct LoadedDocument {
    std::optional<std::filesystem::path> location;
    /// Without identities.
    std::vector<PhotoItem> photos;
    std::vector<SoundItem> sounds;
    MovieSettings settings;
    /// What was not saved into the document with this name any more.
    std::optional<SavedSession> unsaved;
};

/// What stands on the disk for a window: a list in the state folder, and the document's folder if it has a name. Any
/// thread, one at a time; all of it blocks.
class DocumentDisk final {
public:
    explicit DocumentDisk(std::filesystem::path stateFolder);

    /// Makes copying of files stop; from then on only that is saved for which nothing is to be copied. Any thread.
    void stop() { isStopped_ = true; }

    /// @name The list in the state folder
    /// @{

    /// Writes it in one step.
    /// @return why it could not be written
    std::optional<Error> writeSession(const SavedSession& session);
    void removeSession();
    /// Takes the newest list that nobody has open.
    std::optional<LoadedDocument> takeLastSession();
    /// Begins another list; the one before stays, for nobody.
    void leaveSession();
    /// @}

    /// @name The document with a name
    /// @{

    /// Why a document, or a list in the state folder, cannot be opened; nothing if it can.
    static std::optional<Error> faultOf(const std::filesystem::path& location);
    /// Opens a document, or the list in the state folder of one without a name; what was open is closed.
    Result<LoadedDocument> open(const std::filesystem::path& location);
    /// Makes a new document and closes the one that was open; where it fails, that one stays.
    SavedDocument saveAs(const std::filesystem::path& location, const DocumentToSave& what);
    /// Saves into the one that is open. `DocumentChanged` if another program has changed it.
    SavedDocument save(const DocumentToSave& what);
    /// As `save`, whatever another program has changed.
    SavedDocument saveOver(const DocumentToSave& what);
    /// Whether another program has changed it since it was opened or saved.
    bool isChangedByOthers();
    /// Opens it again, as it is now.
    Result<LoadedDocument> reload();
    /// Lets go of it. What was removed from it can not come back then.
    void close();
    bool isOpen() const { return document_.has_value(); }
    /// @}

    /// @name Documents that were open
    /// @{
    void remember(const std::filesystem::path& location);
    /// The newest first; those that are gone are left out.
    std::vector<std::filesystem::path> remembered() const;
    /// Lists of documents without a name that nobody has open, the newest first, with how many photos they have.
    std::vector<std::pair<std::filesystem::path, std::size_t>> unnamed() const;
    /// @}

private:
    SavedDocument bringUpTo(const DocumentToSave& what);
    Result<LoadedDocument> adopt(Document document);
    void noteState();
    std::filesystem::path sessionFolder() const { return stateFolder_ / "sessions"; }
    bool lockSession(const std::string& name);
    /// Takes the list of a document that a program which was killed has left.
    std::optional<SavedSession> takeSessionOf(const std::filesystem::path& document);

    const std::filesystem::path stateFolder_;
    std::atomic<bool> isStopped_{false};
    std::optional<Document> document_;
    /// Of the property list as it was loaded or saved last.
    std::string state_;
    /// In the folder of sessions, without its extension; empty before the first is written.
    std::string sessionName_;
    platform::FileDescriptor sessionLock_;
};

} // namespace stillora::window
