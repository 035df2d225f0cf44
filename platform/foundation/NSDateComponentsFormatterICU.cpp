#include "platform/foundation/NSDateComponentsFormatter.h"

#include "platform/foundation/Handle.h"
#include "platform/foundation/NSLocale.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include <unicode/fmtable.h>
#include <unicode/locid.h>
#include <unicode/measfmt.h>
#include <unicode/measunit.h>
#include <unicode/measure.h>
#include <unicode/unistr.h>
#include <unicode/ures.h>

namespace platform {

namespace {

struct Unit {
    NSCalendarUnit flag;
    uint64_t seconds;
    icu::MeasureUnit* (*create)(UErrorCode&);
};

/// The largest first.
constexpr std::array<Unit, 3> kUnits{{
    {kNSCalendarUnitHour, 3600, icu::MeasureUnit::createHour},
    {kNSCalendarUnitMinute, 60, icu::MeasureUnit::createMinute},
    {kNSCalendarUnitSecond, 1, icu::MeasureUnit::createSecond},
}};

/// Whether there are words for the locale itself, or for its language.
bool isKnown(const std::string& locale)
{
    // What all languages have in common knows no words.
    if (locale.empty() || locale == "root")
        return false;
    // Names come from the environment, and become names of files there.
    if (locale.size() > 64 || !std::ranges::all_of(locale, [](char c) {
            return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-';
        }))
        return false;
    UErrorCode status = U_ZERO_ERROR;
    const Handle<UResourceBundle, ures_close> bundle(ures_open(nullptr, locale.c_str(), &status));
    return U_SUCCESS(status) && status != U_USING_DEFAULT_WARNING;
}

icu::Locale firstKnown(const std::vector<std::string>& locales)
{
    for (const std::string& locale : locales)
        if (isKnown(locale))
            return icu::Locale::createCanonical(locale.c_str());
    return icu::Locale::getEnglish();
}

UMeasureFormatWidth widthOf(NSDateComponentsFormatter::UnitsStyle style)
{
    switch (style) {
    case NSDateComponentsFormatter::UnitsStyle::Abbreviated:
        return UMEASFMT_WIDTH_NARROW;
    case NSDateComponentsFormatter::UnitsStyle::Short:
        return UMEASFMT_WIDTH_SHORT;
    case NSDateComponentsFormatter::UnitsStyle::Full:
        break;
    }
    return UMEASFMT_WIDTH_WIDE;
}

} // namespace

class NSDateComponentsFormatter::Words final {
public:
    explicit Words(icu::Locale locale) : locale_(std::move(locale)) {}

    std::optional<std::string> join(const std::vector<icu::Measure>& measures, UnitsStyle style) const
    {
        UErrorCode status = U_ZERO_ERROR;
        const icu::MeasureFormat format(locale_, widthOf(style), status);
        if (U_FAILURE(status))
            return std::nullopt;
        icu::UnicodeString text;
        icu::FieldPosition anywhere(icu::FieldPosition::DONT_CARE);
        format.formatMeasures(measures.data(), static_cast<int32_t>(measures.size()), text, anywhere, status);
        if (U_FAILURE(status))
            return std::nullopt;
        std::string bytes;
        return text.toUTF8String(bytes);
    }

private:
    const icu::Locale locale_;
};

NSDateComponentsFormatter::NSDateComponentsFormatter()
    : words_(std::make_unique<Words>(firstKnown(preferredLanguages())))
{}

NSDateComponentsFormatter::NSDateComponentsFormatter(const std::string& locale)
    : words_(std::make_unique<Words>(firstKnown({locale})))
{}

NSDateComponentsFormatter::~NSDateComponentsFormatter() = default;

std::optional<std::string> NSDateComponentsFormatter::stringFromSeconds(int64_t seconds) const
{
    // Negated as unsigned, as the lowest number has no counterpart.
    uint64_t rest = seconds < 0 ? 0 - static_cast<uint64_t>(seconds) : static_cast<uint64_t>(seconds);
    bool isNegative = seconds < 0;
    const Unit* smallest = nullptr;
    std::vector<icu::Measure> measures;
    const auto add = [&](const Unit& unit, uint64_t count) {
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::MeasureUnit> name(unit.create(status));
        const auto number = static_cast<int64_t>(isNegative ? 0 - count : count);
        isNegative = false;
        if (U_SUCCESS(status))
            measures.emplace_back(icu::Formattable(number), name.release(), status);
        return U_SUCCESS(status);
    };
    for (const Unit& unit : kUnits) {
        if (!(allowedUnits_ & unit.flag))
            continue;
        smallest = &unit;
        const uint64_t count = rest / unit.seconds;
        rest %= unit.seconds;
        if (count > 0 && !add(unit, count))
            return std::nullopt;
    }
    if (!smallest)
        return std::nullopt;
    if (measures.empty()) {
        isNegative = false;
        if (!add(*smallest, 0))
            return std::nullopt;
    }
    return words_->join(measures, unitsStyle_);
}

} // namespace platform
