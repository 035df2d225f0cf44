#include "platform/foundation/InstalledFiles.h"

#include "tests/support/TemporaryFolder.h"

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using platform::InstalledFolder;
using platform::installedPlace;
using platform::installedPlaces;
using platform::programFile;

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

/// Run by a copy of this program, which it replaces as an upgrade does.
TEST(InstalledFilesTest, DISABLED_IsReplacedWhileItRuns)
{
    const fs::path program = fs::canonical("/proc/self/exe");
    EXPECT_EQ(programFile(), program);
    fs::copy_file(program, program.string() + ".new");
    fs::rename(program.string() + ".new", program);
    EXPECT_FALSE(fs::exists(fs::read_symlink("/proc/self/exe")));
    EXPECT_EQ(programFile(), program);
    EXPECT_EQ(installedPlaces(InstalledFolder::Services, "service").front(), program.parent_path() / "service");
    fs::remove(program);
    EXPECT_EQ(programFile(), program);
}

TEST(InstalledFilesTest, ProgramsThatWereReplacedFindWhatLiesBesideThem)
{
    // The last name is that of a file whose place is told with the same words as that of a removed one.
    for (const char* name : {"program", "program (deleted)"}) {
        const TemporaryFolder folder;
        const fs::path copy = folder.path(name);
        fs::copy_file("/proc/self/exe", copy);
        const std::string command = "'" + copy.native() +
                                    "' --gtest_also_run_disabled_tests "
                                    "--gtest_filter=InstalledFilesTest.DISABLED_IsReplacedWhileItRuns >&2";
        EXPECT_EQ(std::system(command.c_str()), 0) << name;
    }
}
