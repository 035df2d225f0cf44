#include "client/batch/BatchForecast.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <optional>
#include <vector>

using namespace stillora;

namespace {

using End = BatchForecast::End;

/// Seconds that movies of 3 to 24 photos took, of 480 to 1080 lines.
constexpr std::array kRecorded{1.72, 1.49, 1.25, 0.61, 0.78, 1.15, 1.25, 1.57, 1.12, 0.61, 0.63, 1.32, 0.77, 1.05,
                               1.15, 0.84, 0.94, 0.51, 0.71, 0.77, 1.02, 2.24, 1.56, 0.96, 1.2,  0.5,  0.71, 0.56,
                               0.78, 1.44, 1.03, 0.83, 1.3,  0.81, 1.02, 1.3,  0.54, 0.68, 1.04, 1.22};
constexpr double kTick = 0.1;

struct Line {
    double seconds = 0;
    End end = End::First;
};

struct Batch {
    std::vector<Line> lines;
    int jobs = 1;
};

/// In an order that is the same each time.
void shuffle(std::vector<Line>& lines, uint64_t seed)
{
    for (size_t i = lines.size(); i > 1; --i) {
        seed = seed * 6364136223846793005 + 1442695040888963407;
        std::swap(lines[i - 1], lines[(seed >> 33) % i]);
    }
}

/// Of these shares of all lines: movies that cannot be made, which is soon seen, and those that are as they were.
Batch batchOf(size_t count, int jobs, double failing, double known, double again, uint64_t seed)
{
    Batch batch{.lines = {}, .jobs = jobs};
    for (size_t i = 0; i < count; ++i) {
        const double place = static_cast<double>(i % 100) / 100;
        const double seconds = kRecorded[i % kRecorded.size()];
        if (place < failing)
            batch.lines.push_back({0.1, End::First});
        else if (place < failing + known)
            batch.lines.push_back({0.01, End::Kept});
        else if (place < failing + known + again)
            batch.lines.push_back({seconds, End::Again});
        else
            batch.lines.push_back({seconds, End::First});
    }
    shuffle(batch.lines, seed);
    return batch;
}

struct Estimate {
    double elapsed = 0;
    /// Of the lines that are made, those that have come to their end.
    double share = 0;
    std::optional<double> left;
};

/// What is told while the lines are made.
std::vector<Estimate> run(const Batch& batch)
{
    const auto isKnown = [](const Line& line) { return line.end != End::First; };
    const auto known = static_cast<size_t>(std::ranges::count_if(batch.lines, isKnown));
    BatchForecast forecast(batch.lines.size() - known, known);
    struct Job {
        double begin = 0;
        double end = 0;
        const Line* line = nullptr;
    };
    std::vector<Job> jobs(static_cast<size_t>(batch.jobs));
    std::vector<Estimate> estimates;
    size_t next = 0;
    size_t ended = 0;
    for (double now = 0; ended < batch.lines.size(); now += kTick) {
        double running = 0;
        for (Job& job : jobs) {
            while (next < batch.lines.size() || job.line) {
                if (!job.line) {
                    const double begin = std::max(job.end, now - kTick);
                    job = {begin, begin + batch.lines[next].seconds, &batch.lines[next]};
                    ++next;
                }
                if (job.end > now)
                    break;
                forecast.ended(job.line->end, Seconds(now));
                ++ended;
                job.line = nullptr;
            }
            if (job.line && job.line->end != End::Kept)
                running += (now - job.begin) / (job.end - job.begin);
        }
        const auto left = forecast.left(running, Seconds(now));
        estimates.push_back({now, static_cast<double>(ended) / static_cast<double>(batch.lines.size()),
                             left ? std::optional(left->count()) : std::nullopt});
    }
    return estimates;
}

/// By how much of what was left the estimate is wrong, where so much was done.
double errorAfter(double share, const std::vector<Estimate>& estimates)
{
    const auto found = std::ranges::find_if(estimates, [&](const Estimate& each) { return each.share >= share; });
    const double truth = estimates.back().elapsed - found->elapsed;
    return found->left ? std::abs(*found->left - truth) / truth : 1;
}

} // namespace

TEST(BatchForecast, IsTrustedAfterATenthAndMoreSoAfterAThird)
{
    for (int jobs = 1; jobs <= 4; ++jobs)
        for (const double failing : {0.0, 0.2})
            for (const auto& [known, again] : {std::pair(0.0, 0.0), {0.3, 0.0}, {0.2, 0.2}})
                for (const uint64_t seed : {1, 2, 3}) {
                    const auto estimates = run(batchOf(440, jobs, failing, known, again, seed));
                    EXPECT_LT(errorAfter(0.1, estimates), 0.30)
                        << jobs << " jobs, " << failing << " " << known << " " << again << ", seed " << seed;
                    EXPECT_LT(errorAfter(1.0 / 3, estimates), 0.15)
                        << jobs << " jobs, " << failing << " " << known << " " << again << ", seed " << seed;
                }
}

TEST(BatchForecast, TellsNothingBeforeSomeMoviesWereMade)
{
    BatchForecast forecast(10, 10);
    for (int i = 0; i < 5; ++i)
        forecast.ended(End::Kept, Seconds(i));
    forecast.ended(End::First, Seconds(6));
    forecast.ended(End::First, Seconds(7));
    EXPECT_FALSE(forecast.left(0, Seconds(8)));
    forecast.ended(End::First, Seconds(9));
    EXPECT_TRUE(forecast.left(0, Seconds(9)));
}

TEST(BatchForecast, EndsWithNothingLeft)
{
    BatchForecast forecast(4, 0);
    for (int i = 1; i <= 4; ++i)
        forecast.ended(End::First, Seconds(i));
    EXPECT_EQ(forecast.left(0, Seconds(4)), Seconds(0));
}

TEST(BatchForecast, FollowsAMachineThatGetsSlower)
{
    BatchForecast forecast(400, 0);
    double now = 0;
    for (int i = 0; i < 100; ++i)
        forecast.ended(End::First, Seconds(now += 1));
    EXPECT_NEAR(forecast.left(0, Seconds(now))->count(), 300, 1);
    for (int i = 0; i < 100; ++i)
        forecast.ended(End::First, Seconds(now += 3));
    EXPECT_NEAR(forecast.left(0, Seconds(now))->count(), 600, 3);
}
