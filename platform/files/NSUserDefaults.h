#pragma once

#include "platform/files/NSURL.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSData.h"
#include "platform/propertylists/NSPropertyListSerialization.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The user's settings: one property list, "defaults.plist" in the product's folder of `$XDG_CONFIG_HOME` (default
/// `~/.config`). Read anew at each look-up, written whole and atomically; a write is visible at once. Any thread.
class NSUserDefaults final {
public:
    static NSUserDefaults& standardUserDefaults();

    /// Where they are kept, whether there are any or not.
    static NSURL fileURL();

    /// Nothing where the key is absent; an unreadable file has no keys.
    std::optional<PropertyList> objectForKey(std::string_view key) const;
    /// Nothing also where the key holds something else.
    std::optional<NSData> dataForKey(std::string_view key) const;
    std::optional<bool> boolForKey(std::string_view key) const;
    /// @return false if the file could not be written; the old one is then untouched
    bool setObjectForKey(const PropertyList& value, std::string_view key);
    bool setDataForKey(const NSData& value, std::string_view key);
    /// @return as when setting one; true also where the key was absent
    bool removeObjectForKey(std::string_view key);

private:
    NSUserDefaults() = default;

    template <typename T>
    std::optional<T> valueForKey(std::string_view key) const;

    mutable Lock lock_;
};

} // namespace platform
