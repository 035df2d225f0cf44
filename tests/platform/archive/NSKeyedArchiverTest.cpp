#include "platform/archive/NSKeyedArchiver.h"
#include "platform/propertylists/NSPropertyListSerialization.h"
#include "tests/support/ArchiveBytes.h"

#include <gtest/gtest.h>

using namespace platform;

namespace {

NSData archiveOf(const ArchivedValue& root)
{
    NSError error;
    const auto data = NSKeyedArchiver::archivedDataWithRootObject(root, &error);
    EXPECT_TRUE(data) << error.localizedDescription;
    return data.value_or(NSData());
}

NSDictionary dictionaryOf(std::vector<std::pair<std::string, ArchivedValue>> entries)
{
    return {std::move(entries), false};
}

const PropertyList::Array& objectsOf(const std::optional<PropertyList>& list)
{
    static const PropertyList::Array kNone;
    const auto* objects = list ? list->objectForKey<PropertyList::Array>("$objects") : nullptr;
    return objects ? *objects : kNone;
}

std::string classNameOf(const PropertyList::Array& objects, const PropertyList& record)
{
    const auto* uid = record.objectForKey<PropertyListUID>("$class");
    const auto* name = uid ? objects.at(uid->value).objectForKey<std::string>("$classname") : nullptr;
    return name ? *name : "";
}

} // namespace

TEST(NSKeyedArchiver, WritesTheFourKeysOfAnArchive)
{
    const auto list = propertyListWithData(archiveOf(dictionaryOf({{"version", std::string("1.0")}})));
    ASSERT_TRUE(list);
    EXPECT_EQ(list->as<PropertyList::Dictionary>()->size(), 4u);
    EXPECT_EQ(*list->objectForKey<int64_t>("$version"), 100000);
    EXPECT_EQ(*list->objectForKey<std::string>("$archiver"), "NSKeyedArchiver");
    EXPECT_EQ(*list->objectForKey("$top")->objectForKey<PropertyListUID>("root"), PropertyListUID{1});
    EXPECT_EQ(*objectsOf(list).at(0).as<std::string>(), "$null");
}

TEST(NSKeyedArchiver, TakesNoMoreRoomThanThePlatformForTheSmallestArchive)
{
    EXPECT_EQ(archiveOf(dictionaryOf({{"version", std::string("1.0")}})).size(), 261u);
}

TEST(NSKeyedArchiver, WritesObjectsInTheOrderTheyAreMet)
{
    const auto list = propertyListWithData(archiveOf(dictionaryOf({
        {"a", std::string("text")},
        {"b", NSDate{1.5}},
        {"c", NSColor{NSColor::Space::Device, 0.4235294117647059, 0.6, 0.25, 1}},
    })));
    const PropertyList::Array& objects = objectsOf(list);
    ASSERT_EQ(objects.size(), 11u);
    using UIDs = std::vector<uint64_t>;
    const auto referencesOf = [&](std::string_view key) {
        UIDs result;
        for (const PropertyList& reference : *objects[1].objectForKey<PropertyList::Array>(key))
            result.push_back(reference.as<PropertyListUID>()->value);
        return result;
    };
    EXPECT_EQ(referencesOf("NS.keys"), (UIDs{2, 3, 4}));
    EXPECT_EQ(referencesOf("NS.objects"), (UIDs{5, 6, 8}));
    EXPECT_EQ(*objects[5].as<std::string>(), "text");
    EXPECT_EQ(*objects[6].objectForKey<double>("NS.time"), 1.5);
    EXPECT_EQ(*objects[7].objectForKey<std::string>("$classname"), "NSDate");
    EXPECT_EQ(*objects[8].objectForKey<int64_t>("NSColorSpace"), 2);
    EXPECT_EQ(*objects[9].objectForKey<std::string>("$classname"), "NSColor");
    EXPECT_EQ(*objects[10].objectForKey<std::string>("$classname"), "NSDictionary");
}

TEST(NSKeyedArchiver, NamesAClassWithThoseItIsMadeFrom)
{
    NSDictionary root = dictionaryOf({{"inner", dictionaryOf({})}});
    root.isMutable = true;
    const auto list = propertyListWithData(archiveOf(root));
    std::vector<std::vector<std::string>> lineages;
    for (const PropertyList& object : objectsOf(list)) {
        if (const auto* classes = object.objectForKey<PropertyList::Array>("$classes")) {
            lineages.emplace_back();
            for (const PropertyList& name : *classes)
                lineages.back().push_back(*name.as<std::string>());
        }
    }
    EXPECT_EQ(lineages, (std::vector<std::vector<std::string>>{{"NSDictionary", "NSObject"},
                                                               {"NSMutableDictionary", "NSDictionary", "NSObject"}}));
}

TEST(NSKeyedArchiver, WritesColoursAsTextWithAZeroByte)
{
    struct Row {
        NSColor color;
        int64_t space;
        std::string_view text;
    };
    for (const Row& row : {
             Row{{NSColor::Space::Device, 108.0 / 255, 0.6, 187.0 / 255, 1}, 2, "0.4235294118 0.6 0.7333333333"},
             Row{{NSColor::Space::Calibrated, 0, 1, 7.043773371e-05, 1}, 1, "0 1 7.043773371e-05"},
             Row{{NSColor::Space::Device, 1, 1, 1, 0.5}, 2, "1 1 1 0.5"},
         }) {
        const auto list = propertyListWithData(archiveOf(row.color));
        const PropertyList& record = objectsOf(list).at(1);
        NSData expected(row.text.begin(), row.text.end());
        expected.push_back(0);
        EXPECT_EQ(*record.objectForKey<NSData>("NSRGB"), expected);
        EXPECT_EQ(*record.objectForKey<int64_t>("NSColorSpace"), row.space);
        EXPECT_EQ(classNameOf(objectsOf(list), record), "NSColor");
    }
}

TEST(NSKeyedArchiver, SharesEqualTextsButNoNumbers)
{
    const auto list = propertyListWithData(archiveOf(dictionaryOf({
        {"a", std::string("same")},
        {"b", std::string("same")},
        {"c", NSNumber(int64_t{1})},
        {"d", NSNumber(true)},
        {"e", NSNumber(int64_t{1})},
    })));
    const auto& values = *objectsOf(list).at(1).objectForKey<PropertyList::Array>("NS.objects");
    const auto uid = [&](size_t index) { return values.at(index).as<PropertyListUID>()->value; };
    EXPECT_EQ(uid(0), uid(1));
    EXPECT_NE(uid(2), uid(3));
    EXPECT_NE(uid(2), uid(4));
    EXPECT_TRUE(objectsOf(list).at(uid(2)).as<int64_t>());
    EXPECT_TRUE(objectsOf(list).at(uid(3)).as<bool>());
}

TEST(NSKeyedArchiver, WritesTheTextOfNilAsARecord)
{
    const NSData data = archiveOf(dictionaryOf({{"title", std::string("$null")}, {"$null", std::string("value")}}));
    const auto list = propertyListWithData(data);
    int texts = 0;
    for (const PropertyList& object : objectsOf(list))
        texts += object.as<std::string>() && *object.as<std::string>() == "$null";
    EXPECT_EQ(texts, 1);
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(data);
    ASSERT_TRUE(root && root->as<NSDictionary>());
    const ArchivedValue* title = root->as<NSDictionary>()->objectForKey("title");
    ASSERT_TRUE(title && title->as<std::string>());
    EXPECT_EQ(*title->as<std::string>(), "$null");
    EXPECT_TRUE(root->as<NSDictionary>()->objectForKey("$null"));
}

TEST(NSKeyedArchiver, KeepsKeysThatBeginWithADollar)
{
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(
        archiveOf(dictionaryOf({{"$class", std::string("a")}, {"$$", std::string("$b")}})));
    ASSERT_TRUE(root && root->as<NSDictionary>());
    EXPECT_EQ(*root->as<NSDictionary>()->objectForKey("$class")->as<std::string>(), "a");
    EXPECT_EQ(*root->as<NSDictionary>()->objectForKey("$$")->as<std::string>(), "$b");
}

TEST(NSKeyedArchiver, ReadsBackEveryKindOfValue)
{
    NSDictionary inner = dictionaryOf({{"deep", std::string("Grüße 😀")}});
    inner.isMutable = true;
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(archiveOf(dictionaryOf({
        {"text", std::string("")},
        {"data", NSData{0, 255}},
        {"true", NSNumber(true)},
        {"one", NSNumber(int64_t{1})},
        {"negative", NSNumber(int64_t{-5'000'000'000})},
        {"huge", NSNumber(UINT64_MAX)},
        {"real", NSNumber(0.1)},
        {"date", NSDate{-1e9}},
        {"colour", NSColor{NSColor::Space::Calibrated, 0.1, 0.2, 0.3, 0.4}},
        {"dictionary", inner},
        {"array", std::vector<ArchivedValue>{std::string("a"), NSNumber(false)}},
    })));
    ASSERT_TRUE(root && root->as<NSDictionary>());
    const NSDictionary& read = *root->as<NSDictionary>();
    EXPECT_FALSE(read.isMutable);
    EXPECT_EQ(*read.objectForKey("text")->as<std::string>(), "");
    EXPECT_EQ(*read.objectForKey("data")->as<NSData>(), (NSData{0, 255}));
    EXPECT_EQ(*read.objectForKey("true")->as<NSNumber>(), NSNumber(true));
    EXPECT_EQ(*read.objectForKey("one")->as<NSNumber>(), NSNumber(int64_t{1}));
    EXPECT_EQ(*read.objectForKey("negative")->as<NSNumber>(), NSNumber(int64_t{-5'000'000'000}));
    EXPECT_EQ(*read.objectForKey("huge")->as<NSNumber>(), NSNumber(UINT64_MAX));
    EXPECT_EQ(*read.objectForKey("real")->as<NSNumber>(), NSNumber(0.1));
    EXPECT_EQ(*read.objectForKey("date")->as<NSDate>(), NSDate{-1e9});
    EXPECT_EQ(*read.objectForKey("colour")->as<NSColor>(), (NSColor{NSColor::Space::Calibrated, 0.1, 0.2, 0.3, 0.4}));
    EXPECT_TRUE(read.objectForKey("dictionary")->as<NSDictionary>()->isMutable);
    EXPECT_EQ(*read.objectForKey("dictionary")->as<NSDictionary>()->objectForKey("deep")->as<std::string>(), "Grüße 😀");
    EXPECT_EQ(read.objectForKey("array")->as<std::vector<ArchivedValue>>()->size(), 2u);
    EXPECT_EQ(read.objectForKey("absent"), nullptr);
}

TEST(NSKeyedArchiver, WritesAnUnknownObjectAsItWasRead)
{
    using namespace archive_bytes;
    // Of two parts, one refers to the object itself.
    const NSData read = archive({
        text("$null"),
        dictionary({{"$class", uid(4)}, {"NS.keys", uids({2})}, {"NS.objects", uids({3})}}),
        text("a"),
        dictionary({{"$class", uid(5)}, {"list", array({uid(6), uid(0), integer(1)})}, {"part", uid(6)}}),
        classRecord({"NSDictionary", "NSObject"}),
        classRecord({"XYZThing", "NSObject"}),
        dictionary({{"$class", uid(5)}, {"owner", uid(3)}}),
    });
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(read);
    ASSERT_TRUE(root);
    const auto list = propertyListWithData(archiveOf(*root));
    const auto& objects = objectsOf(list);
    const auto at = [&](const PropertyList& reference) -> const PropertyList& {
        return objects.at(reference.as<PropertyListUID>()->value);
    };
    const PropertyList& thing = at(objects.at(1).objectForKey<PropertyList::Array>("NS.objects")->at(0));
    EXPECT_EQ(classNameOf(objects, thing), "XYZThing");
    const PropertyList& part = at(*thing.objectForKey("part"));
    EXPECT_EQ(&at(*part.objectForKey("owner")), &thing);
    const auto& items = *thing.objectForKey<PropertyList::Array>("list");
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(&at(items[0]), &part);
    EXPECT_EQ(*items[1].as<PropertyListUID>(), PropertyListUID{0});
    EXPECT_EQ(*items[2].as<int64_t>(), 1);
    EXPECT_EQ(objects.size(), 7u);
}

TEST(NSKeyedArchiver, DoesNotWriteWhatWouldBeLost)
{
    NSError error;
    EXPECT_FALSE(NSKeyedArchiver::archivedDataWithRootObject(std::string("a\xFF"), &error));
    EXPECT_EQ(error.code, kNSFileWriteUnknownError);
    EXPECT_FALSE(NSKeyedArchiver::archivedDataWithRootObject(dictionaryOf({{"a", UnknownObject{"X"}}}), &error));
}
