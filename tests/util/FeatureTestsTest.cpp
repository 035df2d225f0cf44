#include "util/FeatureTests.h"

#include "platform/system/NSClassRegistry.h"
#include "util/MORPalvineCommons.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Writes down what it is asked.
class RecordingRegistry final : public platform::ClassRegistry {
public:
    explicit RecordingRegistry(std::set<std::string, std::less<>> known) : known_(std::move(known)) {}

    bool hasClass(std::string_view name) const override
    {
        probes_.emplace_back(name);
        return known_.contains(name);
    }
    bool instancesRespondToSelector(std::string_view className, std::string_view selector) const override
    {
        probes_.push_back(std::string(className) + " " + std::string(selector));
        return known_.contains(selector);
    }

    std::vector<std::string> takeProbes() { return std::exchange(probes_, {}); }
    void add(const std::string& name) { known_.insert(name); }

private:
    std::set<std::string, std::less<>> known_;
    mutable std::vector<std::string> probes_;
};

} // namespace

TEST(FeatureTests, ProbesMavericksInOrder)
{
    RecordingRegistry registry({"NSAppearance", "NSStackView", "NSURLComponents", "endActivity:"});
    FeatureTests tests(registry);
    EXPECT_TRUE(tests.isAtLeastMavericks());
    EXPECT_THAT(registry.takeProbes(),
                ElementsAre("NSAppearance", "NSStackView", "NSURLComponents", "NSProcessInfo endActivity:"));
}

TEST(FeatureTests, StopsAtTheFirstClassThatIsMissing)
{
    RecordingRegistry none({"NSStackView", "NSURLComponents", "endActivity:"});
    EXPECT_FALSE(FeatureTests(none).isAtLeastMavericks());
    EXPECT_THAT(none.takeProbes(), ElementsAre("NSAppearance"));

    RecordingRegistry first({"NSAppearance", "NSURLComponents", "endActivity:"});
    EXPECT_FALSE(FeatureTests(first).isAtLeastMavericks());
    EXPECT_THAT(first.takeProbes(), ElementsAre("NSAppearance", "NSStackView"));

    RecordingRegistry two({"NSAppearance", "NSStackView", "endActivity:"});
    EXPECT_FALSE(FeatureTests(two).isAtLeastMavericks());
    EXPECT_THAT(two.takeProbes(), ElementsAre("NSAppearance", "NSStackView", "NSURLComponents"));

    RecordingRegistry three({"NSAppearance", "NSStackView", "NSURLComponents"});
    EXPECT_FALSE(FeatureTests(three).isAtLeastMavericks()) << "the process cannot end activities";
}

TEST(FeatureTests, ProbesOneClassForEachOtherFeature)
{
    RecordingRegistry registry({"NSHapticFeedbackManager"});
    FeatureTests tests(registry);
    EXPECT_FALSE(tests.isAtLeastYosemite());
    EXPECT_THAT(registry.takeProbes(), ElementsAre("NSVisualEffectView"));
    EXPECT_TRUE(tests.isAtLeastElCapitan());
    EXPECT_THAT(registry.takeProbes(), ElementsAre("NSHapticFeedbackManager"));
    EXPECT_FALSE(tests.supportsTouchBar());
    EXPECT_THAT(registry.takeProbes(), ElementsAre("NSTouchBar"));
}

TEST(FeatureTests, KeepsTheFirstAnswer)
{
    RecordingRegistry registry({"NSTouchBar"});
    FeatureTests tests(registry);
    EXPECT_TRUE(tests.supportsTouchBar());
    EXPECT_FALSE(tests.isAtLeastMavericks());
    EXPECT_FALSE(tests.isAtLeastYosemite());
    registry.takeProbes();
    for (const char* name : {"NSAppearance", "NSStackView", "NSURLComponents", "endActivity:", "NSVisualEffectView"})
        registry.add(name);
    EXPECT_TRUE(tests.supportsTouchBar());
    EXPECT_FALSE(tests.isAtLeastMavericks());
    EXPECT_FALSE(tests.isAtLeastYosemite());
    EXPECT_THAT(registry.takeProbes(), IsEmpty());
    EXPECT_TRUE(FeatureTests(registry).isAtLeastYosemite()) << "asked anew";
}

TEST(FeatureTests, AsksTheProcessOnceForTheUtilityClass)
{
    EXPECT_FALSE(MORPalvineCommons::isAtLeastMavericks());
    EXPECT_FALSE(MORPalvineCommons::isAtLeastElCapitan());
    EXPECT_FALSE(MORPalvineCommons::supportsTouchBar());
    auto& registry = platform::NSClassRegistry::processRegistry();
    registry.registerClass("NSVisualEffectView");
    registry.registerClass("NSTouchBar");
    EXPECT_TRUE(MORPalvineCommons::isAtLeastYosemite()) << "registered before the first question";
    EXPECT_FALSE(MORPalvineCommons::supportsTouchBar()) << "registered after it";
}
