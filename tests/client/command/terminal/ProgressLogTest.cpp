#include "client/command/terminal/ProgressLog.h"

#include <gtest/gtest.h>

using namespace stillora;

namespace {

using namespace std::chrono_literals;

constexpr ProgressLog::Clock::time_point kStart{1000s};

ProgressLineContent content(std::string title, std::optional<double> fraction = std::nullopt)
{
    return {.title = std::move(title), .fraction = fraction, .count = "", .timeLeft = ""};
}

TEST(ProgressLog, HasALineForEachStage)
{
    ProgressLog log;
    EXPECT_EQ(log.lineFor(content(""), kStart), std::nullopt);
    EXPECT_EQ(log.lineFor(content("Checking", 0.0), kStart), "Checking: 0%");
    EXPECT_EQ(log.lineFor(content("Rendering"), kStart), "Rendering");
    EXPECT_EQ(log.lineFor(content("Rendering"), kStart + 1s), std::nullopt);
}

TEST(ProgressLog, HasALineForEveryTenPerCent)
{
    ProgressLog log;
    EXPECT_EQ(log.lineFor(content("Rendering", 0.05), kStart), "Rendering: 5%");
    EXPECT_EQ(log.lineFor(content("Rendering", 0.09), kStart), std::nullopt);
    EXPECT_EQ(log.lineFor(content("Rendering", 0.11), kStart), "Rendering: 11%");
    EXPECT_EQ(log.lineFor(content("Rendering", 0.19), kStart), std::nullopt);
    EXPECT_EQ(log.lineFor(content("Rendering", 1.0), kStart), "Rendering: 100%");
    EXPECT_EQ(log.lineFor(content("Rendering", 1.0), kStart), std::nullopt);
    EXPECT_EQ(log.lineFor(content("Writing", 0.0), kStart), "Writing: 0%") << "each stage counts anew";
    EXPECT_EQ(log.lineFor(content("Writing", 0.1), kStart), "Writing: 10%");
}

TEST(ProgressLog, SpeaksEveryTenSecondsWhereLittleHappens)
{
    ProgressLog log;
    EXPECT_TRUE(log.lineFor(content("Rendering", 0.05), kStart));
    EXPECT_FALSE(log.lineFor(content("Rendering", 0.06), kStart + 9900ms));
    EXPECT_EQ(log.lineFor(content("Rendering", 0.06), kStart + 10s), "Rendering: 6%");
    EXPECT_FALSE(log.lineFor(content("Rendering", 0.07), kStart + 19s));
    EXPECT_TRUE(log.lineFor(content("Rendering", 0.07), kStart + 20s));
}

TEST(ProgressLog, TellsAllThatIsKnown)
{
    ProgressLog log;
    EXPECT_EQ(log.lineFor({.title = "Ren\ndering", .fraction = 0.4, .count = "16/40", .timeLeft = "0:12 left"}, kStart),
              "Ren?dering: 40%, 16/40, 0:12 left");
}

} // namespace
