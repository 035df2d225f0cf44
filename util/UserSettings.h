#pragma once

#include <optional>
#include <string_view>

/// What the user has chosen once for all, in the user defaults. Never instantiated. Any thread.
class UserSettings final {
public:
    UserSettings() = delete;

    /// @name Keys of the user defaults
    /// @{
    /// The folder that movies are saved in, a bookmark.
    static constexpr std::string_view kDestinationKey = "destinationURL";
    /// Whether frames get the watermark, a boolean.
    static constexpr std::string_view kDrawsWatermarkKey = "drawsWatermark";
    /// The language of texts and of names that are made up, a string: "de".
    static constexpr std::string_view kLanguageKey = "language";
    /// @}

    /// Where movies go if the user has not chosen; "~" is the home folder.
    static constexpr std::string_view kDefaultSaveFolder = "~/Movies/Stillora/";

    /// Whether frames get the watermark; nothing where the user has not said.
    static std::optional<bool> drawsWatermark();

    /// Puts the chosen language before those of the environment. At start, before translations are set up.
    static void applyLanguage();
};
