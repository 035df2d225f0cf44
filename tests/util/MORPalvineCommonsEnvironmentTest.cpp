#include "util/MORPalvineCommons.h"

#include "platform/system/LaunchServices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdlib>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

using platform::NSURL;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// The formatter keeps the language of its first use for the life of the process, so it is chosen before any test runs.
const bool isEnglish = setenv("LC_ALL", "en_US.UTF-8", 1) == 0 && unsetenv("LANGUAGE") == 0;

std::string duration(double seconds)
{
    return MORPalvineCommons::soundtrackDurationStringForTimeInterval(seconds);
}

} // namespace

TEST(MORPalvineCommonsDuration, RoundsToWholeSecondsHalvesToEven)
{
    ASSERT_TRUE(isEnglish);
    EXPECT_EQ(duration(65.4), "1 minute, 5 seconds");
    EXPECT_EQ(duration(2.5), "2 seconds");
    EXPECT_EQ(duration(3.5), "4 seconds");
    EXPECT_EQ(duration(59.5), "1 minute");
    EXPECT_EQ(duration(0.5), "0 seconds");
    EXPECT_EQ(duration(1), "1 second");
}

TEST(MORPalvineCommonsDuration, TellsHoursInMinutes)
{
    EXPECT_EQ(duration(3725), "62 minutes, 5 seconds");
    EXPECT_EQ(duration(3600), "60 minutes");
}

TEST(MORPalvineCommonsDuration, TellsNegativeTimes)
{
    EXPECT_EQ(duration(-0.4), "0 seconds");
    EXPECT_EQ(duration(-65.4), "-1 minute, 5 seconds");
}

TEST(MORPalvineCommonsDuration, SurvivesWhatIsNoTime)
{
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(duration(std::nan("")), "0 seconds");
    EXPECT_EQ(duration(-std::nan("")), "0 seconds");
    EXPECT_EQ(duration(infinity), "0 seconds");
    EXPECT_EQ(duration(-infinity), "0 seconds");
    EXPECT_EQ(duration(std::numeric_limits<double>::max()), "153,722,867,280,912,930 minutes, 7 seconds");
    EXPECT_EQ(duration(-std::numeric_limits<double>::max()), "-153,722,867,280,912,930 minutes, 8 seconds");
    EXPECT_EQ(duration(std::numeric_limits<double>::denorm_min()), "0 seconds");
}

TEST(MORPalvineCommonsDuration, MayBeAskedForByManyThreads)
{
    std::vector<std::thread> threads;
    std::vector<std::string> texts(8);
    for (size_t i = 0; i < texts.size(); ++i)
        threads.emplace_back([&texts, i] { texts[i] = duration(static_cast<double>(60 * (i + 2) + 2)); });
    for (std::thread& thread : threads)
        thread.join();
    for (size_t i = 0; i < texts.size(); ++i)
        EXPECT_EQ(texts[i], std::to_string(i + 2) + " minutes, 2 seconds");
}

namespace {

/// Knows the applications it is given, and what is wrong with some.
class PretendedLaunchServices final : public platform::LaunchServices {
public:
    std::optional<std::vector<NSURL>> applications;
    std::vector<NSURL> unreadable;
    std::vector<NSURL> notExecutable;
    /// How many are looked at in the same moment at least, where that many may be.
    size_t expectedAtOnce = 1;

    std::optional<std::vector<NSURL>> copyApplicationURLsForURL(const NSURL& file,
                                                                platform::LSRolesMask roles) const override
    {
        askedFor = file.absoluteString();
        askedRole = roles;
        return applications;
    }
    bool isReadable(const NSURL& application) const override
    {
        std::unique_lock lock(mutex_);
        ++looking_;
        arrived_.notify_all();
        arrived_.wait_for(lock, std::chrono::seconds(30), [&] { return looking_ >= expectedAtOnce; });
        mostAtOnce = std::max(mostAtOnce, looking_);
        return std::ranges::find(unreadable, application) == unreadable.end();
    }
    bool isExecutable(const NSURL& application) const override
    {
        return std::ranges::find(notExecutable, application) == notExecutable.end();
    }
    std::optional<Application> applicationAtURL(const NSURL&) const override { return std::nullopt; }

    mutable std::string askedFor;
    mutable platform::LSRolesMask askedRole = platform::LSRolesMask::All;
    mutable size_t mostAtOnce = 0;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    mutable size_t looking_ = 0;
};

NSURL urlOf(const std::string& text)
{
    const auto url = NSURL::URLWithString(text);
    EXPECT_TRUE(url) << text;
    return url.value_or(NSURL::fileURLWithPath("/"));
}

std::vector<NSURL> urlsOf(const std::vector<std::string>& texts)
{
    std::vector<NSURL> urls;
    for (const std::string& text : texts)
        urls.push_back(urlOf(text));
    return urls;
}

const NSURL kMovie = NSURL::fileURLWithPath("/Movies/Trip.mov", false);

/// What is offered of these applications, as texts.
std::vector<std::string> offered(const PretendedLaunchServices& services)
{
    std::vector<std::string> texts;
    const auto urls = MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(kMovie, services);
    EXPECT_TRUE(urls);
    for (const NSURL& url : urls.value_or(std::vector<NSURL>()))
        texts.push_back(url.absoluteString());
    return texts;
}

std::vector<std::string> offered(const std::vector<std::string>& applications)
{
    PretendedLaunchServices services;
    services.applications = urlsOf(applications);
    return offered(services);
}

} // namespace

TEST(MORPalvineCommonsApplications, AreNoneForNoURL)
{
    PretendedLaunchServices services;
    services.applications = urlsOf({"file:///Applications/Paint.app/"});
    EXPECT_EQ(MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(std::nullopt, services), std::nullopt);
    EXPECT_EQ(services.askedFor, "");
}

TEST(MORPalvineCommonsApplications, AreThoseThatMayEditTheFile)
{
    PretendedLaunchServices services;
    services.applications = urlsOf({"file:///Applications/Paint.app/"});
    EXPECT_THAT(offered(services), ElementsAre("file:///Applications/Paint.app/"));
    EXPECT_EQ(services.askedFor, "file:///Movies/Trip.mov");
    EXPECT_EQ(static_cast<int>(services.askedRole), 4);
}

TEST(MORPalvineCommonsApplications, AreNoneAndNotAnEmptyListWhereTheDesktopKnowsNone)
{
    PretendedLaunchServices services;
    EXPECT_EQ(MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(kMovie, services), std::nullopt);
    services.applications = urlsOf({"file:///Applications/Stillora.app/"});
    EXPECT_EQ(MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(kMovie, services), std::vector<NSURL>());
}

TEST(MORPalvineCommonsApplications, LeaveOutTheProductItselfAnywhereInAPath)
{
    EXPECT_THAT(
        offered({"file:///Applications/Stillora.app/", "file:///Applications/Stillora.app/Copy.app/",
                 "file:///Applications/OldStillora.app.backup/Tool.app/", "file:///Applications/stillora.app/"}),
        ElementsAre("file:///Applications/stillora.app/"));
}

TEST(MORPalvineCommonsApplications, LeaveOutVolumesReachedThroughAHost)
{
    EXPECT_THAT(offered({"file://localhost/Volumes/Disk/Paint.app/", "file:///Volumes/Disk/Paint.app/",
                         "file:///srv/localhost/Volumes/Tool.app/", "file://localhost/Applications/Zoom.app/"}),
                ElementsAre("file:///Volumes/Disk/Paint.app/", "file://localhost/Applications/Zoom.app/"));
}

TEST(MORPalvineCommonsApplications, AreKeptOnAVolumeOnlyIfReadableAndExecutable)
{
    PretendedLaunchServices services;
    services.applications = urlsOf({"file:///Volumes/A.app/", "file:///Volumes/B.app/", "file:///Volumes/C.app/"});
    services.unreadable = urlsOf({"file:///Volumes/A.app/"});
    services.notExecutable = urlsOf({"file:///Volumes/C.app/"});
    EXPECT_THAT(offered(services), ElementsAre("file:///Volumes/B.app/"));
}

TEST(MORPalvineCommonsApplications, AreSortedByTheirEscapedNamesWithoutRegardToCase)
{
    EXPECT_THAT(offered({"file:///Applications/Zeta.app/", "file:///Other/alpha.app/", "file:///Applications/Beta.app/",
                         "file:///Applications/Beta%20Tool.app/"}),
                ElementsAre("file:///Other/alpha.app/", "file:///Applications/Beta%20Tool.app/",
                            "file:///Applications/Beta.app/", "file:///Applications/Zeta.app/"));
    EXPECT_THAT(
        offered({"file:///a2.desktop", "file:///A10.desktop", "file:///a_.desktop", "file:///%C3%A4.desktop"}),
        ElementsAre("file:///%C3%A4.desktop", "file:///A10.desktop", "file:///a2.desktop", "file:///a_.desktop"))
        << "no numbers, no rules of a language; and an underscore before letters";
}

TEST(MORPalvineCommonsApplications, AreAllLeftOutThatEqualOneThatIs)
{
    PretendedLaunchServices services;
    services.applications = urlsOf({"file:///A.app/", "file:///B.app/", "file:///A.app/"});
    services.unreadable = urlsOf({"file:///A.app/"});
    EXPECT_THAT(offered(services), ElementsAre("file:///B.app/"));
}

TEST(MORPalvineCommonsApplications, AreLookedAtSeveralAtOnce)
{
    PretendedLaunchServices services;
    services.applications = urlsOf({"file:///A.app/", "file:///B.app/", "file:///C.app/", "file:///D.app/"});
    services.unreadable = *services.applications;
    services.expectedAtOnce = 2;
    EXPECT_THAT(offered(services), IsEmpty());
    EXPECT_GE(services.mostAtOnce, 2u);
}
