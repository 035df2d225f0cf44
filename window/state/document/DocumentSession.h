#pragma once

#include <stillora/Error.h>
#include <stillora/Movie.h>
#include <stillora/Types.h>

#include "window/state/document/DocumentDisk.h"
#include "window/state/document/EditHistory.h"
#include "window/state/document/Items.h"
#include "window/state/loop/Background.h"
#include "window/state/loop/MainLoop.h"
#include "window/state/loop/Signal.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace stillora::window {

/// The document on the screen: its photos, sounds and settings, what is done with them and undone, and how all that
/// reaches the disk. Main thread; nothing blocks but `finish`.
///
/// A document without a name lies in the user's state folder: a list of its files where they are, with their order and
/// settings, which is written anew within a second of every change. One with a name is a folder with copies, which is
/// saved as often; while that lasts, the list in the state folder is ahead of it, so that whatever way the program
/// ends, at most the last second is lost.
class DocumentSession final {
public:
    /// Where a place in a list is asked for: behind the last.
    static constexpr std::size_t kAtEnd = static_cast<std::size_t>(-1);

    /// Begins with the empty document.
    ///
    /// @param stateFolder  made when something is to be kept there
    DocumentSession(MainLoop& loop, std::filesystem::path stateFolder);
    ~DocumentSession();
    DocumentSession(const DocumentSession&) = delete;
    DocumentSession& operator=(const DocumentSession&) = delete;

    /// @name What is in it
    /// @{
    const std::vector<PhotoID>& photos() const { return *history_.present().photos; }
    /// Also of photos that are removed and can come back.
    const PhotoItem& photo(PhotoID id) const { return photoItems_.at(id); }
    /// Where it stands; nothing while it is removed.
    std::optional<std::size_t> indexOf(PhotoID id) const;
    std::vector<SoundItem> sounds() const;
    std::optional<SoundItem> sound(SoundID id) const;
    const MovieSettings& settings() const { return *history_.present().settings; }
    bool isEmpty() const { return photos().empty() && history_.present().sounds->empty(); }
    /// @}

    /// @name Told after every change of it
    /// @{
    Signal<ListChange> photosChanged;
    /// Order, parts, or which sounds there are.
    Signal<> soundsChanged;
    Signal<> settingsChanged;
    /// Last, once for every order, undo or redo: a good moment to reckon again.
    Signal<> changed;
    /// Whether and what can be undone, the name, whether all is saved.
    Signal<> statusChanged;
    /// Photos that were added by an order, in their places; not told of undo.
    Signal<const std::vector<PhotoID>&> photosAdded;
    /// What could not be done, each a sentence that names the file; for files that were to be added, and for saving.
    Signal<const std::vector<Error>&> failed;
    /// @}

    /// @name Orders; each that changes something is one step that can be undone
    /// @{

    /// Adds files and what is in folders. The folders are looked through in the background; photos come in the order in
    /// which they were given, folders in natural order of their names. Sounds come to the sounds. A document is not
    /// taken: see `isDocument`.
    /// @param place  before which photo; of sounds the end
    void add(std::vector<std::filesystem::path> filesAndFolders, std::size_t place = kAtEnd);
    void removePhotos(const std::vector<PhotoID>& ids);
    /// As `removePhotos`, said as what it is for: photos that cannot be used.
    void removeUnusablePhotos(const std::vector<PhotoID>& ids);
    /// Gives photos new places beside each other, in the order in which they stand.
    /// @param place  of the list as it is, before which photo they come; `kAtEnd` for the end
    void movePhotos(const std::vector<PhotoID>& ids, std::size_t place);
    /// Gives all photos another order.
    /// @param order  each photo of the document once
    /// @param label  as people read it: "Sort by Name"
    void setPhotoOrder(std::vector<PhotoID> order, std::string label);
    void reversePhotos();
    void shufflePhotos();

    void removeSound(SoundID id);
    /// @param place  of the list as it is, before which sound it comes
    void moveSound(SoundID id, std::size_t place);
    /// The part that plays; nothing for the whole. As long as one handle moves, it is one step; `endMovement` ends
    /// that.
    void setSoundSelection(SoundID id, std::optional<SoundFacts::Selection> selection);
    void setSettings(MovieSettings settings);
    /// The photos share the length of the sounds.
    void fitToMusic();
    /// The sounds are repeated until the pictures end.
    void loopMusic();
    /// After a handle, a spin button or the like is let go.
    void endMovement() { history_.endMovement(); }

    void undo();
    void redo();
    bool canUndo() const { return history_.canUndo(); }
    bool canRedo() const { return history_.canRedo(); }
    /// "Remove 3 Photos", in the user's language.
    std::string undoLabel() const { return history_.undoLabel(); }
    std::string redoLabel() const { return history_.redoLabel(); }
    /// @}

    /// @name On the disk
    /// @{

    /// Whether it is a folder that documents are: by its name and its property list.
    static bool isDocument(const std::filesystem::path& path);

    /// Nothing for a document that has no name yet.
    const std::optional<std::filesystem::path>& location() const { return location_; }
    /// Of the document, for a title; in the user's language where it has none.
    std::string name() const;
    /// Whether the disk has all of it: the document, where it has a name, else the state folder.
    bool isSaved() const { return savedVersion_ == version_; }
    /// Whether copies are being made or a document is being opened.
    bool isBusy() const { return isDiskAtWork_; }

    /// Takes up what another run left in the state folder, if there is something; else the document stays empty.
    /// `opened` is told in any case.
    void resume();
    /// Puts away the document and takes an empty one. What had no name stays in the state folder and is among the
    /// recent ones.
    void startNew();
    /// Opens a document in place of this one, in the background. Where it cannot be opened, this one stays, and
    /// `failed` says why. There is nothing to be undone in it at first.
    void open(const std::filesystem::path& location);
    /// Gives the document a name, or another one: a new folder with copies, in the background. From then on it is saved
    /// there.
    /// @param location  ".stillora" is added where it is missing; nothing may be there yet
    void saveAs(const std::filesystem::path& location);
    /// After `resume`, `open` and `startNew`, when the new one is there.
    Signal<> opened;

    /// @name A document that another program changed is not overwritten
    /// @{

    /// Has the document on the disk compared with what was saved; good when the window comes to the front.
    void lookAgain();
    /// Whether it waits for one of the three orders below; nothing is saved into the document meanwhile, only into the
    /// state folder.
    bool isInConflict() const { return isInConflict_; }
    /// `isInConflict` is another.
    Signal<> conflictChanged;
    /// What is on the screen replaces what the other program saved.
    void keepMine();
    /// What the other program saved comes to the screen. It can be undone.
    void takeTheirs();
    /// What is on the screen becomes a document of its own beside the other.
    void saveMineBeside();
    /// @}

    /// A document that was open before.
    struct Recent {
        /// Of a document with a name; of another its list in the state folder. `open` takes both.
        std::filesystem::path location;
        /// For people.
        std::string name;
        bool hasName = true;
    };
    /// The newest first, without the one that is open and those that are gone. Read in the background.
    void findRecent(std::function<void(std::vector<Recent>)> found);

    /// Has what is known of photos asked, so that they are not looked at again when they are saved.
    /// @param facts  of a photo that was found good; else nothing
    void setKnownFacts(std::function<std::optional<PhotoFacts>(PhotoID)> facts) { knownFacts_ = std::move(facts); }

    /// Blocks until all is saved, for the end of the program. Copies that are being made are given up; the list in the
    /// state folder has what they were made for.
    void finish();
    /// @}

private:
    struct Listing;
    using DiskWork = std::function<std::function<void()>()>;

    void perform(Arrangement arrangement, std::string label, std::string handle = {});
    void changeBy(const std::function<void()>& step);
    void tell(const Arrangement& before);
    void take(Listing listing, std::size_t place);
    std::vector<PhotoID> enter(std::vector<PhotoItem> photos);
    std::vector<SoundRow> enter(std::vector<SoundItem> sounds);
    Arrangement arrangementOf(LoadedDocument loaded);
    void replace(LoadedDocument loaded);
    void takeUnsaved(const SavedSession& session);
    void takeReloaded(const LoadedDocument& loaded);

    void onDisk(DiskWork work);
    void workOn();
    void scheduleSaving();
    void save();
    void takeSaved(SavedDocument saved, std::uint64_t version);
    void setInConflict(bool isInConflict);
    DocumentToSave documentToSave() const;
    SavedSession savedSession() const;

    MainLoop& loop_;
    const std::filesystem::path stateFolder_;
    EditHistory history_;
    std::unordered_map<PhotoID, PhotoItem> photoItems_;
    std::unordered_map<SoundID, SoundItem> soundItems_;
    /// Of `photos()`, made when it is first asked for.
    mutable std::unordered_map<PhotoID, std::size_t> indices_;
    std::uint64_t lastID_ = 0;

    std::optional<std::filesystem::path> location_;
    /// Counts changes; the one that is on the disk.
    std::uint64_t version_ = 0;
    std::uint64_t savedVersion_ = 0;
    bool isSavingScheduled_ = false;
    bool isInConflict_ = false;
    bool isFinished_ = false;
    std::function<std::optional<PhotoFacts>(PhotoID)> knownFacts_;
    /// Used by the work at the front of `diskWork_` alone.
    const std::shared_ptr<DocumentDisk> disk_;
    std::deque<DiskWork> diskWork_;
    bool isDiskAtWork_ = false;
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
    Background background_;
};

} // namespace stillora::window
