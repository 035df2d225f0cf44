#include "platform/system/UserFolders.h"

#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

using namespace platform;

TEST(UserFolders, VideosAreWhereTheEnvironmentOrTheDesktopSays)
{
    const TemporaryFolder home;
    const EnvironmentVariable homeFolder("HOME", home.path());
    const EnvironmentVariable config("XDG_CONFIG_HOME", home.path("config"));
    const EnvironmentVariable none("XDG_VIDEOS_DIR", std::nullopt);
    EXPECT_EQ(videosFolder(), std::nullopt);
    home.makeFile("config/user-dirs.dirs", "XDG_MUSIC_DIR=\"$HOME/Musik\"\nXDG_VIDEOS_DIR=\"$HOME/Meine Filme\"\n");
    EXPECT_EQ(videosFolder(), home.path("Meine Filme"));
    {
        const EnvironmentVariable other("XDG_VIDEOS_DIR", "/srv/films");
        EXPECT_EQ(videosFolder(), "/srv/films");
    }
    for (const std::string& nothing : {home.path(), std::string("films")}) {
        const EnvironmentVariable other("XDG_VIDEOS_DIR", nothing);
        EXPECT_EQ(videosFolder(), std::nullopt) << nothing;
    }
    // How xdg-user-dirs says that a folder is not wanted.
    home.makeFile("config/user-dirs.dirs", "XDG_VIDEOS_DIR=\"$HOME/\"\n");
    EXPECT_EQ(videosFolder(), std::nullopt);
}

TEST(UserFolders, WhatCanBeMadeAgainIsWhereTheEnvironmentSaysOrAtHome)
{
    for (const auto& nothing : {std::optional<std::string>(), std::optional<std::string>("cache")}) {
        const EnvironmentVariable cache("XDG_CACHE_HOME", nothing);
        EXPECT_TRUE(cacheFolder().ends_with("/.cache")) << cacheFolder();
        EXPECT_TRUE(cacheFolder().starts_with("/")) << cacheFolder();
    }
    const EnvironmentVariable cache("XDG_CACHE_HOME", "/srv/cache");
    EXPECT_EQ(cacheFolder(), "/srv/cache");
}
