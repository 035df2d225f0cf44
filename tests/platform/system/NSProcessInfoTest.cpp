#include "platform/system/NSProcessInfo.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

using platform::NSProcessInfo;

TEST(NSProcessInfo, CountsTheConfiguredProcessors)
{
    uint64_t processors = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/sys/devices/system/cpu")) {
        const auto name = entry.path().filename().string();
        if (name.size() > 3 && name.starts_with("cpu") && name.find_first_not_of("0123456789", 3) == std::string::npos)
            ++processors;
    }
    EXPECT_EQ(NSProcessInfo::processInfo().processorCount(), processors);
}

TEST(NSProcessInfo, IsNamedByItsProgramUntilANameIsSet)
{
    auto& info = NSProcessInfo::processInfo();
    EXPECT_EQ(info.processName(), "system_test");
    info.setProcessName("Other");
    EXPECT_EQ(info.processName(), "Other");
    info.setProcessName("");
}

TEST(NSProcessInfo, KeepsWhatWasAskedForAboutItsTermination)
{
    auto& info = NSProcessInfo::processInfo();
    info.disableAutomaticTermination("busy");
    info.disableSuddenTermination();
    EXPECT_EQ(info.termination().automaticTerminationDisabled, 1);
    EXPECT_EQ(info.termination().suddenTerminationDisabled, 1);
    info.setAutomaticTerminationSupportEnabled(true);
    info.enableSuddenTermination();
    info.enableAutomaticTermination("idle");
    const auto termination = info.termination();
    EXPECT_TRUE(termination.automaticTerminationSupportEnabled);
    EXPECT_EQ(termination.automaticTerminationDisabled, 0);
    EXPECT_EQ(termination.suddenTerminationDisabled, 0);
    const std::vector<std::string> expected{"disableAutomaticTermination: busy", "disableSuddenTermination",
                                            "setAutomaticTerminationSupportEnabled: true", "enableSuddenTermination",
                                            "enableAutomaticTermination: idle"};
    EXPECT_EQ(termination.operations, expected);
}

TEST(NSProcessInfo, ForgetsOldOperationsSoThatALongLifeCostsNothing)
{
    auto& info = NSProcessInfo::processInfo();
    for (int i = 0; i < 1000; ++i)
        info.enableAutomaticTermination(std::to_string(i));
    const auto operations = info.termination().operations;
    EXPECT_EQ(operations.size(), NSProcessInfo::Termination::kKept);
    EXPECT_EQ(operations.back(), "enableAutomaticTermination: 999");
}
