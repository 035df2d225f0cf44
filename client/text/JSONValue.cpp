#include "client/text/JSONValue.h"

#include "client/text/LocalizedText.h"
#include "platform/foundation/NSString.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <unordered_set>

namespace stillora {

/// One reading of a text from its start to its end.
class JSONReading final {
public:
    JSONReading(std::string_view text, JSONValue::Fault& fault) : text_(text), fault_(fault) {}

    std::optional<JSONValue> whole()
    {
        if (platform::stringByReplacingInvalidUTF8(std::string(text_)) != text_)
            return refuse(localized("it is no UTF-8"));
        auto value = read(0);
        skipBlanks();
        if (value && place_ < text_.size())
            return refuse(localized("something follows after the end of the value"));
        return value;
    }

private:
    static constexpr int kDeepest = 32;

    std::nullopt_t refuse(std::string reason)
    {
        fault_ = {place_, std::move(reason)};
        return std::nullopt;
    }

    std::nullopt_t refuseHere()
    {
        return refuse(place_ < text_.size() ? localized("this is no JSON") : localized("the text ends too early"));
    }

    void skipBlanks() { place_ = std::min(text_.find_first_not_of(" \t\r\n", place_), text_.size()); }

    bool take(std::string_view word)
    {
        if (!text_.substr(place_).starts_with(word))
            return false;
        place_ += word.size();
        return true;
    }

    std::optional<JSONValue> read(int depth)
    {
        skipBlanks();
        if (depth > kDeepest)
            return refuse(localized("it is nested too deeply"));
        JSONValue value;
        if (take("{"))
            return readObject(depth);
        if (take("["))
            return readList(depth);
        if (take("\"")) {
            auto text = readText();
            if (!text)
                return std::nullopt;
            value.content_ = *std::move(text);
            return value;
        }
        if (take("null"))
            return value;
        if (const bool isTrue = take("true"); isTrue || take("false")) {
            value.content_ = isTrue;
            return value;
        }
        return readNumber();
    }

    std::optional<JSONValue> readNumber()
    {
        const size_t end = std::min(text_.find_first_not_of("+-.0123456789eE", place_), text_.size());
        const std::string_view digits = text_.substr(place_, end - place_);
        const std::string_view whole = digits.substr(digits.starts_with('-') ? 1 : 0);
        double number = 0;
        const auto [last, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        const bool hasLeadingZero = whole.size() > 1 && whole[0] == '0' && whole[1] >= '0' && whole[1] <= '9';
        const bool isBare = whole.empty() || whole[0] < '0' || whole[0] > '9' || whole.back() == '.' ||
                            whole.find(".e") != std::string_view::npos || whole.find(".E") != std::string_view::npos;
        if (failure != std::errc() || last != digits.data() + digits.size() || hasLeadingZero || isBare)
            return refuseHere();
        place_ = end;
        JSONValue value;
        value.content_ = number;
        return value;
    }

    std::optional<JSONValue> readList(int depth)
    {
        JSONValue::List list;
        skipBlanks();
        if (!take("]"))
            do {
                auto element = read(depth + 1);
                if (!element)
                    return std::nullopt;
                list.push_back(*std::move(element));
                skipBlanks();
                if (take("]"))
                    break;
                if (!take(","))
                    return refuseHere();
            } while (true);
        JSONValue value;
        value.content_ = std::move(list);
        return value;
    }

    std::optional<JSONValue> readObject(int depth)
    {
        JSONValue::Object object;
        std::unordered_set<std::string> names;
        skipBlanks();
        if (!take("}"))
            do {
                skipBlanks();
                const size_t start = place_;
                if (!take("\""))
                    return refuseHere();
                auto name = readText();
                if (!name)
                    return std::nullopt;
                if (!names.insert(*name).second) {
                    place_ = start;
                    return refuse(localized("\"{}\" stands there twice", *name));
                }
                skipBlanks();
                if (!take(":"))
                    return refuseHere();
                auto element = read(depth + 1);
                if (!element)
                    return std::nullopt;
                object.emplace_back(*std::move(name), *std::move(element));
                skipBlanks();
                if (take("}"))
                    break;
                if (!take(","))
                    return refuseHere();
            } while (true);
        JSONValue value;
        value.content_ = std::move(object);
        return value;
    }

    /// After its first quotation mark.
    std::optional<std::string> readText()
    {
        std::string text;
        while (place_ < text_.size()) {
            const char c = text_[place_];
            if (c == '"') {
                ++place_;
                return text;
            }
            if (static_cast<unsigned char>(c) < 0x20)
                return refuse(localized("a text holds a control character, which is written with a backslash"));
            if (c != '\\') {
                text += c;
                ++place_;
                continue;
            }
            if (!readEscape(text))
                return std::nullopt;
        }
        return refuseHere();
    }

    bool readEscape(std::string& text)
    {
        constexpr std::string_view kLetters = "\"\\/bfnrt";
        constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
        const char letter = place_ + 1 < text_.size() ? text_[place_ + 1] : '\0';
        if (const size_t found = kLetters.find(letter); found != std::string_view::npos && letter != '\0') {
            text += kMeanings[found];
            place_ += 2;
            return true;
        }
        auto code = readCode();
        if (code && *code >= 0xD800 && *code < 0xDC00) {
            const auto low = readCode();
            code = low && *low >= 0xDC00 && *low < 0xE000
                       ? std::optional(0x10000 + ((*code & 0x3FF) << 10 | (*low & 0x3FF)))
                       : std::nullopt;
        }
        if (!code || *code == 0 || (*code >= 0xD800 && *code < 0xE000)) {
            refuse(localized("a backslash is followed by what stands for no character"));
            return false;
        }
        appendUTF8(*code, text);
        return true;
    }

    /// Of "\u0041".
    std::optional<unsigned> readCode()
    {
        unsigned code = 0;
        const std::string_view digits = text_.substr(place_, 6);
        if (digits.size() < 6 || !digits.starts_with("\\u"))
            return std::nullopt;
        const auto [end, failure] = std::from_chars(digits.data() + 2, digits.data() + 6, code, 16);
        if (failure != std::errc() || end != digits.data() + 6)
            return std::nullopt;
        place_ += 6;
        return code;
    }

    static void appendUTF8(unsigned code, std::string& text)
    {
        const auto tail = [&](int shift) { text += static_cast<char>(0x80 | (code >> shift & 0x3F)); };
        if (code < 0x80) {
            text += static_cast<char>(code);
        } else if (code < 0x800) {
            text += static_cast<char>(0xC0 | code >> 6);
            tail(0);
        } else if (code < 0x10000) {
            text += static_cast<char>(0xE0 | code >> 12);
            tail(6);
            tail(0);
        } else {
            text += static_cast<char>(0xF0 | code >> 18);
            tail(12);
            tail(6);
            tail(0);
        }
    }

    const std::string_view text_;
    JSONValue::Fault& fault_;
    size_t place_ = 0;
};

std::optional<JSONValue> JSONValue::read(std::string_view text, Fault& fault)
{
    return JSONReading(text, fault).whole();
}

const JSONValue* JSONValue::member(std::string_view name) const
{
    const Object* const members = object();
    if (!members)
        return nullptr;
    const auto found = std::ranges::find(*members, name, &Member::first);
    return found == members->end() ? nullptr : &found->second;
}

std::string JSONValue::textOf(std::string_view name) const
{
    const JSONValue* const value = member(name);
    return value && value->text() ? *value->text() : std::string();
}

double JSONValue::numberOf(std::string_view name) const
{
    const JSONValue* const value = member(name);
    return value && value->number() ? *value->number() : 0;
}

int64_t JSONValue::wholeNumberOf(std::string_view name) const
{
    // Beyond it, doubles have gaps.
    constexpr double kMost = int64_t{1} << 53;
    const double number = numberOf(name);
    return std::abs(number) <= kMost && number == std::floor(number) ? static_cast<int64_t>(number) : 0;
}

} // namespace stillora
