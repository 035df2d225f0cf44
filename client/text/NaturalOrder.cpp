#include <stillora/Photos.h>

#include <cstddef>

namespace stillora {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

char lowered(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// The digits that begin at `position`, which moves behind them.
std::string_view takeDigits(std::string_view text, size_t& position)
{
    const size_t first = position;
    while (position < text.size() && isDigit(text[position]))
        ++position;
    return text.substr(first, position - first);
}

std::string_view withoutLeadingZeros(std::string_view digits)
{
    const size_t first = digits.find_first_not_of('0');
    return first == std::string_view::npos ? std::string_view{} : digits.substr(first);
}

/// Negative, zero or positive; numbers of any length.
int compareNumbers(std::string_view a, std::string_view b)
{
    a = withoutLeadingZeros(a);
    b = withoutLeadingZeros(b);
    if (a.size() != b.size())
        return a.size() < b.size() ? -1 : 1;
    return a.compare(b);
}

int compareNaturally(std::string_view a, std::string_view b)
{
    size_t i = 0;
    size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (isDigit(a[i]) && isDigit(b[j])) {
            if (const int order = compareNumbers(takeDigits(a, i), takeDigits(b, j)))
                return order;
            continue;
        }
        const auto left = static_cast<unsigned char>(lowered(a[i++]));
        const auto right = static_cast<unsigned char>(lowered(b[j++]));
        if (left != right)
            return left < right ? -1 : 1;
    }
    if (i < a.size())
        return 1;
    return j < b.size() ? -1 : 0;
}

/// Where the last extension begins, its dot included; the end where there is none.
size_t extensionStart(std::string_view name)
{
    const size_t dot = name.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? name.size() : dot;
}

} // namespace

bool isBeforeInNaturalOrder(std::string_view a, std::string_view b)
{
    const size_t aEnd = extensionStart(a);
    const size_t bEnd = extensionStart(b);
    int order = compareNaturally(a.substr(0, aEnd), b.substr(0, bEnd));
    if (order == 0)
        order = compareNaturally(a.substr(aEnd), b.substr(bEnd));
    if (order == 0)
        order = a.compare(b);
    return order < 0;
}

} // namespace stillora
