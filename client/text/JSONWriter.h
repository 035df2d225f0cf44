#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace stillora {

/// Builds one JSON object on one line.
class JSONWriter final {
public:
    JSONWriter& add(std::string_view key, std::string_view value);
    JSONWriter& add(std::string_view key, const char* value) { return add(key, std::string_view(value)); }
    JSONWriter& add(std::string_view key, bool value);
    JSONWriter& add(std::string_view key, int64_t value);
    JSONWriter& add(std::string_view key, int value) { return add(key, static_cast<int64_t>(value)); }
    /// What is no finite number becomes null.
    JSONWriter& add(std::string_view key, double value);
    JSONWriter& addNull(std::string_view key);
    JSONWriter& add(std::string_view key, const JSONWriter& object);
    JSONWriter& add(std::string_view key, const std::vector<JSONWriter>& objects);
    JSONWriter& add(std::string_view key, const std::vector<std::string>& strings);
    /// The members of another object.
    JSONWriter& addAll(const JSONWriter& object);

    /// The object, without a line end.
    std::string text() const { return "{" + members_ + "}"; }

private:
    JSONWriter& addRaw(std::string_view key, std::string_view value);
    std::string members_;
};

} // namespace stillora
