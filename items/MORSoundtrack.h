#pragma once

#include "platform/archive/NSCoder.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/AtomicProperty.h"
#include "platform/foundation/NSData.h"
#include "platform/media/AVURLAsset.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// The selected part of a sound file, in seconds from the file's start.
struct SoundtrackSelection {
    double start = 0;
    double end = 0;
    /// `end` minus `start`.
    double length = 0;

    friend bool operator==(const SoundtrackSelection&, const SoundtrackSelection&) = default;
};

/// Marks that nothing was selected, so that the whole file plays; all zeros mean the same.
inline constexpr SoundtrackSelection kNoSelection{-51919.0, -51919.0, -51919.0};

/// One sound file of a slideshow and the selected part of it. Properties may be read on one thread while another sets
/// them; `duration` and `asset` are for one thread at a time.
class MORSoundtrack : public platform::NSSecureCoding {
public:
    MORSoundtrack() = default;

    /// An item of the class that is asked for, so that a subclass is made as itself; so are those below.
    template <typename Item = MORSoundtrack>
    static std::shared_ptr<Item> soundtrackWithURL(const platform::NSURL& url, SoundtrackSelection selection)
    {
        auto item = std::make_shared<Item>();
        item->setSoundtrackURL(url);
        item->set_originalPath(url.path());
        item->setSelection(selection);
        return item;
    }

    /// Builds an item from a blob made by `saveData`; its file is looked for in the document at `saveLocation`.
    /// @param error  out, optional: how the archive is damaged; a version or path that does not fit is no error
    /// @return null if the blob is no archive of this version, or names no file below "Resources/"
    template <typename Item = MORSoundtrack>
    [[nodiscard]] static std::shared_ptr<Item> soundtrackWithSaveData(const std::optional<platform::NSData>& data,
                                                                      const platform::NSURL& saveLocation,
                                                                      platform::NSError* error = nullptr)
    {
        auto saved = readSaveData(data, saveLocation, error);
        if (!saved)
            return nullptr;
        auto item = soundtrackWithURL<Item>(saved->url, saved->selection);
        item->set_originalPath(std::move(saved->originalPath));
        return item;
    }
    /// The saved form: a keyed archive. Fails for an item without a location or original path.
    [[nodiscard]] std::optional<platform::NSData> saveData(platform::NSError* error = nullptr) const;

    /// @return null if one of the three values is missing or of another class than its key's; `error` names the key
    template <typename Item = MORSoundtrack>
    [[nodiscard]] static std::shared_ptr<Item> initWithCoder(const platform::NSCoder& coder,
                                                             platform::NSError* error = nullptr)
    {
        auto item = std::make_shared<Item>();
        return item->decode(coder, error) ? item : nullptr;
    }
    /// A location whose file is not there is not encoded.
    void encodeWithCoder(platform::NSCoder& coder) const override;
    std::string className() const override { return "MORSoundtrack"; }
    static bool supportsSecureCoding() { return true; }

    /// Seconds that the item plays: the selection's length, else the whole file's, measured once a path. Not a number
    /// for a file that cannot be measured.
    double duration() const;
    /// The file, with precise timing; one asset for all items of a file, until many others were asked for. Null without
    /// a location.
    platform::AVURLAssetPtr asset() const;

    std::optional<platform::NSURL> soundtrackURL() const { return soundtrackURL_.get(); }
    void setSoundtrackURL(std::optional<platform::NSURL> url) { soundtrackURL_.set(std::move(url)); }
    std::optional<std::string> _originalPath() const { return originalPath_.get(); }
    void set_originalPath(std::optional<std::string> path) { originalPath_.set(std::move(path)); }
    SoundtrackSelection selection() const { return selection_.get(); }
    void setSelection(SoundtrackSelection selection) { selection_.set(selection); }

private:
    struct SaveData {
        platform::NSURL url;
        SoundtrackSelection selection;
        std::optional<std::string> originalPath;
    };
    [[nodiscard]] static std::optional<SaveData> readSaveData(const std::optional<platform::NSData>& data,
                                                              const platform::NSURL& saveLocation,
                                                              platform::NSError* error);
    [[nodiscard]] bool decode(const platform::NSCoder& coder, platform::NSError* error);

    platform::AtomicProperty<std::optional<platform::NSURL>> soundtrackURL_;
    platform::AtomicProperty<std::optional<std::string>> originalPath_;
    platform::AtomicProperty<SoundtrackSelection> selection_;
};

using MORSoundtrackPtr = std::shared_ptr<MORSoundtrack>;
using SoundtrackList = std::vector<MORSoundtrackPtr>;
