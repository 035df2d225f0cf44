#include "platform/vips/PictureLibrary.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include <unistd.h>

namespace {

std::vector<std::string> environment()
{
    std::vector<std::string> entries;
    for (char** entry = environ; *entry; ++entry)
        entries.emplace_back(*entry);
    return entries;
}

} // namespace

// Other threads look up theirs while it is loaded, and an environment that grows is moved.
TEST(PictureLibrary, LeavesASettledEnvironmentAlone)
{
    for (const char* name : {"VIPSHOME", "VIPS_NOVECTOR"})
        unsetenv(name);
    platform::settlePictureLibrary();
    const std::vector<std::string> before = environment();
    char** const place = environ;
    ASSERT_TRUE(platform::pictureLibrary());
    EXPECT_EQ(environ, place);
    EXPECT_EQ(environment(), before);
}

TEST(PictureLibrary, BringsNoModulesOfItsOwn)
{
    platform::settlePictureLibrary();
    ASSERT_TRUE(platform::pictureLibrary());
    std::ifstream maps("/proc/self/maps");
    bool isThere = false;
    for (std::string line; std::getline(maps, line);) {
        isThere = isThere || line.find("libvips.so") != line.npos;
        EXPECT_EQ(line.find("vips-modules"), line.npos) << line;
    }
    EXPECT_TRUE(isThere);
}
