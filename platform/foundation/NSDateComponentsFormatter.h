#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace platform {

/// Units of a calendar, by the platform's numbers; those that a length of time can be told in whatever the date.
enum NSCalendarUnit : unsigned {
    kNSCalendarUnitHour = 32,
    kNSCalendarUnitMinute = 64,
    kNSCalendarUnitSecond = 128,
};

/// Tells a length of time in the words of a language, "1 minute, 5 seconds". One thread at a time.
class NSDateComponentsFormatter final {
public:
    /// How units are written, by the platform's numbers: "1m 5s", "1 min, 5 sec", "1 minute, 5 seconds".
    enum class UnitsStyle : int { Abbreviated = 1, Short = 2, Full = 3 };

    /// In the first of the user's languages that is known.
    NSDateComponentsFormatter();
    /// In the language of a locale ("de", "pt_BR"); English where it is not known.
    explicit NSDateComponentsFormatter(const std::string& locale);
    ~NSDateComponentsFormatter();
    NSDateComponentsFormatter(const NSDateComponentsFormatter&) = delete;
    NSDateComponentsFormatter& operator=(const NSDateComponentsFormatter&) = delete;

    /// The units that may be used, NSCalendarUnit values added up. The largest takes what larger ones would have taken;
    /// at first hours, minutes and seconds.
    unsigned allowedUnits() const { return allowedUnits_; }
    void setAllowedUnits(unsigned units) { allowedUnits_ = units; }

    UnitsStyle unitsStyle() const { return unitsStyle_; }
    void setUnitsStyle(UnitsStyle style) { unitsStyle_ = style; }

    /// Units of which there are none are left out; of no time at all the smallest is told, "0 seconds". What is less
    /// than the smallest unit is dropped. A negative length has its sign before its first number.
    /// @return nothing if no unit is allowed, or there are no words for it
    std::optional<std::string> stringFromSeconds(int64_t seconds) const;

private:
    class Words;

    std::unique_ptr<Words> words_;
    unsigned allowedUnits_ = kNSCalendarUnitHour | kNSCalendarUnitMinute | kNSCalendarUnitSecond;
    UnitsStyle unitsStyle_ = UnitsStyle::Full;
};

} // namespace platform
