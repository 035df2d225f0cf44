#pragma once

#include "client/command/options/CreateOptions.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What the user has chosen once for all movies: "save", "quality", "seconds", "codec", "watermark" and
/// "language". Kept in the user defaults, where the service looks for the save folder, the watermark and the language,
/// too. Never instantiated.
class RememberedSettings final {
public:
    RememberedSettings() = delete;

    /// In the order in which they are listed.
    static const std::vector<std::string>& names();

    /// As it would be typed; nothing where the user has not chosen.
    static std::optional<std::string> value(std::string_view name);

    enum class Outcome { Kept, Refused, NotWritten };
    /// @param text    what the option of that name takes; a folder that is there; "on" or "off" for the watermark;
    /// "de", "en" or "fr"
    /// @param reason  out: why it was not kept
    static Outcome keep(std::string_view name, const std::string& text, std::string& reason);
    /// @return whether it is not kept any more
    static bool forget(std::string_view name);

    /// Takes what was not given on the command line. The save folder and the watermark are found where they count.
    /// @return one sentence for each setting that cannot be used
    static std::vector<std::string> complete(CreateOptions& options);
};

} // namespace stillora
