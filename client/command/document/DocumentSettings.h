#pragma once

#include <stillora/Movie.h>

#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// What `stillora document set` changes of a document's settings. Never instantiated.
class DocumentSettings final {
public:
    DocumentSettings() = delete;

    /// In the order in which they are told.
    static const std::vector<std::string>& names();

    /// Reads what an option of the name takes, or "on" and "off". Returns what is wrong, or nothing.
    static std::string read(std::string_view name, const std::string& text, MovieSettings& settings);

    /// Its name in a document's property list.
    static std::string_view key(std::string_view name);

    /// Takes back what was set.
    static void reset(std::string_view name, MovieSettings& settings);
};

} // namespace stillora
