#pragma once

#include <optional>

/// What the user has chosen once for all, in the user defaults. Never instantiated. Any thread.
class UserSettings final {
public:
    UserSettings() = delete;

    /// Whether frames get the watermark, by the user default "drawsWatermark"; nothing where the user has not said.
    static std::optional<bool> drawsWatermark();
};
