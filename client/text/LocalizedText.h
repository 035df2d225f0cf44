#pragma once

#include <stillora/Localization.h>

#include <cstdint>
#include <string>
#include <utility>

#include <fmt/format.h>

namespace stillora {

/// The text in the user's language with its fields filled in. The English text's fields are checked by the compiler;
/// a translation whose fields cannot be filled in is not used.
std::string localizedFormat(fmt::string_view text, fmt::format_args values);
/// As `localizedFormat`, in the form that goes with the number.
std::string localizedFormatForCount(uint64_t count, fmt::string_view one, fmt::string_view many,
                                    fmt::format_args values);

/// A text of a table, which is translated where it is shown: `localized(table[i].text)`. The templates of the
/// translations find it by this.
constexpr const char* translatable(const char* text)
{
    return text;
}

/// A sentence of the program: `localized("{} is no folder", name)`. The text stands in the call as one literal, where
/// the templates of the translations find it.
template <typename... Values>
requires(sizeof...(Values) > 0) std::string localized(fmt::format_string<Values...> text, Values&&... values)
{
    return localizedFormat(text, fmt::make_format_args(values...));
}

/// A text that depends on a number, its first field: `localizedCount(n, "{} photo", "{} photos")`.
template <typename... Values>
std::string localizedCount(uint64_t count, fmt::format_string<uint64_t&, Values...> one,
                           fmt::format_string<uint64_t&, Values...> many, Values&&... values)
{
    return localizedFormatForCount(count, one, many, fmt::make_format_args(count, values...));
}

} // namespace stillora
