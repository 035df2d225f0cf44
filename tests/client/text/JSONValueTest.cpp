#include "client/text/JSONValue.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <string_view>

using namespace stillora;

namespace {

std::optional<JSONValue> valueOf(std::string_view text)
{
    JSONValue::Fault fault;
    auto value = JSONValue::read(text, fault);
    EXPECT_EQ(fault.reason.empty(), value.has_value()) << text;
    return value;
}

std::string textOf(std::string_view text)
{
    const auto value = valueOf(text);
    return value && value->text() ? *value->text() : "none";
}

} // namespace

TEST(JSONValue, ReadsEveryKind)
{
    const auto value = valueOf(R"( {"a": [1, -2.5e3, 0], "b": {"c": null}, "d": true, "e": "f"} )");
    ASSERT_TRUE(value && value->object());
    EXPECT_EQ(value->object()->size(), 4u);
    const JSONValue::List& list = *value->member("a")->list();
    EXPECT_EQ(*list[0].number(), 1);
    EXPECT_EQ(*list[1].number(), -2500);
    EXPECT_TRUE(value->member("b")->member("c")->isNull());
    EXPECT_TRUE(*value->member("d")->boolean());
    EXPECT_EQ(value->textOf("e"), "f");
    EXPECT_EQ(value->textOf("d"), "");
    EXPECT_EQ(value->member("g"), nullptr);
}

TEST(JSONValue, ReadsWhatFollowsABackslash)
{
    EXPECT_EQ(textOf(R"("\"\\\/\b\f\n\r\t")"), "\"\\/\b\f\n\r\t");
    EXPECT_EQ(textOf(R"("\u0041\u00e9\u20AC\ud83d\ude00")"), "Aé€😀");
}

TEST(JSONValue, RefusesWhatIsNoJSON)
{
    for (const std::string_view text : {"",
                                        " ",
                                        "{",
                                        "[1",
                                        "[1,]",
                                        "{\"a\"}",
                                        "{\"a\":}",
                                        "{\"a\":1,}",
                                        "{a:1}",
                                        "'a'",
                                        "\"a",
                                        "tru",
                                        "01",
                                        "1.",
                                        ".5",
                                        "+1",
                                        "-",
                                        "1e",
                                        "1.e3",
                                        "NaN",
                                        "1 2",
                                        "[]]",
                                        "\"\\x\"",
                                        "\"\\u12\"",
                                        "\"\\u0000\"",
                                        "\"\\ud83d\"",
                                        "\"\\ude00\"",
                                        "\"\\ud83d\\u0041\"",
                                        "\"a\tb\"",
                                        "\"\xE9\"",
                                        "{\"a\": 1, \"a\": 2}",
                                        "1e999"})
        EXPECT_FALSE(valueOf(text)) << text;
}

TEST(JSONValue, TellsWhereTheFaultIs)
{
    JSONValue::Fault fault;
    EXPECT_FALSE(JSONValue::read("[1, x]", fault));
    EXPECT_EQ(fault.place, 4u);
}

TEST(JSONValue, RefusesWhatIsNestedWithoutEnd)
{
    EXPECT_TRUE(valueOf(std::string(32, '[') + std::string(32, ']')));
    EXPECT_FALSE(valueOf(std::string(100'000, '[')));
    std::string objects;
    for (int i = 0; i < 100'000; ++i)
        objects += "{\"a\":";
    EXPECT_FALSE(valueOf(objects));
}

TEST(JSONValue, ReadsManyNamesInATimeThatGrowsWithThem)
{
    constexpr int kNames = 400'000;
    std::string text = "{";
    for (int i = 0; i < kNames; ++i)
        text += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":0";
    const auto started = std::clock();
    const auto value = valueOf(text + "}");
    ASSERT_TRUE(value && value->object());
    EXPECT_EQ(value->object()->size(), static_cast<size_t>(kNames));
    EXPECT_FALSE(valueOf(text + ",\"7\":0}"));
    // To look through all names for each takes more than a minute.
    EXPECT_LT(std::clock() - started, 20 * CLOCKS_PER_SEC);
}

TEST(JSONValue, TellsWholeNumbersAlone)
{
    const auto value = valueOf(R"({"a": 7, "b": -9007199254740992, "c": 1.5, "d": 1e300, "e": "8", "f": 1e3})");
    ASSERT_TRUE(value);
    EXPECT_EQ(value->wholeNumberOf("a"), 7);
    EXPECT_EQ(value->wholeNumberOf("b"), -(int64_t{1} << 53));
    for (const char* name : {"c", "d", "e", "none"})
        EXPECT_EQ(value->wholeNumberOf(name), 0) << name;
    EXPECT_EQ(value->wholeNumberOf("f"), 1000);
}
