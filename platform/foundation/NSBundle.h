#pragma once

#include "platform/foundation/Lock.h"
#include "platform/foundation/PluralForms.h"

#include <cstdint>
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
    /// English, in which a text that is not known there is written itself. A missing key gives `value`, or the key
    /// itself where that is empty. `table` empty is the default table. Any thread.
    std::string localizedStringForKey(std::string_view key, std::string_view value = "",
                                      std::string_view table = "") const;

    /// The text for so many things, by the language's own forms, from the default table. `one` and `many` are the
    /// English forms, by which a catalogue knows it; they are used where no catalogue has it. Any thread.
    std::string localizedStringForCount(uint64_t count, std::string_view one, std::string_view many) const;

    /// Where translations are looked for, and the gettext domain of the default table; other tables are domains of
    /// their own name. Catalogues are `folder`/LANGUAGE/LC_MESSAGES/DOMAIN.mo. Called once at start, before other
    /// threads run.
    void setLocalizations(std::string folder, std::string domain);
    /// The user's, the best one first; none before `setLocalizations`.
    const std::vector<std::string>& languages() const { return languages_; }

private:
    struct Catalogue {
        PluralForms forms;
        /// A key or a text with several forms has them one after the other, with a NUL between.
        std::map<std::string, std::string, std::less<>> texts;
    };

    NSBundle() = default;
    const Catalogue& catalogue(const std::string& domain, const std::string& language) const;

    std::string folder_;
    std::string domain_;
    std::vector<std::string> languages_;

    mutable Lock lock_;
    /// By "LANGUAGE/DOMAIN"; filled when first asked for.
    mutable std::map<std::string, Catalogue> catalogues_ GUARDED_BY(lock_);
};

} // namespace platform
