#include "platform/connection/NSXPCInterface.h"

#include "Peers.h"

#include <gtest/gtest.h>

using platform::NSError;
using platform::NSXPCClass;
using platform::NSXPCInterface;

TEST(NSXPCInterface, ReadsNamesPathAndSignaturesFromTheDocument)
{
    const auto interface = testInterface();
    ASSERT_TRUE(interface);
    EXPECT_EQ(interface->name(), "test.Interface");
    EXPECT_EQ(interface->objectPath(), "/test/Object");
    const auto* operation = interface->operation("everything:");
    ASSERT_TRUE(operation);
    ASSERT_EQ(operation->arguments.size(), 7U);
    EXPECT_EQ(operation->arguments[5].name, "things");
    EXPECT_EQ(operation->arguments[5].signature, "a(sa{sv})");
    EXPECT_EQ(operation->reply.size(), 7U);
    EXPECT_FALSE(operation->isOneWay);
    EXPECT_TRUE(interface->operation("tell")->isOneWay);
}

TEST(NSXPCInterface, FindsAnOperationByItsFullNameOrItsFirstKeyword)
{
    const auto interface = testInterface();
    EXPECT_EQ(interface->operation("everything:number:real:"), interface->operation("everything"));
    EXPECT_EQ(interface->operation("every"), nullptr);
}

TEST(NSXPCInterface, RefusesADocumentThatItCannotUse)
{
    const struct {
        const char* name;
        const char* document;
    } rows[] = {
        {"no XML", "hello"},
        {"no path", "<node><interface name='a.b'/></node>"},
        {"no interface", "<node name='/a'/>"},
        {"a signature that stands for no value", "<node name='/a'><interface name='a.b'><method name='m'><arg name='x' "
                                                 "type='au'/></method></interface></node>"},
    };
    for (const auto& row : rows) {
        NSError error;
        EXPECT_EQ(NSXPCInterface::interfaceWithProtocol(row.document, &error), nullptr) << row.name;
        EXPECT_FALSE(error.localizedDescription.empty()) << row.name;
    }
}

TEST(NSXPCInterface, KeepsTheRestrictionsOfEachArgumentApart)
{
    const auto interface = NSXPCInterface::interfaceWithProtocol(kTestDocument);
    EXPECT_EQ(interface->classesForSelector("data:", 0, false), nullptr);
    interface->setClasses({NSXPCClass::data()}, "data:", 0, false);
    ASSERT_TRUE(interface->classesForSelector("data", 0, false));
    EXPECT_EQ(interface->classesForSelector("data", 0, false)->front().name, "NSData");
    EXPECT_EQ(interface->classesForSelector("data", 0, true), nullptr);
    EXPECT_EQ(interface->classesForSelector("data", 1, false), nullptr);
    EXPECT_EQ(interface->classesForSelector("things", 0, false), nullptr);
}
