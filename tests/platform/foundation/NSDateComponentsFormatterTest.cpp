#include "platform/foundation/NSDateComponentsFormatter.h"

#include "tests/support/EnvironmentVariable.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>

using platform::NSDateComponentsFormatter;

namespace {

constexpr unsigned kMinutesAndSeconds = platform::kNSCalendarUnitMinute | platform::kNSCalendarUnitSecond;

std::string text(const std::string& locale, int64_t seconds, unsigned units = kMinutesAndSeconds,
                 NSDateComponentsFormatter::UnitsStyle style = NSDateComponentsFormatter::UnitsStyle::Full)
{
    NSDateComponentsFormatter formatter(locale);
    formatter.setAllowedUnits(units);
    formatter.setUnitsStyle(style);
    return formatter.stringFromSeconds(seconds).value_or("nothing");
}

/// With a blank that does not break.
constexpr const char* kFrench = "1 minute et 5\u00a0secondes";

/// The text of 65 seconds for a user with these settings.
std::string textOfUser(const char* all, const char* messages, const char* lang, const char* languages)
{
    const auto value = [](const char* text) { return text ? std::optional<std::string>(text) : std::nullopt; };
    const EnvironmentVariable first("LC_ALL", value(all));
    const EnvironmentVariable second("LC_MESSAGES", value(messages));
    const EnvironmentVariable third("LANG", value(lang));
    const EnvironmentVariable fourth("LANGUAGE", value(languages));
    return NSDateComponentsFormatter().stringFromSeconds(65).value_or("nothing");
}

} // namespace

TEST(NSDateComponentsFormatter, LeavesOutUnitsOfWhichThereAreNone)
{
    EXPECT_EQ(text("en", 5), "5 seconds");
    EXPECT_EQ(text("en", 60), "1 minute");
    EXPECT_EQ(text("en", 120), "2 minutes");
    EXPECT_EQ(text("en", 65), "1 minute, 5 seconds");
}

TEST(NSDateComponentsFormatter, TellsNoTimeInTheSmallestUnit)
{
    EXPECT_EQ(text("en", 0), "0 seconds");
    EXPECT_EQ(text("en", 0, platform::kNSCalendarUnitMinute), "0 minutes");
    EXPECT_EQ(text("en", -30, platform::kNSCalendarUnitMinute), "0 minutes");
}

TEST(NSDateComponentsFormatter, TellsHoursInTheLargestUnitThatIsAllowed)
{
    EXPECT_EQ(text("en", 3725), "62 minutes, 5 seconds");
    EXPECT_EQ(text("en", 3725, platform::kNSCalendarUnitSecond), "3,725 seconds");
    EXPECT_EQ(text("en", 3725, kMinutesAndSeconds | platform::kNSCalendarUnitHour), "1 hour, 2 minutes, 5 seconds");
}

TEST(NSDateComponentsFormatter, GroupsDigitsAsTheLanguageDoes)
{
    EXPECT_EQ(text("en", 120005), "2,000 minutes, 5 seconds");
    EXPECT_EQ(text("de", 120005), "2.000 Minuten, 5 Sekunden");
}

TEST(NSDateComponentsFormatter, SpeaksTheLanguageOfItsLocale)
{
    EXPECT_EQ(text("de", 65), "1 Minute, 5 Sekunden");
    EXPECT_EQ(text("fr", 65), kFrench);
    EXPECT_EQ(text("ru", 62), "1 минута 2 секунды");
    EXPECT_EQ(text("ru", 65), "1 минута 5 секунд");
    EXPECT_EQ(text("ja", 65), "1 分 5 秒");
}

TEST(NSDateComponentsFormatter, SpeaksEnglishWhereALocaleIsNotKnown)
{
    for (const char* locale : {"", "root", "tlh", "C", "../../etc/passwd", "\xff\xfe"})
        EXPECT_EQ(text(locale, 65), "1 minute, 5 seconds") << locale;
    EXPECT_EQ(text(std::string(100'000, 'x'), 65), "1 minute, 5 seconds");
}

TEST(NSDateComponentsFormatter, WritesTheSignOnce)
{
    EXPECT_EQ(text("en", -65), "-1 minute, 5 seconds");
    EXPECT_EQ(text("en", -5), "-5 seconds");
}

TEST(NSDateComponentsFormatter, TellsTheLongestTimes)
{
    EXPECT_EQ(text("en", std::numeric_limits<int64_t>::max()), "153,722,867,280,912,930 minutes, 7 seconds");
    EXPECT_EQ(text("en", std::numeric_limits<int64_t>::min()), "-153,722,867,280,912,930 minutes, 8 seconds");
}

TEST(NSDateComponentsFormatter, WritesUnitsInItsStyle)
{
    using Style = NSDateComponentsFormatter::UnitsStyle;
    EXPECT_EQ(text("en", 65, kMinutesAndSeconds, Style::Short), "1 min, 5 sec");
    EXPECT_EQ(text("en", 65, kMinutesAndSeconds, Style::Abbreviated), "1m 5s");
}

TEST(NSDateComponentsFormatter, HasNoTextWithoutAUnit)
{
    EXPECT_EQ(NSDateComponentsFormatter("en").allowedUnits(), 32 + 64 + 128u);
    EXPECT_EQ(text("en", 65, 0), "nothing");
}

TEST(NSDateComponentsFormatter, ChoosesTheUsersLanguageAsOtherTextsDo)
{
    EXPECT_EQ(textOfUser("de_DE.UTF-8", "fr_FR.UTF-8", "en_US.UTF-8", nullptr), "1 Minute, 5 Sekunden");
    EXPECT_EQ(textOfUser(nullptr, "fr_FR.UTF-8", "de_DE.UTF-8", nullptr), kFrench);
    EXPECT_EQ(textOfUser("", "", "de_AT@euro", nullptr), "1 Minute, 5 Sekunden");
    EXPECT_EQ(textOfUser(nullptr, nullptr, "en_US.UTF-8", "tlh:de"), "1 Minute, 5 Sekunden");
    for (const char* plain : {"C", "POSIX", "C.UTF-8", ""})
        EXPECT_EQ(textOfUser(plain, nullptr, nullptr, nullptr), "1 minute, 5 seconds") << plain;
    EXPECT_EQ(textOfUser(nullptr, nullptr, nullptr, "de"), "1 minute, 5 seconds");
}
