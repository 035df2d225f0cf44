#include "platform/connection/NSXPCValue.h"

#include "Peers.h"

#include <gtest/gtest.h>

using platform::NSError;
using platform::NSXPCReply;
using platform::NSXPCValues;

TEST(NSXPCReply, IsSentOnceAndIgnoresASecondAnswer)
{
    const LogRecorder log;
    int sent = 0;
    {
        NSXPCReply reply("operation", [&](std::optional<NSXPCValues> values, const NSError&) {
            EXPECT_TRUE(values.has_value());
            ++sent;
        });
        reply({});
        reply({});
    }
    EXPECT_EQ(sent, 1);
    EXPECT_TRUE(log.contains("operation - call was answered twice"));
}

TEST(NSXPCReply, SendsAnErrorWhenItIsDroppedUnanswered)
{
    const LogRecorder log;
    int sent = 0;
    {
        const NSXPCReply reply("operation", [&](std::optional<NSXPCValues> values, const NSError& error) {
            EXPECT_FALSE(values.has_value());
            EXPECT_EQ(error.code, platform::kNSXPCConnectionReplyInvalid);
            EXPECT_EQ(error.localizedDescription, "operation: the call was dropped without a reply");
            ++sent;
        });
    }
    EXPECT_EQ(sent, 1);
    EXPECT_TRUE(log.contains("operation - call was dropped without a reply"));
}

TEST(NSXPCReply, LeavesTheDutyToTheOneItWasMovedTo)
{
    int sent = 0;
    {
        NSXPCReply first("operation", [&](std::optional<NSXPCValues>, const NSError&) { ++sent; });
        NSXPCReply second(std::move(first));
        second({});
    }
    EXPECT_EQ(sent, 1);
}
