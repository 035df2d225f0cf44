#pragma once

#include <filesystem>
#include <optional>

namespace stillora::window {

/// What the window remembers between its starts, in a file of the state folder. A file that cannot be read counts as
/// none, and where it cannot be written nothing is remembered.
class RememberedState final {
public:
    struct Values {
        /// In pixels; 0 where nothing is known.
        int width = 0;
        int height = 0;
        bool isMaximized = false;
        /// Where movies were saved last.
        std::optional<std::filesystem::path> movieFolder;
        /// Where photos and sounds were looked for last.
        std::optional<std::filesystem::path> photoFolder;
        std::optional<std::filesystem::path> musicFolder;
    };

    explicit RememberedState(const std::filesystem::path& folder);

    Values values;
    void save() const;

private:
    const std::filesystem::path file_;
};

} // namespace stillora::window
