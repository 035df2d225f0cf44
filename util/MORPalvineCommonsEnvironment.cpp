#include "util/MORPalvineCommons.h"

#include "platform/dispatch/NSOperationQueue.h"
#include "platform/foundation/Lock.h"
#include "platform/foundation/NSDateComponentsFormatter.h"
#include "platform/foundation/NSString.h"
#include "platform/system/LaunchServices.h"
#include "platform/system/NSClassRegistry.h"
#include "util/FeatureTests.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <string_view>

using platform::LaunchServices;
using platform::NSDateComponentsFormatter;
using platform::NSURL;

namespace {

FeatureTests& processFeatureTests()
{
    static FeatureTests tests(platform::NSClassRegistry::processRegistry());
    return tests;
}

bool isOffered(const NSURL& application, const LaunchServices& launchServices)
{
    const bool isReadable = launchServices.isReadable(application);
    const bool isExecutable = launchServices.isExecutable(application);
    const std::string text = application.absoluteString();
    return text.find("/localhost/Volumes") == std::string::npos && isReadable && isExecutable &&
           text.find("Stillora.app") == std::string::npos;
}

/// Those not to be offered, looked at all at once, as each takes a look at the disk.
std::vector<NSURL> droppedOf(const std::vector<NSURL>& applications, const LaunchServices& launchServices)
{
    platform::Lock lock;
    std::vector<NSURL> dropped;
    platform::NSOperationQueue queue;
    for (const NSURL& application : applications)
        queue.addOperationWithBlock([&] {
            if (isOffered(application, launchServices))
                return;
            const platform::LockGuard guard(lock);
            dropped.push_back(application);
        });
    queue.waitUntilAllOperationsAreFinished();
    return dropped;
}

/// What applications are sorted by: the last component as it is escaped, so that a blank comes before a full stop.
std::string sortKey(const NSURL& application)
{
    return platform::lowercaseASCII(platform::lastPathComponent(application.absoluteString()));
}

/// Rounded as "%.0f" does it; NaN and infinity become what their texts are as numbers.
int64_t wholeSeconds(double timeInterval)
{
    // Room for the largest number's digits, and its sign.
    std::array<char, std::numeric_limits<double>::max_exponent10 + 4> text{};
    const int length = std::snprintf(text.data(), text.size(), "%.0f", timeInterval);
    return platform::integerValue(std::string_view(text.data(), static_cast<size_t>(length)));
}

} // namespace

bool MORPalvineCommons::isAtLeastMavericks()
{
    return processFeatureTests().isAtLeastMavericks();
}

bool MORPalvineCommons::isAtLeastYosemite()
{
    return processFeatureTests().isAtLeastYosemite();
}

bool MORPalvineCommons::isAtLeastElCapitan()
{
    return processFeatureTests().isAtLeastElCapitan();
}

bool MORPalvineCommons::supportsTouchBar()
{
    return processFeatureTests().supportsTouchBar();
}

std::optional<std::vector<NSURL>>
MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(const std::optional<NSURL>& fileURL)
{
    return URLsOfApplicationsForOpeningFileURL(fileURL, LaunchServices::desktop());
}

std::optional<std::vector<NSURL>>
MORPalvineCommons::URLsOfApplicationsForOpeningFileURL(const std::optional<NSURL>& fileURL,
                                                       const LaunchServices& launchServices)
{
    if (!fileURL)
        return std::nullopt;
    auto applications = launchServices.copyApplicationURLsForURL(*fileURL, platform::LSRolesMask::Editor);
    if (!applications)
        return std::nullopt;
    const std::vector<NSURL> dropped = droppedOf(*applications, launchServices);
    std::erase_if(*applications, [&](const NSURL& each) { return std::ranges::find(dropped, each) != dropped.end(); });
    std::ranges::stable_sort(*applications, {}, sortKey);
    return applications;
}

std::string MORPalvineCommons::soundtrackDurationStringForTimeInterval(double timeInterval)
{
    static platform::Lock lock;
    static NSDateComponentsFormatter formatter;
    const platform::LockGuard guard(lock);
    formatter.setAllowedUnits(platform::kNSCalendarUnitMinute | platform::kNSCalendarUnitSecond);
    formatter.setUnitsStyle(NSDateComponentsFormatter::UnitsStyle::Full);
    return formatter.stringFromSeconds(wholeSeconds(timeInterval)).value_or("");
}
