#include "platform/foundation/PluralForms.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace platform {

namespace {

/// Longer expressions and deeper ones are in no language's catalogue.
constexpr size_t kMaxLength = 1000;
constexpr int kMaxDepth = 50;

/// Works an expression out while reading it. What cannot be read has no value.
class Evaluation final {
public:
    Evaluation(std::string_view text, uint64_t number) : rest_(text), number_(number) {}

    std::optional<uint64_t> value()
    {
        const uint64_t result = choice();
        skipBlanks();
        return isFaulty_ || !rest_.empty() ? std::nullopt : std::optional(result);
    }

private:
    struct Operator {
        std::string_view sign;
        int strength;
        uint64_t (*apply)(uint64_t, uint64_t);
    };
    // Longer signs stand before those that they begin with.
    static constexpr std::array<Operator, 13> kOperators{{
        {"||", 1, [](uint64_t a, uint64_t b) -> uint64_t { return (a != 0) || (b != 0); }},
        {"&&", 2, [](uint64_t a, uint64_t b) -> uint64_t { return (a != 0) && (b != 0); }},
        {"==", 3, [](uint64_t a, uint64_t b) -> uint64_t { return a == b; }},
        {"!=", 3, [](uint64_t a, uint64_t b) -> uint64_t { return a != b; }},
        {"<=", 4, [](uint64_t a, uint64_t b) -> uint64_t { return a <= b; }},
        {">=", 4, [](uint64_t a, uint64_t b) -> uint64_t { return a >= b; }},
        {"<", 4, [](uint64_t a, uint64_t b) -> uint64_t { return a < b; }},
        {">", 4, [](uint64_t a, uint64_t b) -> uint64_t { return a > b; }},
        {"+", 5, [](uint64_t a, uint64_t b) { return a + b; }},
        {"-", 5, [](uint64_t a, uint64_t b) { return a - b; }},
        {"*", 6, [](uint64_t a, uint64_t b) { return a * b; }},
        {"/", 6, [](uint64_t a, uint64_t b) { return b == 0 ? 0 : a / b; }},
        {"%", 6, [](uint64_t a, uint64_t b) { return b == 0 ? 0 : a % b; }},
    }};

    void skipBlanks() { rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t"), rest_.size())); }

    bool take(std::string_view sign)
    {
        skipBlanks();
        if (!rest_.starts_with(sign))
            return false;
        rest_.remove_prefix(sign.size());
        return true;
    }

    uint64_t fault()
    {
        isFaulty_ = true;
        rest_ = {};
        return 0;
    }

    uint64_t choice()
    {
        if (++depth_ > kMaxDepth)
            return fault();
        uint64_t result = operation(1);
        if (take("?")) {
            const uint64_t then = choice();
            if (!take(":"))
                return fault();
            const uint64_t otherwise = choice();
            result = result != 0 ? then : otherwise;
        }
        --depth_;
        return result;
    }

    const Operator* takeOperator(int weakest)
    {
        for (const Operator& each : kOperators)
            if (each.strength >= weakest && take(each.sign))
                return &each;
        return nullptr;
    }

    uint64_t operation(int weakest)
    {
        uint64_t left = operand();
        while (const Operator* const found = takeOperator(weakest))
            left = found->apply(left, operation(found->strength + 1));
        return left;
    }

    uint64_t operand()
    {
        if (take("!")) {
            if (++depth_ > kMaxDepth)
                return fault();
            const uint64_t value = operand();
            --depth_;
            return static_cast<uint64_t>(value == 0);
        }
        if (take("(")) {
            const uint64_t inner = choice();
            return take(")") ? inner : fault();
        }
        if (take("n"))
            return number_;
        const size_t digits = std::min(rest_.find_first_not_of("0123456789"), rest_.size());
        if (digits == 0 || digits > 9)
            return fault();
        const auto value = static_cast<uint64_t>(std::stoul(std::string(rest_.substr(0, digits))));
        rest_.remove_prefix(digits);
        return value;
    }

    std::string_view rest_;
    const uint64_t number_;
    int depth_ = 0;
    bool isFaulty_ = false;
};

} // namespace

PluralForms::PluralForms(std::string_view header)
{
    static constexpr std::string_view kField = "Plural-Forms:";
    static constexpr std::string_view kExpression = "plural=";
    const size_t field = header.find(kField);
    if (field == std::string_view::npos)
        return;
    std::string_view line = header.substr(field + kField.size());
    line = line.substr(0, line.find('\n'));
    // "nplurals=" ends with the same letters but one.
    const size_t start = line.rfind(kExpression);
    if (start == std::string_view::npos)
        return;
    line.remove_prefix(start + kExpression.size());
    line = line.substr(0, line.find(';'));
    if (line.size() <= kMaxLength && Evaluation(line, 0).value())
        expression_ = line;
}

uint64_t PluralForms::formOf(uint64_t number) const
{
    return Evaluation(expression_, number).value().value_or(0);
}

} // namespace platform
