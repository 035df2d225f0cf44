#include "platform/propertylists/PropertyListXML.h"

#include "platform/foundation/NSString.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <utility>

namespace platform {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text)
{
    const size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::string_view::npos ? std::string_view{}
                                           : text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

/// The whole text as a number.
template <typename Number, typename... Format>
std::optional<Number> numberOf(std::string_view text, Format... format)
{
    Number value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, format...);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(value) : std::nullopt;
}

std::optional<PropertyList> integerOf(std::string_view text)
{
    text = trimmed(text);
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const auto size = numberOf<uint64_t>(text.substr(isHexadecimal ? 2 : 0), isHexadecimal ? 16 : 10);
    if (!size)
        return std::nullopt;
    if (*size <= INT64_MAX)
        return isNegative ? -static_cast<int64_t>(*size) : static_cast<int64_t>(*size);
    if (!isNegative)
        return *size;
    constexpr uint64_t kLeast = uint64_t{1} << 63;
    return *size == kLeast ? std::optional<PropertyList>(INT64_MIN) : std::nullopt;
}

std::optional<PropertyList> realOf(std::string_view text)
{
    text = trimmed(text);
    if (text.starts_with('+'))
        text.remove_prefix(1);
    if (const auto value = numberOf<double>(text))
        return *value;
    return std::nullopt;
}

/// "2001-01-01T00:00:00Z", in UTC.
std::optional<PropertyList> dateOf(std::string_view text)
{
    text = trimmed(text);
    constexpr std::string_view kPattern = "0000-00-00T00:00:00Z";
    if (text.size() != kPattern.size())
        return std::nullopt;
    for (size_t i = 0; i < text.size(); ++i)
        if (kPattern[i] == '0' ? text[i] < '0' || text[i] > '9' : text[i] != kPattern[i])
            return std::nullopt;
    const auto part = [&](size_t at, size_t count) { return *numberOf<int>(text.substr(at, count)); };
    const std::chrono::year_month_day day{std::chrono::year(part(0, 4)),
                                          std::chrono::month(static_cast<unsigned>(part(5, 2))),
                                          std::chrono::day(static_cast<unsigned>(part(8, 2)))};
    if (!day.ok() || part(11, 2) > 23 || part(14, 2) > 59 || part(17, 2) > 60)
        return std::nullopt;
    const std::chrono::seconds time = std::chrono::sys_days(day).time_since_epoch() + std::chrono::hours(part(11, 2)) +
                                      std::chrono::minutes(part(14, 2)) + std::chrono::seconds(part(17, 2));
    return NSDate{static_cast<double>(time.count()) - kTimeIntervalSince1970};
}

/// Base64; blanks may stand anywhere.
std::optional<PropertyList> dataOf(std::string_view text)
{
    constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    NSData data;
    uint32_t bits = 0;
    int count = 0;
    bool hasEnded = false;
    for (const char character : text) {
        if (kBlanks.contains(character))
            continue;
        hasEnded = hasEnded || character == '=';
        const size_t digit = kDigits.find(character);
        if (hasEnded ? character != '=' : digit == std::string_view::npos)
            return std::nullopt;
        if (hasEnded)
            continue;
        bits = bits << 6 | static_cast<uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            data.push_back(static_cast<uint8_t>(bits >> count));
        }
    }
    return data;
}

class XMLReader final {
public:
    explicit XMLReader(std::string_view text) : rest_(text) {}

    std::optional<PropertyList> read()
    {
        auto tag = nextTag();
        const bool isWrapped = tag && tag->name == "plist" && tag->kind == Tag::Begin;
        if (isWrapped)
            tag = nextTag();
        auto value = tag ? valueOf(*tag, 0) : std::nullopt;
        if (value && isWrapped && !isEndOf(nextTag(), "plist"))
            return std::nullopt;
        return value;
    }

private:
    struct Tag {
        enum Kind { Begin, End, Empty };
        std::string_view name;
        Kind kind = Begin;
    };

    static bool isEndOf(const std::optional<Tag>& tag, std::string_view name)
    {
        return tag && tag->kind == Tag::End && tag->name == name;
    }

    /// Takes all up to an end and that; false if it does not come.
    bool skipBehind(std::string_view end)
    {
        const size_t at = rest_.find(end);
        if (at == std::string_view::npos)
            return false;
        rest_.remove_prefix(at + end.size());
        return true;
    }

    /// Blanks, declarations and comments.
    bool skipMarkup()
    {
        for (;;) {
            rest_.remove_prefix(std::min(rest_.find_first_not_of(kBlanks), rest_.size()));
            std::string_view end = ">";
            if (rest_.starts_with("<?")) {
                end = "?>";
            } else if (rest_.starts_with("<!--")) {
                end = "-->";
            } else if (rest_.starts_with("<!DOCTYPE")) {
                // Definitions inside stand in brackets.
                const size_t mark = rest_.find_first_of("[>");
                if (mark != std::string_view::npos && rest_[mark] == '[' && !skipBehind("]"))
                    return false;
            } else {
                return true;
            }
            if (!skipBehind(end))
                return false;
        }
    }

    std::optional<Tag> nextTag()
    {
        if (!skipMarkup() || !rest_.starts_with('<'))
            return std::nullopt;
        const size_t end = rest_.find('>');
        if (end == std::string_view::npos)
            return std::nullopt;
        std::string_view inside = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        Tag tag;
        if (inside.starts_with('/')) {
            tag.kind = Tag::End;
            inside.remove_prefix(1);
        } else if (inside.ends_with('/')) {
            tag.kind = Tag::Empty;
            inside.remove_suffix(1);
        }
        // Attributes follow, which say nothing that counts.
        tag.name = inside.substr(0, inside.find_first_of(kBlanks));
        return tag;
    }

    std::optional<PropertyList> valueOf(const Tag& tag, int depth)
    {
        if (tag.kind == Tag::End || depth > PropertyListBudget::kMaximumDepth || !budget_.takeValue())
            return std::nullopt;
        if (tag.name == "dict")
            return dictionaryOf(tag, depth);
        if (tag.name == "array")
            return arrayOf(tag, depth);
        const auto text = textOf(tag);
        if (!text)
            return std::nullopt;
        if (tag.name == "true" || tag.name == "false")
            return trimmed(*text).empty() ? std::optional<PropertyList>(tag.name == "true") : std::nullopt;
        if (tag.name == "string")
            return *text;
        if (tag.name == "integer")
            return integerOf(*text);
        if (tag.name == "real")
            return realOf(*text);
        if (tag.name == "date")
            return dateOf(*text);
        if (tag.name == "data")
            return dataOf(*text);
        return std::nullopt;
    }

    std::optional<PropertyList> arrayOf(const Tag& tag, int depth)
    {
        PropertyList::Array values;
        while (tag.kind != Tag::Empty) {
            const auto next = nextTag();
            if (isEndOf(next, tag.name))
                break;
            auto value = next ? valueOf(*next, depth + 1) : std::nullopt;
            if (!value)
                return std::nullopt;
            values.push_back(*std::move(value));
        }
        return values;
    }

    std::optional<PropertyList> dictionaryOf(const Tag& tag, int depth)
    {
        PropertyList::Dictionary values;
        while (tag.kind != Tag::Empty) {
            const auto next = nextTag();
            if (isEndOf(next, tag.name))
                break;
            if (!next || next->name != "key" || next->kind == Tag::End)
                return std::nullopt;
            auto key = textOf(*next);
            const auto begin = key ? nextTag() : std::nullopt;
            auto value = begin ? valueOf(*begin, depth + 1) : std::nullopt;
            if (!value)
                return std::nullopt;
            values.insert_or_assign(*std::move(key), *std::move(value));
        }
        if (values.size() == 1 && values.begin()->first == "CF$UID") {
            const auto* number = values.begin()->second.as<int64_t>();
            if (number && *number >= 0)
                return PropertyListUID{static_cast<uint64_t>(*number)};
        }
        return values;
    }

    /// What stands between a tag and its end, in UTF-8 without zeros.
    std::optional<std::string> textOf(const Tag& tag)
    {
        std::string text;
        if (tag.kind == Tag::Empty)
            return text;
        for (;;) {
            const size_t end = rest_.find_first_of("<&");
            if (end == std::string_view::npos || !budget_.take(end))
                return std::nullopt;
            text += rest_.substr(0, end);
            rest_.remove_prefix(end);
            if (rest_.front() == '&') {
                if (!takeCharacter(text))
                    return std::nullopt;
            } else if (rest_.starts_with("<![CDATA[")) {
                const size_t begin = std::string_view("<![CDATA[").size();
                const size_t close = rest_.find("]]>");
                if (close == std::string_view::npos || !budget_.take(close))
                    return std::nullopt;
                text += rest_.substr(begin, close - begin);
                skipBehind("]]>");
            } else if (rest_.starts_with("<!--")) {
                if (!skipBehind("-->"))
                    return std::nullopt;
            } else {
                break;
            }
        }
        const bool isWhole = isEndOf(nextTag(), tag.name) && isValidUTF8(text) && !text.contains('\0');
        return isWhole ? std::optional(std::move(text)) : std::nullopt;
    }

    /// A character that is written by its name or number.
    bool takeCharacter(std::string& text)
    {
        constexpr std::array<std::pair<std::string_view, char>, 5> kNames = {
            {{"lt", '<'}, {"gt", '>'}, {"amp", '&'}, {"quot", '"'}, {"apos", '\''}}};
        constexpr size_t kLongest = 16;
        const size_t end = rest_.substr(0, kLongest).find(';');
        if (end == std::string_view::npos)
            return false;
        std::string_view name = rest_.substr(1, end - 1);
        rest_.remove_prefix(end + 1);
        const auto* const known = std::ranges::find(kNames, name, &std::pair<std::string_view, char>::first);
        if (known != kNames.end()) {
            text += known->second;
            return true;
        }
        if (!name.starts_with('#'))
            return false;
        const bool isHexadecimal = name.starts_with("#x");
        const auto number = numberOf<uint32_t>(name.substr(isHexadecimal ? 2 : 1), isHexadecimal ? 16 : 10);
        if (!number || *number == 0 || *number > 0x10FFFF)
            return false;
        appendUTF8(text, *number);
        return true;
    }

    std::string_view rest_;
    PropertyListBudget budget_;
};

} // namespace

std::optional<PropertyList> readPropertyListXML(std::string_view text)
{
    return XMLReader(text).read();
}

} // namespace platform
