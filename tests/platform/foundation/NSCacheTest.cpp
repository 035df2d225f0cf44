#include "platform/foundation/NSCache.h"

#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace {

using Text = std::shared_ptr<const std::string>;
using Cache = platform::NSCache<std::string, Text>;

Text text(const char* characters)
{
    return std::make_shared<const std::string>(characters);
}

} // namespace

TEST(NSCache, GivesBackWhatItWasGiven)
{
    Cache cache;
    EXPECT_EQ(cache.objectForKey("a"), nullptr);
    const Text one = text("1");
    cache.setObject(one, "a");
    EXPECT_EQ(cache.objectForKey("a"), one);
    cache.setObject(text("2"), "a");
    EXPECT_EQ(*cache.objectForKey("a"), "2");
    cache.removeObjectForKey("a");
    EXPECT_EQ(cache.objectForKey("a"), nullptr);
}

TEST(NSCache, LetsGoOfWhatWasNotAskedForTheLongest)
{
    Cache cache(2, 0);
    cache.setObject(text("1"), "a");
    cache.setObject(text("2"), "b");
    ASSERT_NE(cache.objectForKey("a"), nullptr);
    cache.setObject(text("3"), "c");
    EXPECT_NE(cache.objectForKey("a"), nullptr);
    EXPECT_EQ(cache.objectForKey("b"), nullptr);
    EXPECT_NE(cache.objectForKey("c"), nullptr);
}

TEST(NSCache, KeepsTheCostOfAllWithinItsLimit)
{
    Cache cache(0, 10);
    cache.setObject(text("1"), "a", 4);
    cache.setObject(text("2"), "b", 4);
    cache.setObject(text("3"), "c", 8);
    EXPECT_EQ(cache.objectForKey("a"), nullptr);
    EXPECT_EQ(cache.objectForKey("b"), nullptr);
    EXPECT_NE(cache.objectForKey("c"), nullptr);
    // One that is replaced costs no more.
    cache.setObject(text("4"), "c", 2);
    cache.setObject(text("5"), "d", 8);
    EXPECT_NE(cache.objectForKey("c"), nullptr);
    EXPECT_NE(cache.objectForKey("d"), nullptr);
}

TEST(NSCache, DoesNotKeepWhatCostsMoreThanAllMay)
{
    Cache cache(0, 10);
    cache.setObject(text("1"), "a", 4);
    cache.setObject(text("2"), "b", 11);
    EXPECT_NE(cache.objectForKey("a"), nullptr);
    EXPECT_EQ(cache.objectForKey("b"), nullptr);
    cache.setObject(text("3"), "a", 11);
    EXPECT_EQ(cache.objectForKey("a"), nullptr) << "the old object no longer stands for the key";
}

TEST(NSCache, CanBeAskedWhileItLetsGo)
{
    Cache cache(1, 0);
    bool wasAsked = false;
    cache.setObject(Text(new std::string("1"),
                         [&](const std::string* last) {
                             cache.removeObjectForKey("none");
                             wasAsked = true;
                             delete last;
                         }),
                    "a");
    cache.setObject(text("2"), "b");
    EXPECT_TRUE(wasAsked);
    cache.removeAllObjects();
    EXPECT_EQ(cache.objectForKey("b"), nullptr);
}

TEST(NSCache, IsForAnyThread)
{
    Cache cache(8, 100);
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread)
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 2000; ++i) {
                const std::string key = std::to_string((i * 7 + thread) % 20);
                if (const Text found = cache.objectForKey(key)) {
                    EXPECT_EQ(*found, key);
                } else {
                    cache.setObject(std::make_shared<const std::string>(key), key, static_cast<uint64_t>(i) % 30);
                }
            }
        });
}
