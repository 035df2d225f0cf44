#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace platform {

/// Which of a language's forms goes with a number, as the header of a gettext catalogue says it (GNU gettext manual,
/// "Plural forms"): an expression of C with the variable n.
class PluralForms final {
public:
    /// That of English: one, and any other number.
    PluralForms() = default;
    /// @param header  the text of the empty key; without a "Plural-Forms" that can be read it is as for English
    explicit PluralForms(std::string_view header);

    /// From 0. An expression that divides by zero gives 0.
    uint64_t formOf(uint64_t number) const;

private:
    std::string expression_ = "n != 1";
};

} // namespace platform
