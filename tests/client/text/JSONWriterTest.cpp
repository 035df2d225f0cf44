#include "client/text/JSONWriter.h"

#include <limits>

#include <gtest/gtest.h>

using namespace stillora;

namespace {

TEST(JSONWriter, WritesEveryKindOfValueOnOneLine)
{
    JSONWriter json;
    json.add("text", "a").add("yes", true).add("whole", 3).add("number", 0.1).addNull("none");
    json.add("list", std::vector<std::string>{"a", "b"}).add("object", JSONWriter().add("k", 1));
    json.add("objects", std::vector<JSONWriter>{JSONWriter().add("k", 1), JSONWriter()});
    EXPECT_EQ(json.text(), R"({"text": "a", "yes": true, "whole": 3, "number": 0.1, "none": null, "list": ["a", "b"], )"
                           R"("object": {"k": 1}, "objects": [{"k": 1}, {}]})");
}

TEST(JSONWriter, EscapesWhatJSONDoesNotAllow)
{
    EXPECT_EQ(JSONWriter().add("k\"", "a\"b\\c\nd\te\x01").text(), R"({"k\"": "a\"b\\c\u000ad\u0009e\u0001"})");
}

TEST(JSONWriter, ReplacesBytesThatAreNoUTF8)
{
    EXPECT_EQ(JSONWriter().add("path", "caf\xE9").text(), "{\"path\": \"caf\xEF\xBF\xBD\"}");
}

TEST(JSONWriter, WritesNumbersThatReadBackAsTheSame)
{
    EXPECT_EQ(JSONWriter().add("n", 1.0 / 3).text(), R"({"n": 0.3333333333333333})");
    EXPECT_EQ(JSONWriter().add("n", std::numeric_limits<double>::infinity()).text(), R"({"n": null})");
    EXPECT_EQ(JSONWriter().add("n", std::numeric_limits<int64_t>::min()).text(), R"({"n": -9223372036854775808})");
}

} // namespace
