#include "platform/foundation/InstalledFiles.h"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::InstalledFolder;
using platform::installedPlace;
using platform::installedPlaces;

namespace fs = std::filesystem;

// This program lies in the build's "bin", as that of an installation does.
const fs::path kPrefix = fs::canonical("/proc/self/exe").parent_path().parent_path();

TEST(InstalledFilesTest, PlacesAreBesideTheProgramInItsInstallationAndWhereItWasToBe)
{
    EXPECT_THAT(installedPlaces(InstalledFolder::Services, "service"),
                testing::ElementsAre(kPrefix / "bin/service", kPrefix / INSTALLED_SERVICES / "service",
                                     fs::path(INSTALLED_PREFIX) / INSTALLED_SERVICES / "service"));
}

TEST(InstalledFilesTest, ProgramsOfOthersAreNotTakenForWhatIsShared)
{
    EXPECT_THAT(installedPlaces(InstalledFolder::Shared, "locale"),
                testing::ElementsAre(kPrefix / INSTALLED_SHARED / "locale",
                                     fs::path(INSTALLED_PREFIX) / INSTALLED_SHARED / "locale"));
}

TEST(InstalledFilesTest, EachFolderIsTheOneThatThingsAreInstalledIn)
{
    const auto last = [](InstalledFolder folder) { return fs::path(installedPlaces(folder, "x").back()); };
    EXPECT_EQ(last(InstalledFolder::Modules), fs::path(INSTALLED_PREFIX) / INSTALLED_MODULES / "x");
    EXPECT_EQ(last(InstalledFolder::Models), fs::path(INSTALLED_PREFIX) / INSTALLED_MODELS / "x");
    EXPECT_EQ(last(InstalledFolder::Shared), fs::path(INSTALLED_PREFIX) / INSTALLED_SHARED / "x");
}

TEST(InstalledFilesTest, TheFirstPlaceWhereThereIsSomethingIsTaken)
{
    const std::string program = fs::canonical("/proc/self/exe").filename();
    EXPECT_EQ(installedPlace(InstalledFolder::Modules, program), kPrefix / "bin" / program);
    EXPECT_EQ(installedPlace(InstalledFolder::Shared, "locale"), kPrefix / INSTALLED_SHARED / "locale");
}

TEST(InstalledFilesTest, WhatIsNowhereIsLookedForWhereItWasToBe)
{
    EXPECT_EQ(installedPlace(InstalledFolder::Shared, "absent"),
              fs::path(INSTALLED_PREFIX) / INSTALLED_SHARED / "absent");
}
