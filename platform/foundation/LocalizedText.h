#pragma once

#include <initializer_list>
#include <string>
#include <string_view>

namespace platform {

/// A text that is translated where it is shown: `localized(kTexts[i])`. The templates of the translations find it by
/// this.
constexpr const char* translatable(const char* text)
{
    return text;
}

/// A sentence for people, in the user's language: `localized("{} has no sound track", {name})`. The text stands in the
/// call as one literal, where the templates of the translations find it. Any thread.
///
/// @param values  for the fields, in their order; a translation may put them in another, as "{1}" and "{0}"
std::string localized(std::string_view text, std::initializer_list<std::string_view> values = {});

/// The system's words for an `errno` value, in the user's language. Any thread.
std::string reasonOfErrno(int errnoValue);

} // namespace platform
