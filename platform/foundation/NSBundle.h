#pragma once

#include "platform/foundation/Lock.h"

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace platform {

/// The program's translated texts, read from gettext catalogues. The catalogues are read here and not by the C
/// library, as that one gives no texts at all in the "C" locale, where the user is still to see words and not keys.
class NSBundle final {
public:
    static NSBundle& mainBundle();

    /// The text of `key` in the user's language: the languages of `LANGUAGE`, `LC_ALL`, `LC_MESSAGES` or `LANG`, then
    /// English. A missing key gives `value`, or the key itself where that is empty. `table` empty is the default table.
    /// Any thread.
    std::string localizedStringForKey(std::string_view key, std::string_view value = "",
                                      std::string_view table = "") const;

    /// Where translations are looked for, and the gettext domain of the default table; other tables are domains of
    /// their own name. Catalogues are `folder`/LANGUAGE/LC_MESSAGES/DOMAIN.mo. Called once at start, before other
    /// threads run.
    void setLocalizations(std::string folder, std::string domain);

private:
    using Texts = std::map<std::string, std::string, std::less<>>;

    NSBundle() = default;
    const Texts& textsOfDomain(const std::string& domain, const std::string& language) const;

    std::string folder_;
    std::string domain_;
    std::vector<std::string> languages_;

    mutable Lock lock_;
    /// By "LANGUAGE/DOMAIN"; filled when first asked for.
    mutable std::map<std::string, Texts> catalogues_ GUARDED_BY(lock_);
};

} // namespace platform
