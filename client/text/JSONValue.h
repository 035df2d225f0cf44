#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace stillora {

/// A value that was read from JSON (RFC 8259).
class JSONValue final {
public:
    using List = std::vector<JSONValue>;
    using Member = std::pair<std::string, JSONValue>;
    /// In the order of the text; each name stands there once.
    using Object = std::vector<Member>;

    struct Fault {
        /// In bytes from the start of the text.
        std::size_t place = 0;
        /// One sentence, in the user's language.
        std::string reason;
    };

    /// Reads a text that is one value, with nothing but blanks around it. It must be UTF-8, and not nested deeper than
    /// 32 levels; no text in it may hold a zero byte.
    /// @param fault  out: what is wrong
    static std::optional<JSONValue> read(std::string_view text, Fault& fault);

    /// @name The value, if it is of that kind; else null
    /// @{
    const bool* boolean() const { return std::get_if<bool>(&content_); }
    const double* number() const { return std::get_if<double>(&content_); }
    const std::string* text() const { return std::get_if<std::string>(&content_); }
    const List* list() const { return std::get_if<List>(&content_); }
    const Object* object() const { return std::get_if<Object>(&content_); }
    /// @}
    bool isNull() const { return std::holds_alternative<std::monostate>(content_); }

    /// The object's member of that name; null if there is none, or this is no object.
    const JSONValue* member(std::string_view name) const;
    /// The text of that name; empty if there is none.
    std::string textOf(std::string_view name) const;
    /// The number of that name; 0 if there is none.
    double numberOf(std::string_view name) const;
    /// The whole number of that name, from -2^53 to 2^53; 0 if there is none.
    std::int64_t wholeNumberOf(std::string_view name) const;

private:
    friend class JSONReading;

    std::variant<std::monostate, bool, double, std::string, List, Object> content_;
};

} // namespace stillora
