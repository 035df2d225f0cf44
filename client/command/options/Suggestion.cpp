#include "client/command/options/Suggestion.h"

#include "client/text/LocalizedText.h"

#include <algorithm>
#include <numeric>

#include <fmt/format.h>

namespace stillora {

namespace {

/// How many letters have to be changed, added, left out, or swapped with their neighbours.
size_t distance(std::string_view one, std::string_view other)
{
    std::vector<size_t> beforeLast(other.size() + 1);
    std::vector<size_t> last(other.size() + 1);
    std::vector<size_t> row(other.size() + 1);
    std::iota(last.begin(), last.end(), size_t{0});
    for (size_t i = 1; i <= one.size(); ++i) {
        row[0] = i;
        for (size_t j = 1; j <= other.size(); ++j) {
            const bool isSame = one[i - 1] == other[j - 1];
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (isSame ? 0 : 1)});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1])
                row[j] = std::min(row[j], beforeLast[j - 2] + 1);
        }
        std::swap(beforeLast, last);
        std::swap(last, row);
    }
    return last[other.size()];
}

} // namespace

std::string withSuggestion(const std::string& fault, std::string_view typed, const std::vector<std::string>& names,
                           std::string_view prefix)
{
    // Longer words are no names that were mistyped.
    constexpr size_t kLongest = 40;
    if (typed.size() < 2 || typed.size() > kLongest)
        return fault;
    const std::string* nearest = nullptr;
    size_t least = typed.size() < 5 ? 2 : 3;
    for (const std::string& name : names)
        if (const size_t away = distance(typed, name); away < least) {
            least = away;
            nearest = &name;
        }
    return nearest ? localized("{}, did you mean {}?", fault, std::string(prefix) + *nearest) : fault;
}

} // namespace stillora
