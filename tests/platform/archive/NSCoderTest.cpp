#include "platform/archive/NSCoder.h"

#include <cmath>
#include <gtest/gtest.h>

using namespace platform;

TEST(NSNumber, IsTruncatedTowardZero)
{
    struct Row {
        NSNumber number;
        int64_t value;
    };
    for (const Row& row : {
             Row{true, 1},
             Row{false, 0},
             Row{int64_t{-5}, -5},
             Row{uint64_t{7}, 7},
             Row{UINT64_MAX, INT64_MAX},
             Row{2.9, 2},
             Row{-2.9, -2},
             Row{1e300, INT64_MAX},
             Row{-1e300, INT64_MIN},
             Row{9223372036854775807.0, INT64_MAX},
             Row{-9223372036854775808.0, INT64_MIN},
             Row{HUGE_VAL, INT64_MAX},
             Row{-HUGE_VAL, INT64_MIN},
             Row{double{NAN}, 0},
         })
        EXPECT_EQ(longLongValue(row.number), row.value);
}

TEST(NSNumber, IsTrueUnlessZero)
{
    EXPECT_TRUE(boolValue(true));
    EXPECT_TRUE(boolValue(int64_t{-1}));
    EXPECT_TRUE(boolValue(0.5));
    EXPECT_TRUE(boolValue(uint64_t{2}));
    EXPECT_FALSE(boolValue(false));
    EXPECT_FALSE(boolValue(int64_t{0}));
    EXPECT_FALSE(boolValue(0.0));
}

TEST(NSCoder, KeepsValuesByKey)
{
    NSCoder coder;
    coder.encodeObject(NSData{1}, "data");
    coder.encodeObject("text", "string");
    coder.encodeObject(NSNumber(true), "number");
    coder.encodeObject(NSDate{3}, "date");
    coder.encodeObject(NSColor{}, "colour");
    NSError error;
    EXPECT_EQ(coder.decodeObjectOfClass(CodedClass::Data, "data", &error), CodedValue(NSData{1}));
    EXPECT_EQ(coder.decodeObjectOfClass(CodedClass::String, "string", &error), CodedValue("text"));
    EXPECT_EQ(coder.decodeObjectOfClass(CodedClass::Number, "number", &error), CodedValue(NSNumber(true)));
    EXPECT_EQ(coder.decodeObjectOfClass(CodedClass::Date, "date", &error), CodedValue(NSDate{3}));
    EXPECT_EQ(coder.decodeObjectOfClass(CodedClass::Color, "colour", &error), CodedValue(NSColor{}));
    EXPECT_EQ(error, NSError{});
    EXPECT_EQ(coder.values().size(), 5u);
}

TEST(NSCoder, DoesNotWriteWhatIsNotThere)
{
    NSCoder coder;
    coder.encodeObject(std::nullopt, "absent");
    coder.encodeObject(std::optional<NSDate>(), "date");
    EXPECT_TRUE(coder.values().empty());
    NSError error;
    EXPECT_FALSE(coder.decodeObjectOfClass(CodedClass::Date, "date", &error));
    EXPECT_EQ(error, NSError{});
}

TEST(NSCoder, RefusesAValueOfAnotherClass)
{
    NSCoder coder;
    coder.encodeObject("text", "title");
    NSError error;
    EXPECT_FALSE(coder.decodeObjectOfClass(CodedClass::Number, "title", &error));
    EXPECT_EQ(error.code, kNSCoderReadCorruptError);
    EXPECT_EQ(error.localizedDescription, "The value for key \"title\" is of class string, not number");
}
