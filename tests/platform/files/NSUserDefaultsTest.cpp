#include "platform/files/NSUserDefaults.h"

#include "platform/propertylists/NSPropertyListSerialization.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace platform;

namespace {

class UserDefaultsTest : public testing::Test {
protected:
    void write(const PropertyList& list)
    {
        const NSData data = dataWithPropertyList(list).value();
        folder_.makeFile("stillora/defaults.plist", {reinterpret_cast<const char*>(data.data()), data.size()});
    }
    PropertyList read() const
    {
        const std::string text = TemporaryFolder::contentsOf(file_);
        return propertyListWithData(NSData(text.begin(), text.end())).value();
    }

    const TemporaryFolder folder_;
    const std::string file_ = folder_.path("stillora/defaults.plist");
    const EnvironmentVariable config_{"XDG_CONFIG_HOME", folder_.path()};
    NSUserDefaults& defaults_ = NSUserDefaults::standardUserDefaults();
};

} // namespace

TEST_F(UserDefaultsTest, HasNothingUnderAnAbsentKey)
{
    EXPECT_EQ(defaults_.dataForKey("destinationURL"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(folder_.path("stillora")));
}

TEST_F(UserDefaultsTest, ShowsAWriteAtOnce)
{
    EXPECT_TRUE(defaults_.setDataForKey({1, 2, 3}, "destinationURL"));
    EXPECT_EQ(defaults_.dataForKey("destinationURL"), (NSData{1, 2, 3}));
    EXPECT_TRUE(defaults_.setDataForKey({}, "destinationURL"));
    EXPECT_EQ(defaults_.dataForKey("destinationURL"), NSData{});
    defaults_.removeObjectForKey("destinationURL");
    EXPECT_EQ(defaults_.dataForKey("destinationURL"), std::nullopt);
}

TEST_F(UserDefaultsTest, HoldsValuesOfEveryKind)
{
    EXPECT_TRUE(defaults_.setObjectForKey(true, "flag"));
    EXPECT_TRUE(defaults_.setObjectForKey(std::string("text"), "name"));
    EXPECT_EQ(defaults_.boolForKey("flag"), true);
    EXPECT_EQ(defaults_.boolForKey("name"), std::nullopt) << "of another kind";
    EXPECT_EQ(defaults_.dataForKey("name"), std::nullopt);
    ASSERT_TRUE(defaults_.objectForKey("name"));
    EXPECT_EQ(*defaults_.objectForKey("name")->as<std::string>(), "text");
    EXPECT_TRUE(defaults_.removeObjectForKey("flag"));
    EXPECT_TRUE(defaults_.removeObjectForKey("flag")) << "none was there any more";
    EXPECT_EQ(defaults_.boolForKey("flag"), std::nullopt);
}

TEST_F(UserDefaultsTest, ReadsTheFileAnew)
{
    EXPECT_TRUE(defaults_.setDataForKey({1}, "key"));
    write(PropertyList::Dictionary{{"key", NSData{2}}});
    EXPECT_EQ(defaults_.dataForKey("key"), NSData{2});
}

TEST_F(UserDefaultsTest, KeepsOtherKeys)
{
    write(PropertyList::Dictionary{{"name", std::string("x")}, {"count", int64_t{-3}}});
    EXPECT_TRUE(defaults_.setDataForKey({1}, "key"));
    const PropertyList list = read();
    ASSERT_TRUE(list.objectForKey<std::string>("name"));
    EXPECT_EQ(*list.objectForKey<std::string>("name"), "x");
    ASSERT_TRUE(list.objectForKey<int64_t>("count"));
    EXPECT_EQ(*list.objectForKey<int64_t>("count"), -3);
    EXPECT_EQ(defaults_.dataForKey("name"), std::nullopt);
}

TEST_F(UserDefaultsTest, ReadsTheXMLFormat)
{
    folder_.makeFile("stillora/defaults.plist",
                     "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                     "<key>key</key><data>AQI=</data></dict></plist>");
    EXPECT_EQ(defaults_.dataForKey("key"), (NSData{1, 2}));
}

TEST_F(UserDefaultsTest, ReplacesADamagedFile)
{
    folder_.makeFile("stillora/defaults.plist", "no property list");
    EXPECT_EQ(defaults_.dataForKey("key"), std::nullopt);
    EXPECT_TRUE(defaults_.setDataForKey({1}, "key"));
    EXPECT_EQ(defaults_.dataForKey("key"), NSData{1});
}

TEST_F(UserDefaultsTest, IsReadableByTheUserAlone)
{
    EXPECT_TRUE(defaults_.setDataForKey({1}, "key"));
    EXPECT_EQ(std::filesystem::status(file_).permissions(), std::filesystem::perms(0600));
}

TEST_F(UserDefaultsTest, LeavesTheFileWhereItCannotWrite)
{
    if (geteuid() == 0)
        GTEST_LOG_(INFO) << "the superuser may write anywhere; a file stands in the way instead";
    folder_.makeFile("stillora", "in the way");
    EXPECT_FALSE(defaults_.setDataForKey({1}, "key"));
    EXPECT_EQ(TemporaryFolder::contentsOf(folder_.path("stillora")), "in the way");
}

TEST_F(UserDefaultsTest, LosesNoWriteOfSeveralThreads)
{
    {
        std::vector<std::jthread> writers;
        for (int i = 0; i < 4; ++i) {
            writers.emplace_back([&, i] {
                for (int j = 0; j < 5; ++j)
                    defaults_.setDataForKey({1}, std::to_string(i) + "-" + std::to_string(j));
            });
        }
    }
    const PropertyList list = read();
    EXPECT_EQ(list.as<PropertyList::Dictionary>()->size(), 20u);
}

TEST(NSUserDefaults, LivesInTheHomeFolderWithoutAConfigFolder)
{
    const TemporaryFolder folder;
    const EnvironmentVariable home("HOME", folder.path());
    const EnvironmentVariable relative("XDG_CONFIG_HOME", "relative");
    EXPECT_TRUE(NSUserDefaults::standardUserDefaults().setDataForKey({1}, "key"));
    EXPECT_TRUE(std::filesystem::exists(folder.path(".config/stillora/defaults.plist")));
}
