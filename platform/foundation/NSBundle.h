#pragma once

#include <string>
#include <string_view>

namespace platform {

/// The program's translated texts, by gettext.
class NSBundle final {
public:
    static NSBundle& mainBundle();

    /// The text of `key` in the user's language. A missing key gives `value`, or the key itself where that is empty.
    /// `table` empty is the default table. Any thread.
    std::string localizedStringForKey(std::string_view key, std::string_view value = "",
                                      std::string_view table = "") const;

    /// Where translations are looked for, and the gettext domain of the default table; other tables are domains of
    /// their own name. Called once at start, before other threads run.
    void setLocalizations(std::string folder, std::string domain);

private:
    NSBundle() = default;
    std::string folder_;
    std::string domain_;
};

} // namespace platform
