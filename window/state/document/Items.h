#pragma once

#include <stillora/Sounds.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace stillora::window {

/// A photo of the document, wherever it stands in it and also while it is removed: undoing brings back the same one. A
/// file that is added twice is two photos.
enum class PhotoID : std::uint64_t {};

/// As `PhotoID`, of a sound.
enum class SoundID : std::uint64_t {};

struct PhotoItem {
    PhotoID id{};
    std::filesystem::path path;
    /// For people: the file's name without its extension.
    std::string title = {};
    /// Why it cannot be used, as the document's item tells; empty where nothing is wrong with that.
    std::string fault = {};
};

struct SoundItem {
    SoundID id{};
    std::filesystem::path path;
    /// The file's name without its extension.
    std::string title = {};
    /// As in `PhotoItem`.
    std::string fault = {};
    /// The part that plays; nothing plays the whole file.
    std::optional<SoundFacts::Selection> selection = {};
};

/// What has become of a list: at `position`, `removed` entries gave way to `added` ones. All others are as they were.
struct ListChange {
    std::size_t position = 0;
    std::size_t removed = 0;
    std::size_t added = 0;

    friend bool operator==(const ListChange&, const ListChange&) = default;
};

/// The smallest change that makes one list of another; nothing where they are equal.
template <typename Entry>
std::optional<ListChange> changeBetween(const std::vector<Entry>& before, const std::vector<Entry>& after)
{
    if (before == after)
        return std::nullopt;
    const std::size_t shorter = before.size() < after.size() ? before.size() : after.size();
    std::size_t front = 0;
    while (front < shorter && before[front] == after[front])
        ++front;
    std::size_t back = 0;
    while (back < shorter - front && before[before.size() - 1 - back] == after[after.size() - 1 - back])
        ++back;
    return ListChange{front, before.size() - front - back, after.size() - front - back};
}

} // namespace stillora::window
