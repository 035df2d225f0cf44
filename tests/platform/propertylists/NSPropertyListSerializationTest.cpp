#include "platform/propertylists/NSPropertyListSerialization.h"

#include "tests/support/CommaLocale.h"

#include <chrono>
#include <cmath>
#include <ctime>
#include <gtest/gtest.h>
#include <random>

using namespace platform;

namespace {

NSData bytesOf(std::string_view text)
{
    return {text.begin(), text.end()};
}

/// A binary property list of the objects given as bytes, the first of them on top; references are one byte.
NSData binaryOf(const std::vector<std::string>& objects, uint8_t offsetBytes = 2)
{
    std::string text = "bplist00";
    std::vector<size_t> offsets;
    for (const std::string& object : objects) {
        offsets.push_back(text.size());
        text += object;
    }
    const size_t table = text.size();
    const auto append = [&](size_t value, int bytes) {
        for (int i = bytes - 1; i >= 0; --i)
            text += static_cast<char>(value >> (8 * i));
    };
    for (const size_t offset : offsets)
        append(offset, offsetBytes);
    text.append(6, '\0');
    append(offsetBytes, 1);
    append(1, 1);
    append(objects.size(), 8);
    append(0, 8);
    append(table, 8);
    return bytesOf(text);
}

std::string raw(std::initializer_list<int> bytes)
{
    std::string text;
    for (const int byte : bytes)
        text += static_cast<char>(byte);
    return text;
}

template <typename T>
std::optional<T> readAs(const NSData& data)
{
    const auto list = propertyListWithData(data);
    const T* value = list ? list->as<T>() : nullptr;
    return value ? std::optional(*value) : std::nullopt;
}

template <typename T>
std::optional<T> reread(T value)
{
    const auto data = dataWithPropertyList(PropertyList(std::move(value)));
    return data ? readAs<T>(*data) : std::nullopt;
}

void expectRefused(const NSData& data, const char* why)
{
    NSError error;
    EXPECT_FALSE(propertyListWithData(data, &error)) << why;
    EXPECT_EQ(error.code, kNSFileReadCorruptFileError) << why;
}

} // namespace

TEST(NSPropertyListSerialization, ReadsNumbersAlikeInEveryLocale)
{
    const CommaLocale comma;
    ASSERT_TRUE(comma) << "localedef could not make a locale";
    const auto list = propertyListWithData(bytesOf("<plist><real>1.5</real></plist>"));
    ASSERT_TRUE(list && list->as<double>());
    EXPECT_EQ(*list->as<double>(), 1.5);
}

TEST(NSPropertyListSerialization, ReadsBackWhatItWrites)
{
    EXPECT_EQ(reread(true), true);
    EXPECT_EQ(reread(false), false);
    for (const int64_t number : {int64_t{0}, int64_t{1}, int64_t{-1}, int64_t{255}, int64_t{256}, int64_t{65536},
                                 int64_t{1} << 32, INT64_MAX, INT64_MIN})
        EXPECT_EQ(reread(number), number);
    for (const uint64_t number : {uint64_t{1} << 63, UINT64_MAX})
        EXPECT_EQ(reread(number), number);
    for (const double number : {0.0, 0.1, -1e300, HUGE_VAL})
        EXPECT_EQ(reread(number), number);
    for (const char* text : {"", "ascii", "Grüße", "😀 €", "a text of more than fifteen characters"})
        EXPECT_EQ(reread(std::string(text)), text);
    EXPECT_EQ(reread(NSData{}), NSData{});
    EXPECT_EQ(reread(NSData(300, 7)), NSData(300, 7));
    EXPECT_EQ(reread(NSDate{-3.25}), NSDate{-3.25});
    for (const uint64_t uid : {uint64_t{0}, uint64_t{255}, uint64_t{256}, uint64_t{70000}})
        EXPECT_EQ(reread(PropertyListUID{uid}), PropertyListUID{uid});
}

TEST(NSPropertyListSerialization, KeepsABooleanApartFromANumber)
{
    const auto data = dataWithPropertyList(PropertyList::Array{true, int64_t{1}, 1.0, false, int64_t{0}});
    const auto values = readAs<PropertyList::Array>(data.value());
    ASSERT_TRUE(values);
    ASSERT_EQ(values->size(), 5u);
    EXPECT_TRUE((*values)[0].as<bool>());
    EXPECT_TRUE((*values)[1].as<int64_t>());
    EXPECT_TRUE((*values)[2].as<double>());
    EXPECT_TRUE((*values)[3].as<bool>());
    EXPECT_TRUE((*values)[4].as<int64_t>());
}

TEST(NSPropertyListSerialization, DoesNotWriteWhatWouldBeLost)
{
    NSError error;
    EXPECT_FALSE(dataWithPropertyList(std::string("a\xFF"), &error));
    EXPECT_EQ(error.code, kNSFileWriteUnknownError);
    EXPECT_FALSE(dataWithPropertyList(std::string("a\0b", 3)));
    EXPECT_FALSE(dataWithPropertyList(PropertyList::Dictionary{{"k\xFF", true}}));
    EXPECT_FALSE(dataWithPropertyList(PropertyList::Array{NSDate{1e12}}));
    EXPECT_FALSE(dataWithPropertyList(PropertyList::Array{NSDate{NAN}}));
}

TEST(NSPropertyListSerialization, ReadsEveryBinaryForm)
{
    EXPECT_EQ(readAs<bool>(binaryOf({raw({0x08})})), false);
    EXPECT_EQ(readAs<bool>(binaryOf({raw({0x09})})), true);
    EXPECT_EQ(readAs<int64_t>(binaryOf({raw({0x10, 0xFF})})), 255);
    EXPECT_EQ(readAs<int64_t>(binaryOf({raw({0x11, 0xFF, 0xFE})})), 65534);
    EXPECT_EQ(readAs<int64_t>(binaryOf({raw({0x12, 0xFF, 0, 0, 0})})), 0xFF000000);
    EXPECT_EQ(readAs<int64_t>(binaryOf({raw({0x13}) + std::string(8, '\xFF')})), -1);
    EXPECT_EQ(readAs<uint64_t>(binaryOf({raw({0x14}) + std::string(8, '\0') + std::string(8, '\xFF')})), UINT64_MAX);
    EXPECT_EQ(readAs<int64_t>(binaryOf({raw({0x14}) + std::string(16, '\xFF')})), -1);
    EXPECT_EQ(readAs<double>(binaryOf({raw({0x22, 0x3F, 0xC0, 0, 0})})), 1.5);
    EXPECT_EQ(readAs<double>(binaryOf({raw({0x23, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0})})), 1.5);
    EXPECT_EQ(readAs<NSDate>(binaryOf({raw({0x33, 0x3F, 0xF8, 0, 0, 0, 0, 0, 0})})), NSDate{1.5});
    EXPECT_EQ(readAs<NSData>(binaryOf({raw({0x42, 1, 2})})), (NSData{1, 2}));
    EXPECT_EQ(readAs<std::string>(binaryOf({raw({0x53}) + "abc"})), "abc");
    EXPECT_EQ(readAs<std::string>(binaryOf({raw({0x5F, 0x10, 0x03}) + "abc"})), "abc");
    EXPECT_EQ(readAs<std::string>(binaryOf({raw({0x53, 'a', 0, 'b'})})), std::string("a\0b", 3));
    EXPECT_EQ(readAs<std::string>(binaryOf({raw({0x63, 0x00, 0xE9, 0xD8, 0x3D, 0xDE, 0x00})})), "é😀");
    EXPECT_EQ(readAs<std::string>(binaryOf({raw({0x62, 0xD8, 0x3D, 0x00, 0x41})})), "\uFFFDA");
    EXPECT_EQ(readAs<PropertyListUID>(binaryOf({raw({0x80, 7})})), PropertyListUID{7});
    EXPECT_EQ(readAs<PropertyListUID>(binaryOf({raw({0x81, 1, 0})})), PropertyListUID{256});
    EXPECT_EQ(readAs<PropertyList::Array>(binaryOf({raw({0xA2, 1, 1}), raw({0x09})}))->size(), 2u);
    const auto list = propertyListWithData(binaryOf({raw({0xD1, 1, 2}), raw({0x51, 'k'}), raw({0x10, 5})}, 8));
    ASSERT_TRUE(list && list->objectForKey<int64_t>("k"));
    EXPECT_EQ(*list->objectForKey<int64_t>("k"), 5);
}

TEST(NSPropertyListSerialization, RefusesBrokenBinaries)
{
    expectRefused({}, "nothing");
    expectRefused(bytesOf("bplist00"), "no trailer");
    expectRefused(binaryOf({raw({0x00})}), "null");
    expectRefused(binaryOf({raw({0x15})}), "integer of 32 bytes");
    expectRefused(binaryOf({raw({0x24})}), "real of 16 bytes");
    expectRefused(binaryOf({raw({0x13, 0})}), "integer into the offset table");
    expectRefused(binaryOf({raw({0x52, 'a'})}), "text into the offset table");
    expectRefused(binaryOf({raw({0x51, 0x80})}), "text that is not ASCII");
    expectRefused(binaryOf({raw({0x5F, 0x13}) + std::string(8, '\xFF')}), "text of 2^64 - 1");
    expectRefused(binaryOf({raw({0x6F, 0x13, 0x80}) + std::string(7, '\0')}), "UTF-16 text of 2^63");
    expectRefused(binaryOf({raw({0xAF, 0x13, 0x20}) + std::string(7, '\0')}), "array of 2^61");
    expectRefused(binaryOf({raw({0xDF, 0x13, 0x80}) + std::string(7, '\0')}), "dictionary of 2^63");
    expectRefused(binaryOf({raw({0x4F, 0x14}) + std::string(16, '\0')}), "length of 16 bytes");
    expectRefused(binaryOf({raw({0x5F, 0x51, 'a'})}), "length that is a text");
    expectRefused(binaryOf({raw({0xA1, 9})}), "reference past the end");
    expectRefused(binaryOf({raw({0xA1, 0})}), "array that holds itself");
    expectRefused(binaryOf({raw({0xD1, 1, 0}), raw({0x51, 'k'})}), "dictionary that holds itself");
    expectRefused(binaryOf({raw({0xD1, 1, 1}), raw({0x09})}), "key that is no text");
    expectRefused(binaryOf({raw({0x89}) + std::string(10, '\0')}), "reference of 10 bytes");
    expectRefused(binaryOf({raw({0xC0})}), "set");
    NSData badTop = binaryOf({raw({0x09})});
    badTop[badTop.size() - 9] = 1;
    expectRefused(badTop, "top past the end");
    NSData badCount = binaryOf({raw({0x09})});
    badCount[badCount.size() - 24] = 0xFF;
    expectRefused(badCount, "2^63 objects");
    NSData badTable = binaryOf({raw({0x09})});
    badTable[badTable.size() - 8] = 0xFF;
    expectRefused(badTable, "table past the end");
    NSData badWidth = binaryOf({raw({0x09})});
    badWidth[badWidth.size() - 26] = 0;
    expectRefused(badWidth, "offsets of no bytes");
}

TEST(NSPropertyListSerialization, RefusesFewBytesThatStandForManyValues)
{
    // Each level refers to the next one twice.
    std::vector<std::string> objects;
    for (int i = 0; i < 60; ++i)
        objects.push_back(raw({0xA2, i + 1, i + 1}));
    objects.push_back(raw({0x09}));
    const auto begin = std::chrono::steady_clock::now();
    expectRefused(binaryOf(objects), "2^60 values");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

TEST(NSPropertyListSerialization, RefusesManyCopiesOfALongText)
{
    std::vector<std::string> objects{raw({0xAF, 0x11, 0x10, 0x00}) + std::string(4096, '\1')};
    objects.push_back(raw({0x4F, 0x12, 0x00, 0x10, 0x00, 0x00}) + std::string(1 << 20, 'x'));
    NSData data = binaryOf(objects, 4);
    expectRefused(data, "four gigabytes");
}

TEST(NSPropertyListSerialization, RefusesDeepNesting)
{
    std::vector<std::string> objects;
    for (int i = 0; i < 100; ++i)
        objects.push_back(raw({0xA1, i + 1}));
    objects.push_back(raw({0x09}));
    expectRefused(binaryOf(objects), "100 levels");

    std::string xml = "<plist version=\"1.0\">";
    for (int i = 0; i < 400'000; ++i)
        xml += "<array>";
    xml += "<true/>";
    for (int i = 0; i < 400'000; ++i)
        xml += "</array>";
    expectRefused(bytesOf(xml + "</plist>"), "200,000 levels");
}

TEST(NSPropertyListSerialization, ReadsTheXMLFormat)
{
    const auto list =
        propertyListWithData(bytesOf("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist>\n"
                                     "<plist version=\"1.0\"><dict>"
                                     "<key>text</key><string>a &lt;b&gt; &amp; é</string>"
                                     "<key>negative</key><integer>-5</integer>"
                                     "<key>huge</key><integer>18446744073709551611</integer>"
                                     "<key>real</key><real>509523358.684097</real>"
                                     "<key>data</key><data>AQID</data>"
                                     "<key>yes</key><true/>"
                                     "<key>reference</key><dict><key>CF$UID</key><integer>3</integer></dict>"
                                     "</dict></plist>"));
    ASSERT_TRUE(list);
    EXPECT_EQ(*list->objectForKey<std::string>("text"), "a <b> & é");
    EXPECT_EQ(*list->objectForKey<int64_t>("negative"), -5);
    EXPECT_EQ(*list->objectForKey<uint64_t>("huge"), 18446744073709551611u);
    EXPECT_EQ(*list->objectForKey<double>("real"), 509523358.684097);
    EXPECT_EQ(*list->objectForKey<NSData>("data"), (NSData{1, 2, 3}));
    EXPECT_EQ(*list->objectForKey<bool>("yes"), true);
    EXPECT_EQ(*list->objectForKey<PropertyListUID>("reference"), PropertyListUID{3});
}

TEST(NSPropertyListSerialization, ReadsEveryXMLForm)
{
    const struct {
        const char* xml;
        PropertyList expected;
    } rows[] = {
        {"<integer> 0x1F </integer>", int64_t{31}},
        {"<integer>+7</integer>", int64_t{7}},
        {"<integer>-9223372036854775808</integer>", INT64_MIN},
        {"<real> +1.5e2 </real>", 150.0},
        {"<string/>", std::string()},
        {"<string> a<![CDATA[<&>]]>&#65;&#x1F600;&quot;<!-- b --></string>", std::string(" a<&>A\U0001F600\"")},
        {"<date>1970-02-03T04:05:06Z</date>", NSDate{2865906 - 978307200.0}},
        {"<data> AQ\n I= </data>", NSData{1, 2}},
        {"<false></false>", false},
        {"<array a='1'><!-- c --><true/> <true/></array>", PropertyList::Array{true, true}},
        {"<dict><key>a</key><true/><key>a</key><array/></dict>",
         PropertyList::Dictionary{{"a", PropertyList::Array{}}}},
    };
    for (const auto& row : rows) {
        const auto list = propertyListWithData(
            bytesOf(std::string("<!DOCTYPE plist [<!ELEMENT a (b)>]><plist>") + row.xml + "</plist>\n"));
        ASSERT_TRUE(list) << row.xml;
        EXPECT_EQ(dataWithPropertyList(*list), dataWithPropertyList(row.expected)) << row.xml;
    }
}

TEST(NSPropertyListSerialization, RefusesDamagedXML)
{
    for (const char* xml :
         {"<integer>1.5</integer>", "<integer>18446744073709551616</integer>",
          "<integer>-9223372036854775809</integer>", "<real>x</real>", "<date>2001-02-30T00:00:00Z</date>",
          "<date>2001-01-01</date>", "<data>A!</data>", "<data>AQ=I</data>", "<string>&bogus;</string>",
          "<string>&#0;</string>", "<string>\xff</string>", "<true>x</true>", "<array><true/>", "<array>text</array>",
          "<dict><true/></dict>", "<dict><key>a</key></dict>", "<unknown/>", "<true/><false/>", ""})
        expectRefused(bytesOf(std::string("<plist>") + xml + "</plist>"), xml);
}

TEST(NSPropertyListSerialization, ReadsAsManyDeclarationsAsThereAreWithoutLookingFarBeyondEach)
{
    constexpr size_t kDeclarations = 400'000;
    std::string text = "<?xml version=\"1.0\"?>";
    for (size_t i = 0; i < kDeclarations; ++i)
        text += "<!DOCTYPE>";
    text += "<!DOCTYPE plist [ <!ENTITY of \"none\"> ]><plist><integer>7</integer></plist>";
    const NSData data = bytesOf(text);
    const std::clock_t before = std::clock();
    EXPECT_EQ(readAs<int64_t>(data), 7);
    const double seconds = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
    // A few milliseconds of the processor; if each looked at all that follows, 800 gigabytes would be looked at.
    EXPECT_LT(seconds, 1);
}

TEST(NSPropertyListSerialization, WritesEqualValuesOnce)
{
    const PropertyList list = PropertyList::Array{int64_t{1}, std::string("a"), int64_t{1}, std::string("a")};
    const std::string expected("bplist00"
                               "\xA4\x01\x02\x01\x02"
                               "\x10\x01"
                               "\x51"
                               "a"
                               "\x08\x0D\x0F"
                               "\0\0\0\0\0\0\x01\x01"
                               "\0\0\0\0\0\0\0\x03"
                               "\0\0\0\0\0\0\0\0"
                               "\0\0\0\0\0\0\0\x11",
                               8 + 5 + 2 + 2 + 3 + 32);
    EXPECT_EQ(dataWithPropertyList(list), bytesOf(expected));
}

TEST(NSPropertyListSerialization, SurvivesDamagedXML)
{
    const std::string whole = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key><array><real>1.5</real>"
                              "<integer>3</integer><data>AQID</data><string>x&amp;</string><true/></array>"
                              "<key>b</key><dict><key>CF$UID</key><integer>1</integer></dict></dict></plist>";
    std::mt19937 random(11);
    for (int i = 0; i < 3000; ++i) {
        std::string damaged = whole;
        for (int flips = 0; flips < 1 + i % 3; ++flips)
            damaged[random() % damaged.size()] = static_cast<char>(random());
        if (i % 4 == 0)
            damaged.resize(random() % damaged.size());
        if (i % 4 == 1)
            damaged.insert(random() % damaged.size(), whole.substr(random() % whole.size(), random() % 40));
        // No crash, and what is read can be written.
        if (const auto list = propertyListWithData(bytesOf(damaged)))
            (void)dataWithPropertyList(*list);
    }
}
