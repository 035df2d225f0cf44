#pragma once

#include "platform/archive/NSCoder.h"
#include "platform/archive/NSKeyedArchiver.h"
#include "platform/files/NSURL.h"
#include "platform/foundation/AtomicProperty.h"
#include "platform/foundation/NSColor.h"
#include "platform/foundation/NSData.h"
#include "platform/foundation/NSDate.h"
#include "platform/foundation/NSGeometry.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// One photo of a slideshow. A plain value holder; properties may be read on one thread while another sets them.
class MORPhoto : public platform::NSSecureCoding {
public:
    MORPhoto() = default;

    /// Builds an item from a blob made by `saveData`; its file is looked for in the document at `saveLocation`. The
    /// item is of the class that is asked for, so that a subclass loads as itself.
    /// @param error  out, optional: how the archive is damaged; a version or path that does not fit is no error
    /// @return null if the blob is no archive of this version, or names no file below "Resources/"
    template <typename Item = MORPhoto>
    [[nodiscard]] static std::shared_ptr<Item> photoWithSaveData(const std::optional<platform::NSData>& data,
                                                                 const platform::NSURL& saveLocation,
                                                                 platform::NSError* error = nullptr)
    {
        auto item = std::make_shared<Item>();
        return item->loadSaveData(data, saveLocation, error) ? item : nullptr;
    }
    /// The saved form: a keyed archive. Fails for an item without a location or title.
    [[nodiscard]] std::optional<platform::NSData> saveData(platform::NSError* error = nullptr) const;

    /// @return null if a value is of another class than its key's; `error` then names the key
    template <typename Item = MORPhoto>
    [[nodiscard]] static std::shared_ptr<Item> initWithCoder(const platform::NSCoder& coder,
                                                             platform::NSError* error = nullptr)
    {
        auto item = std::make_shared<Item>();
        return item->decode(coder, error) ? item : nullptr;
    }
    /// A location whose file is not there is not encoded.
    void encodeWithCoder(platform::NSCoder& coder) const override;
    std::string className() const override { return "MORPhoto"; }
    static bool supportsSecureCoding() { return true; }

    std::optional<platform::NSURL> photoURL() const { return photoURL_.get(); }
    void setPhotoURL(std::optional<platform::NSURL> url) { photoURL_.set(std::move(url)); }
    std::optional<std::string> title() const { return title_.get(); }
    void setTitle(std::optional<std::string> title) { title_.set(std::move(title)); }
    std::optional<platform::NSDate> dateCreated() const { return dateCreated_.get(); }
    void setDateCreated(std::optional<platform::NSDate> date) { dateCreated_.set(date); }
    /// Of a loaded colour, what can be told in RGB from 0 to 1; unless another is set, it is saved as it was loaded.
    std::optional<platform::NSColor> averageImageColor() const;
    void setAverageImageColor(std::optional<platform::NSColor> color);
    /// Pixels, upright; zero until set.
    platform::CGSize size() const { return size_.get(); }
    void setSize(platform::CGSize size) { size_.set(size); }
    /// Bytes.
    int64_t fileSize() const { return fileSize_; }
    void setFileSize(int64_t bytes) { fileSize_ = bytes; }
    bool isFeatured() const { return isFeatured_; }
    void setIsFeatured(bool isFeatured) { isFeatured_ = isFeatured; }

private:
    [[nodiscard]] bool loadSaveData(const std::optional<platform::NSData>& data, const platform::NSURL& saveLocation,
                                    platform::NSError* error);
    [[nodiscard]] bool decode(const platform::NSCoder& coder, platform::NSError* error);

    platform::AtomicProperty<std::optional<platform::NSURL>> photoURL_;
    platform::AtomicProperty<std::optional<std::string>> title_;
    platform::AtomicProperty<std::optional<platform::NSDate>> dateCreated_;
    platform::AtomicProperty<std::optional<platform::ArchivedValue>> averageImageColor_;
    platform::AtomicProperty<platform::CGSize> size_;
    std::atomic<int64_t> fileSize_{0};
    std::atomic<bool> isFeatured_{false};
};

using MORPhotoPtr = std::shared_ptr<MORPhoto>;
using PhotoList = std::vector<MORPhotoPtr>;
