#pragma once

#include "platform/foundation/Lock.h"
#include "platform/foundation/NSData.h"

#include <optional>
#include <string>
#include <string_view>

namespace platform {

/// The user's settings: one property list, "defaults.plist" in the product's folder of `$XDG_CONFIG_HOME` (default
/// `~/.config`). Read anew at each look-up, written whole and atomically; a write is visible at once. Any thread.
class NSUserDefaults final {
public:
    static NSUserDefaults& standardUserDefaults();

    /// Nothing where the key is absent or holds something else; an unreadable file has no keys.
    std::optional<NSData> dataForKey(std::string_view key) const;
    /// @return false if the file could not be written; the old one is then untouched
    bool setDataForKey(const NSData& value, std::string_view key);
    void removeObjectForKey(std::string_view key);

private:
    NSUserDefaults() = default;
    mutable Lock lock_;
};

} // namespace platform
