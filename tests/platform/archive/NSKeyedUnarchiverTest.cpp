#include "platform/archive/NSKeyedArchiver.h"
#include "tests/support/ArchiveBytes.h"

#include <gtest/gtest.h>
#include <random>

using namespace platform;
using namespace archive_bytes;

namespace {

NSData bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

NSData bytesOfHex(std::string_view hex)
{
    NSData data;
    std::string digits;
    for (const char character : hex) {
        if (character == ' ')
            continue;
        digits += character;
        if (digits.size() == 2) {
            data.push_back(static_cast<uint8_t>(std::stoi(digits, nullptr, 16)));
            digits.clear();
        }
    }
    return data;
}

/// The dictionary of an archive; empty with a failed test where there is none.
NSDictionary dictionaryIn(const NSData& archived)
{
    NSError error;
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(archived, &error);
    EXPECT_TRUE(root && root->as<NSDictionary>()) << error.localizedDescription;
    return root && root->as<NSDictionary>() ? *root->as<NSDictionary>() : NSDictionary();
}

template <typename T>
std::optional<T> valueIn(const NSDictionary& dictionary, std::string_view key)
{
    const ArchivedValue* value = dictionary.objectForKey(key);
    const T* found = value ? value->as<T>() : nullptr;
    return found ? std::optional(*found) : std::nullopt;
}

void expectCorrupt(const NSData& archived, const char* why)
{
    NSError error;
    EXPECT_FALSE(NSKeyedUnarchiver::unarchiveObjectWithData(archived, &error)) << why;
    EXPECT_EQ(error.domain, kNSCocoaErrorDomain) << why;
    EXPECT_EQ(error.code, kNSCoderReadCorruptError) << why;
}

/// A colour read from a record with these fields.
std::optional<NSColor> colorOf(std::vector<std::pair<std::string, Node>> fields)
{
    fields.emplace_back("$class", uid(2));
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(
        archive({text("$null"), dictionary(std::move(fields)), classRecord({"NSColor", "NSObject"})}));
    const auto* color = root ? root->as<NSColor>() : nullptr;
    return color ? std::optional(*color) : std::nullopt;
}

} // namespace

TEST(NSKeyedUnarchiver, ReadsTheSmallestArchiveByteForByte)
{
    const NSData archived =
        bytesOfHex("62706c6973743030 d4 01020304 0506070a 58 2476657273696f6e 59 246172636869766572 54 24746f70 "
                   "58 246f626a65637473 12 000186a0 5f100f 4e534b657965644172636869766572 d1 08 09 54 726f6f74 80 01 "
                   "a5 0b0c151617 55 246e756c6c d3 0d0e0f 101214 57 4e532e6b657973 5a 4e532e6f626a65637473 "
                   "56 24636c617373 a111 8002 a113 8003 8004 57 76657273696f6e 53 312e30 d2 1819 1a1b "
                   "5a 24636c6173736e616d65 58 24636c6173736573 5c 4e5344696374696f6e617279 a2 1a1c "
                   "58 4e534f626a656374 08 11 1a 24 29 32 37 49 4c 51 53 59 5f 66 6e 79 80 82 84 86 88 8a 92 96 9b a6 "
                   "af bc bf 000000000000 01 01 000000000000001d 0000000000000000 00000000000000c8");
    ASSERT_EQ(archived.size(), 261u);
    EXPECT_EQ(archived, archive(dictionaryObjects({{"version", text("1.0")}})));
    const NSDictionary root = dictionaryIn(archived);
    EXPECT_EQ(root.entries.size(), 1u);
    EXPECT_EQ(valueIn<std::string>(root, "version"), "1.0");
    EXPECT_FALSE(root.isMutable);
}

TEST(NSKeyedUnarchiver, ReadsTheKeysInAnyOrder)
{
    const Node objects = array(dictionaryObjects({{"version", text("1.0")}}));
    const Node version = integer(100000);
    const Node archiver = text("NSKeyedArchiver");
    const Node top = dictionary({{"root", uid(1)}});
    EXPECT_EQ(valueIn<std::string>(
                  dictionaryIn(write(dictionary(
                      {{"$version", version}, {"$objects", objects}, {"$archiver", archiver}, {"$top", top}}))),
                  "version"),
              "1.0");
    EXPECT_EQ(valueIn<std::string>(
                  dictionaryIn(write(dictionary(
                      {{"$version", version}, {"$archiver", archiver}, {"$top", top}, {"$objects", objects}}))),
                  "version"),
              "1.0");
}

TEST(NSKeyedUnarchiver, ReadsTheXMLFormat)
{
    const NSDictionary root = dictionaryIn(
        bytesOf("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>"
                "<key>$version</key><integer>100000</integer><key>$archiver</key><string>NSKeyedArchiver</string>"
                "<key>$top</key><dict><key>root</key><dict><key>CF$UID</key><integer>1</integer></dict></dict>"
                "<key>$objects</key><array><string>$null</string><dict>"
                "<key>NS.keys</key><array><dict><key>CF$UID</key><integer>2</integer></dict></array>"
                "<key>NS.objects</key><array><dict><key>CF$UID</key><integer>3</integer></dict></array>"
                "<key>$class</key><dict><key>CF$UID</key><integer>4</integer></dict></dict>"
                "<string>dateCreated</string><dict><key>NS.time</key><real>509523358.684097</real>"
                "<key>$class</key><dict><key>CF$UID</key><integer>5</integer></dict></dict>"
                "<dict><key>$classname</key><string>NSDictionary</string></dict>"
                "<dict><key>$classname</key><string>NSDate</string></dict></array></dict></plist>"));
    EXPECT_EQ(valueIn<NSDate>(root, "dateCreated"), NSDate{509523358.684097});
}

TEST(NSKeyedUnarchiver, ReadsTextsAndDataThatCouldBeChanged)
{
    std::vector<Node> objects = dictionaryObjects({
        {"inline", dictionary({{"NS.string", text("a")}, {"$class", uid(11)}})},
        {"referred", dictionary({{"NS.string", uid(13)}, {"$class", uid(11)}})},
        {"data", dictionary({{"NS.data", data("\x01\x02")}, {"$class", uid(12)}})},
        {"nil", text("$null")},
    });
    ASSERT_EQ(objects.size(), 11u);
    objects.push_back(classRecord({"NSMutableString", "NSString", "NSObject"}));
    objects.push_back(classRecord({"NSMutableData", "NSData", "NSObject"}));
    objects.push_back(text("b"));
    const NSDictionary root = dictionaryIn(archive(objects));
    EXPECT_EQ(valueIn<std::string>(root, "inline"), "a");
    EXPECT_EQ(valueIn<std::string>(root, "referred"), "b");
    EXPECT_EQ(valueIn<NSData>(root, "data"), (NSData{1, 2}));
    EXPECT_EQ(root.objectForKey("nil"), nullptr);
    EXPECT_EQ(root.entries.size(), 3u);
}

TEST(NSKeyedUnarchiver, ReadsEqualTextsSharedOrNot)
{
    // Both entries refer to object 4, or to one each.
    for (const uint64_t second : {uint64_t{4}, uint64_t{5}}) {
        const NSDictionary root = dictionaryIn(archive({
            text("$null"),
            dictionary({{"NS.keys", uids({2, 3})}, {"NS.objects", uids({4, second})}, {"$class", uid(6)}}),
            text("soundtrackURL"),
            text("originalPath"),
            text("/a.mp3"),
            text("/a.mp3"),
            classRecord({"NSDictionary", "NSObject"}),
        }));
        EXPECT_EQ(valueIn<std::string>(root, "soundtrackURL"), "/a.mp3");
        EXPECT_EQ(valueIn<std::string>(root, "originalPath"), "/a.mp3");
    }
}

TEST(NSKeyedUnarchiver, ReadsTextsOfUTF16)
{
    EXPECT_EQ(valueIn<std::string>(dictionaryIn(archive(dictionaryObjects({{"t", text16(u"Grüße 😀")}}))), "t"),
              "Grüße 😀");
}

TEST(NSKeyedUnarchiver, ReadsNumbersAndBooleans)
{
    const NSDictionary root = dictionaryIn(archive(dictionaryObjects(
        {{"a", boolean(true)}, {"b", integer(1)}, {"c", integer(-7)}, {"d", real(0.5)}, {"e", boolean(false)}})));
    EXPECT_EQ(valueIn<NSNumber>(root, "a"), NSNumber(true));
    EXPECT_EQ(valueIn<NSNumber>(root, "b"), NSNumber(int64_t{1}));
    EXPECT_EQ(valueIn<NSNumber>(root, "c"), NSNumber(int64_t{-7}));
    EXPECT_EQ(valueIn<NSNumber>(root, "d"), NSNumber(0.5));
    EXPECT_EQ(valueIn<NSNumber>(root, "e"), NSNumber(false));
}

TEST(NSKeyedUnarchiver, ReadsColoursOfEverySpace)
{
    using enum NSColor::Space;
    struct Row {
        const char* name;
        std::vector<std::pair<std::string, Node>> fields;
        std::optional<NSColor> color;
    };
    const std::string_view rgb("0.4235294118 0.6 0.7333333333\0", 30);
    for (const Row& row : {
             Row{"device RGB",
                 {{"NSRGB", data(rgb)}, {"NSColorSpace", integer(2)}},
                 NSColor{Device, 0.4235294118, 0.6, 0.7333333333, 1}},
             Row{"calibrated RGB",
                 {{"NSRGB", data("1 0.5 7.043773371e-05 0.25")}, {"NSColorSpace", integer(1)}},
                 NSColor{Calibrated, 1, 0.5, 7.043773371e-05, 0.25}},
             Row{"device white",
                 {{"NSWhite", data("0.25")}, {"NSColorSpace", integer(4)}},
                 NSColor{Device, 0.25, 0.25, 0.25, 1}},
             Row{"calibrated white",
                 {{"NSWhite", data("1 0.5")}, {"NSColorSpace", integer(3)}},
                 NSColor{Calibrated, 1, 1, 1, 0.5}},
             Row{"CMYK",
                 {{"NSCMYK", data("0 0.5 1 0.5 0.75")}, {"NSColorSpace", integer(5)}},
                 NSColor{Device, 0.5, 0.25, 0, 0.75}},
             Row{"CMYK by its other name",
                 {{"NSCYMK", data("0 0.5 1 0.5")}, {"NSColorSpace", integer(5)}},
                 NSColor{Device, 0.5, 0.25, 0, 1}},
             Row{"catalogue", {{"NSCatalogName", text("System")}, {"NSColorSpace", integer(6)}}, std::nullopt},
             Row{"no space", {{"NSRGB", data("1 1 1")}}, std::nullopt},
             Row{"pattern", {{"NSColorSpace", integer(10)}}, std::nullopt},
             Row{"missing numbers",
                 {{"NSRGB", data("  0.5")}, {"NSColorSpace", integer(2)}},
                 NSColor{Device, 0.5, 0, 0, 1}},
             Row{"no numbers", {{"NSRGB", data("none")}, {"NSColorSpace", integer(2)}}, NSColor{Device, 0, 0, 0, 1}},
             Row{"missing RGB", {{"NSColorSpace", integer(2)}}, NSColor{Device, 0, 0, 0, 1}},
             Row{"missing white", {{"NSColorSpace", integer(3)}}, NSColor{Calibrated, 0, 0, 0, 1}},
             Row{"missing CMYK", {{"NSColorSpace", integer(5)}}, NSColor{Device, 0, 0, 0, 1}},
             Row{"out of range",
                 {{"NSRGB", data("2 -1 1e999 5")}, {"NSColorSpace", integer(2)}},
                 NSColor{Device, 1, 0, 1, 1}},
             Row{"custom space",
                 {{"NSRGB", data("0.1 0.2 0.3\0")},
                  {"NSColorSpace", integer(1)},
                  {"NSComponents", data("0.4 0.5 0.6 1")},
                  {"NSCustomColorSpace", uid(2)}},
                 NSColor{Calibrated, 0.1, 0.2, 0.3, 1}},
         })
        EXPECT_EQ(colorOf(row.fields), row.color) << row.name;
}

TEST(NSKeyedUnarchiver, TellsAnUnknownClass)
{
    const auto root = NSKeyedUnarchiver::unarchiveObjectWithData(
        archive({text("$null"), dictionary({{"$class", uid(2)}}), classRecord({"XYZThing", "NSObject"})}));
    ASSERT_TRUE(root && root->as<UnknownObject>());
    EXPECT_EQ(root->as<UnknownObject>()->className, "XYZThing");
}

TEST(NSKeyedUnarchiver, RefusesWhatIsNoArchive)
{
    const Node objects = array(dictionaryObjects({{"version", text("1.0")}}));
    const Node top = dictionary({{"root", uid(1)}});
    expectCorrupt({}, "nothing");
    expectCorrupt(bytesOf("no archive"), "text");
    expectCorrupt(write(array({})), "an array");
    expectCorrupt(write(dictionary({{"$version", integer(100001)},
                                    {"$archiver", text("NSKeyedArchiver")},
                                    {"$top", top},
                                    {"$objects", objects}})),
                  "another version");
    expectCorrupt(
        write(dictionary(
            {{"$version", integer(100000)}, {"$archiver", text("NSArchiver")}, {"$top", top}, {"$objects", objects}})),
        "another archiver");
    expectCorrupt(write(dictionary(
                      {{"$version", integer(100000)}, {"$archiver", text("NSKeyedArchiver")}, {"$objects", objects}})),
                  "no top");
    expectCorrupt(
        write(dictionary({{"$version", integer(100000)}, {"$archiver", text("NSKeyedArchiver")}, {"$top", top}})),
        "no objects");
    expectCorrupt(write(dictionary({{"$version", integer(100000)},
                                    {"$archiver", text("NSKeyedArchiver")},
                                    {"$top", dictionary({{"root", integer(1)}})},
                                    {"$objects", objects}})),
                  "a root that is no reference");
}

TEST(NSKeyedUnarchiver, RefusesBrokenObjects)
{
    const Node dictionaryClass = classRecord({"NSDictionary", "NSObject"});
    expectCorrupt(archive({text("$null"), text("$null")}), "a nil root");
    expectCorrupt(archive({text("$null")}), "a root past the end");
    expectCorrupt(archive({text("$null"), dictionary({})}), "no class");
    expectCorrupt(archive({text("$null"), dictionary({{"$class", uid(9)}})}), "a class past the end");
    expectCorrupt(archive({text("$null"), dictionary({{"$class", integer(2)}}), dictionaryClass}),
                  "a class that is no reference");
    expectCorrupt(archive({text("$null"), dictionary({{"$class", uid(2)}}), dictionaryClass}), "no keys");
    expectCorrupt(
        archive({text("$null"), dictionary({{"NS.keys", uids({3})}, {"NS.objects", uids({})}, {"$class", uid(2)}}),
                 dictionaryClass, text("a")}),
        "fewer values than keys");
    expectCorrupt(
        archive({text("$null"), dictionary({{"NS.keys", uids({9})}, {"NS.objects", uids({3})}, {"$class", uid(2)}}),
                 dictionaryClass, text("a")}),
        "a key past the end");
    expectCorrupt(
        archive({text("$null"), dictionary({{"NS.keys", uids({0})}, {"NS.objects", uids({3})}, {"$class", uid(2)}}),
                 dictionaryClass, text("a")}),
        "a nil key");
    expectCorrupt(
        archive({text("$null"), dictionary({{"NS.keys", uids({4})}, {"NS.objects", uids({3})}, {"$class", uid(2)}}),
                 dictionaryClass, text("a"), integer(1)}),
        "a key that is a number");
    expectCorrupt(archive({text("$null"),
                           dictionary({{"NS.keys", array({text("a")})}, {"NS.objects", uids({3})}, {"$class", uid(2)}}),
                           dictionaryClass, text("a")}),
                  "a key that is no reference");
    expectCorrupt(archive({text("$null"), dictionary({{"$class", uid(2)}}), classRecord({"NSDate", "NSObject"})}),
                  "a date without a time");
    expectCorrupt(archive({text("$null"), dictionary({{"part", uid(3)}, {"$class", uid(2)}}),
                           classRecord({"XYZThing", "NSObject"})}),
                  "an unknown object with a part past the end");
    expectCorrupt(archive({text("$null"), dictionary({{"$class", uid(2)}}), classRecord({"NSString", "NSObject"})}),
                  "a text record without a text");
    expectCorrupt(archive({text("$null"), array({})}), "an array that is no record");
}

TEST(NSKeyedUnarchiver, RefusesReferencesInACircle)
{
    expectCorrupt(
        archive({text("$null"), dictionary({{"NS.keys", uids({2})}, {"NS.objects", uids({1})}, {"$class", uid(3)}}),
                 text("self"), classRecord({"NSDictionary", "NSObject"})}),
        "a dictionary in itself");
    expectCorrupt(
        archive({text("$null"), dictionary({{"NS.objects", uids({2, 2})}, {"$class", uid(3)}}),
                 dictionary({{"NS.objects", uids({1, 1})}, {"$class", uid(3)}}), classRecord({"NSArray", "NSObject"})}),
        "two arrays in each other");
    expectCorrupt(archive({text("$null"), dictionary({{"$class", uid(1)}})}), "a class of itself");
    expectCorrupt(archive({text("$null"), dictionary({{"NS.string", uid(1)}, {"$class", uid(2)}}),
                           classRecord({"NSString", "NSObject"})}),
                  "a text that is itself");
}

TEST(NSKeyedUnarchiver, RefusesFewObjectsThatStandForMany)
{
    // 30 levels of two references each.
    std::vector<Node> objects{text("$null")};
    for (uint64_t level = 1; level <= 30; ++level)
        objects.push_back(dictionary({{"NS.objects", uids({level + 1, level + 1})}, {"$class", uid(32)}}));
    objects.push_back(text("a"));
    objects.push_back(classRecord({"NSArray", "NSObject"}));
    expectCorrupt(archive(objects), "2^30 texts");
}

TEST(NSKeyedUnarchiver, RefusesManyUnknownObjectsThatShareALargePart)
{
    // Each of 35 times 35 keeps a copy of the part: 73 MB.
    const Node thing = dictionary({{"part", uid(4)}, {"$class", uid(5)}});
    const auto many = [](uint64_t object) {
        return dictionary({{"NS.objects", array(std::vector<Node>(35, uid(object)))}, {"$class", uid(6)}});
    };
    expectCorrupt(archive({text("$null"), many(2), many(3), thing, archive_bytes::data(std::string(60'000, 'x')),
                           classRecord({"XYZThing", "NSObject"}), classRecord({"NSArray", "NSObject"})}),
                  "many copies");
}

TEST(NSKeyedUnarchiver, SurvivesDamage)
{
    const NSData whole = archive(dictionaryObjects({
        {"version", text("1.0")},
        {"number", integer(2411724)},
        {"flag", boolean(true)},
        {"name", text16(u"Grüße")},
        {"date", dictionary({{"NS.time", real(5.5)}, {"$class", uid(12)}})},
    }));
    std::mt19937 random(5);
    int refused = 0;
    constexpr int kRounds = 5000;
    for (int i = 0; i < kRounds; ++i) {
        NSData damaged = whole;
        for (int flips = 0; flips < 1 + i % 4; ++flips)
            damaged[random() % damaged.size()] = static_cast<uint8_t>(random());
        if (i % 5 == 0)
            damaged.resize(random() % damaged.size());
        if (i % 5 == 1)
            damaged.insert(damaged.begin() + static_cast<long>(random() % damaged.size()),
                           static_cast<uint8_t>(random()));
        NSError error;
        if (!NSKeyedUnarchiver::unarchiveObjectWithData(damaged, &error)) {
            ++refused;
            EXPECT_EQ(error.code, kNSCoderReadCorruptError);
        }
    }
    // Most damage meets the structure; the rest changes a text or number that is still one.
    EXPECT_GT(refused, kRounds / 2);
}
