#include "platform/connection/NSXPCConnection.h"

#include "Peers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <limits>

using platform::CodedValue;
using platform::NSColor;
using platform::NSData;
using platform::NSDate;
using platform::NSError;
using platform::NSNumber;
using platform::NSXPCConnection;
using platform::NSXPCObjects;
using platform::NSXPCValues;

namespace {

/// A service's end that answers, with a plain D-Bus client at the other.
struct ServedClient {
    std::shared_ptr<EchoObject> object = std::make_shared<EchoObject>();
    platform::NSXPCConnectionPtr service;
    std::unique_ptr<PlainClient> client;

    explicit ServedClient(GDBusConnectionFlags flags = G_DBUS_CONNECTION_FLAGS_NONE)
    {
        const auto [one, other] = socketPair();
        auto accepted = std::async(std::launch::async, [&, socket = one] {
            service = NSXPCConnection::acceptedConnectionWithSocket(socket);
            service->setExportedInterface(testInterface());
            service->setExportedObject(object);
            service->resume();
        });
        client = std::make_unique<PlainClient>(other, flags);
        accepted.get();
    }
    ~ServedClient() { service->invalidate(); }
};

/// A service's end that answers, with bare bytes at the other.
struct ServedRawClient {
    const std::array<int, 2> sockets = socketPair();
    std::future<platform::NSXPCConnectionPtr> accepted = acceptLater(sockets[0]);
    RawClient client{sockets[1]};
    const bool isAuthenticated = client.authenticate();
    const platform::NSXPCConnectionPtr service = accepted.get();

    ServedRawClient()
    {
        service->setExportedInterface(testInterface());
        service->setExportedObject(std::make_shared<EchoObject>());
        service->resume();
    }
    ~ServedRawClient() { service->invalidate(); }
};

} // namespace

TEST(NSXPCConnection, CarriesEveryKindOfValueThereAndBack)
{
    const ConnectionPair pair;
    pair.service->setExportedObject(std::make_shared<EchoObject>());
    pair.service->resume();
    pair.client->resume();

    const NSXPCValues sent{true,
                           std::numeric_limits<int64_t>::min(),
                           -0.1,
                           std::string("gr\u00fc\u00df"),
                           NSData{0, 255, 7},
                           NSXPCObjects{thingNamed("one"), thingNamed("two")},
                           std::optional<NSError>({"NSCocoaErrorDomain", -260, "no file \"x\""})};
    const auto answer = get(ask(pair.client, "everything:", sent));
    ASSERT_TRUE(answer.values) << answer.error.localizedDescription;
    const auto& values = *answer.values;
    ASSERT_EQ(values.size(), 7U);
    for (const size_t i : {0, 1, 2, 3, 4, 6})
        EXPECT_EQ(values[i].index(), sent[i].index());
    EXPECT_EQ(std::get<bool>(values[0]), true);
    EXPECT_EQ(std::get<int64_t>(values[1]), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(std::get<double>(values[2]), -0.1);
    EXPECT_EQ(std::get<std::string>(values[3]), "gr\u00fc\u00df");
    EXPECT_EQ(std::get<NSData>(values[4]), NSData({0, 255, 7}));
    const auto& things = std::get<NSXPCObjects>(values[5]);
    ASSERT_EQ(things.size(), 2U);
    const auto second = std::dynamic_pointer_cast<Thing>(things[1]);
    ASSERT_TRUE(second);
    EXPECT_EQ(std::get<std::string>(second->coder.values().at("name")), "two");
    EXPECT_EQ(std::get<std::optional<NSError>>(values[6])->code, -260);
    EXPECT_EQ(std::get<std::optional<NSError>>(values[6])->localizedDescription, "no file \"x\"");
}

TEST(NSXPCConnection, CarriesValuesThatAreEmpty)
{
    const ConnectionPair pair;
    pair.service->setExportedObject(std::make_shared<EchoObject>());
    pair.service->resume();
    pair.client->resume();
    const auto answer =
        get(ask(pair.client, "everything:",
                {false, int64_t{0}, 0.0, std::string(), NSData(), NSXPCObjects(), std::optional<NSError>()}));
    ASSERT_TRUE(answer.values);
    EXPECT_TRUE(std::get<NSData>((*answer.values)[4]).empty());
    EXPECT_TRUE(std::get<NSXPCObjects>((*answer.values)[5]).empty());
    EXPECT_FALSE(std::get<std::optional<NSError>>((*answer.values)[6]).has_value());
}

TEST(NSXPCConnection, CarriesEveryClassOfKeyedValues)
{
    const ConnectionPair pair;
    pair.service->setExportedObject(std::make_shared<EchoObject>());
    pair.service->resume();
    pair.client->resume();
    const std::map<std::string, CodedValue> sent{
        {"name", std::string("all")},
        {"data", NSData{1, 2}},
        {"bool", NSNumber(true)},
        {"int64", NSNumber(int64_t{-5})},
        {"uint64", NSNumber(std::numeric_limits<uint64_t>::max())},
        {"double", NSNumber(0.25)},
        {"date", NSDate{123.5}},
        {"device", NSColor{NSColor::Space::Device, 0.1, 0.2, 0.3, 1}},
        {"calibrated", NSColor{NSColor::Space::Calibrated, 1, 0, 0, 0.5}},
    };
    auto thing = std::make_shared<Thing>();
    for (const auto& [key, value] : sent)
        thing->coder.encodeObject(value, key);
    const auto answer =
        get(ask(pair.client, "everything:",
                {false, int64_t{0}, 0.0, std::string(), NSData(), NSXPCObjects{thing}, std::optional<NSError>()}));
    ASSERT_TRUE(answer.values) << answer.error.localizedDescription;
    const auto back = std::dynamic_pointer_cast<Thing>(std::get<NSXPCObjects>((*answer.values)[5]).at(0));
    EXPECT_EQ(back->coder.values(), (std::map<std::string, CodedValue, std::less<>>(sent.begin(), sent.end())));
}

TEST(NSXPCConnection, MendsTextThatIsNotUtf8SinceTheWireAllowsNoOther)
{
    const ConnectionPair pair;
    const auto object = std::make_shared<EchoObject>();
    pair.service->setExportedObject(object);
    pair.service->resume();
    pair.client->resume();
    pair.client->remoteObjectProxy().call("tell:", {std::string("a\xff"
                                                                "b")});
    ASSERT_TRUE(object->journal.waitFor(1));
    EXPECT_EQ(object->journal.entries()[0], "a\uFFFDb");
}

TEST(NSXPCConnection, LetsBothSidesCallEachOther)
{
    const ConnectionPair pair;
    const auto atService = std::make_shared<EchoObject>();
    const auto atClient = std::make_shared<EchoObject>();
    pair.service->setExportedObject(atService);
    pair.client->setExportedObject(atClient);
    pair.service->resume();
    pair.client->resume();
    pair.service->remoteObjectProxy().call("tell:", {std::string("progress")});
    EXPECT_TRUE(get(ask(pair.client, "ping", {})).values);
    ASSERT_TRUE(atClient->journal.waitFor(1));
    EXPECT_EQ(atClient->journal.entries()[0], "progress");
    EXPECT_EQ(atService->journal.entries(), std::vector<std::string>({"ping"}));
}

TEST(NSXPCConnection, DeliversCallsInTheirOrder)
{
    const ConnectionPair pair;
    const auto object = std::make_shared<EchoObject>();
    pair.service->setExportedObject(object);
    pair.service->resume();
    pair.client->resume();
    const auto proxy = pair.client->remoteObjectProxy();
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        expected.push_back(std::to_string(i));
        proxy.call("tell:", {expected.back()});
    }
    ASSERT_TRUE(object->journal.waitFor(100));
    EXPECT_EQ(object->journal.entries(), expected);
}

TEST(NSXPCConnection, KnowsTheProcessAtTheOtherEnd)
{
    const ConnectionPair pair;
    EXPECT_EQ(pair.service->processIdentifier(), getpid());
    EXPECT_EQ(pair.client->processIdentifier(), getpid());
}

TEST(NSXPCConnection, RefusesWhatItsInterfaceDoesNotAllowAndStaysUsable)
{
    const LogRecorder log;
    const ServedClient served;
    const struct {
        const char* name;
        const char* method;
        const char* arguments;
        const char* expected;
    } rows[] = {
        {"a class that is not allowed", "things", "(@a(sa{sv}) [('Thing', {'name': <'x'>}), ('Other', {})],)",
         "things: argument 0 (list), position 1: class \"Other\" is not allowed (allowed: Thing)"},
        {"the array's own class as an element", "things", "(@a(sa{sv}) [('NSArray', {})],)",
         "things: argument 0 (list), position 0: class \"NSArray\" is not allowed (allowed: Thing)"},
        {"an object that decodes to nothing", "things", "(@a(sa{sv}) [('Thing', {'name': <'nothing'>})],)",
         "things: argument 0 (list), position 0: Thing decodes to no object"},
        {"a value of a type that is no class", "things", "(@a(sa{sv}) [('Thing', {'name': <[1, 2]>})],)",
         "things: argument 0 (list), position 0: key \"name\": type \"ai\" stands for no class"},
        {"a key that is there twice", "things", "(@a(sa{sv}) [('Thing', {'name': <'x'>, 'name': <'y'>})],)",
         "things: argument 0 (list), position 0: key \"name\" is there twice"},
        {"an unknown tag", "things", "(@a(sa{sv}) [('Thing', {'k': <('NSFont', <1>)>})],)",
         "things: argument 0 (list), position 0: key \"k\": \"NSFont\" is no class of values"},
        {"a date that is text", "things", "(@a(sa{sv}) [('Thing', {'k': <('NSDate', <'now'>)>})],)",
         "things: argument 0 (list), position 0: key \"k\": a date is one number of type \"d\""},
        {"a date without end", "things", "(@a(sa{sv}) [('Thing', {'k': <('NSDate', <double inf>)>})],)",
         "things: argument 0 (list), position 0: key \"k\": a date must be a finite number of seconds"},
        {"a colour of three components", "things",
         "(@a(sa{sv}) [('Thing', {'k': <('NSColor', <('device', 1.0, 1.0, 1.0)>)>})],)",
         "things: argument 0 (list), position 0: key \"k\": a colour is of type \"(sdddd)\""},
        {"an unknown colour space", "things",
         "(@a(sa{sv}) [('Thing', {'k': <('NSColor', <('cmyk', 1.0, 1.0, 1.0, 1.0)>)>})],)",
         "things: argument 0 (list), position 0: key \"k\": the colour space \"cmyk\" is neither \"device\" nor "
         "\"calibrated\""},
        {"a colour beyond its range", "things",
         "(@a(sa{sv}) [('Thing', {'k': <('NSColor', <('device', 1.5, 1.0, 1.0, 1.0)>)>})],)",
         "things: argument 0 (list), position 0: key \"k\": the components of a colour lie from 0 to 1"},
        {"text where data is expected", "data", "('text',)",
         "data: argument 0 (bytes): signature \"s\" where \"ay\" is expected"},
        {"no argument", "data", "()", "data: argument 0 (bytes) is missing"},
        {"an argument too many", "data", "(b'x', 1)", "data: argument 1 is one too many"},
        {"an argument where none is expected", "ping", "(1,)", "ping: argument 0 is one too many"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(served.client->callText(row.method, row.arguments),
                  std::string("org.freedesktop.DBus.Error.InvalidArgs: ") + row.expected)
            << row.name;
        EXPECT_EQ(served.client->callText("ping", "()"), "()") << row.name;
    }
    // None of them reached the object.
    EXPECT_EQ(served.object->journal.entries(), std::vector<std::string>(std::size(rows), "ping"));
    EXPECT_TRUE(log.contains("data - refused: data: argument 0 (bytes): signature \"s\""));
}

TEST(NSXPCConnection, RefusesAValueOfAnotherClassThanItsKey)
{
    const LogRecorder log;
    const ServedClient served;
    const auto answer = served.client->callText("things", "(@a(sa{sv}) [('Thing', {'name': <int64 1>})],)");
    EXPECT_TRUE(answer.starts_with("org.freedesktop.DBus.Error.InvalidArgs: things: argument 0 (list), position 0: "
                                   "Thing decodes to no object: "))
        << answer;
    EXPECT_NE(answer.find("name"), std::string::npos) << answer;
}

TEST(NSXPCConnection, RefusesAllObjectsWhereNoClassesWereSet)
{
    const LogRecorder log;
    const auto [one, other] = socketPair();
    auto accepted = acceptLater(one);
    PlainClient client(other);
    const auto service = accepted.get();
    service->setExportedInterface(platform::NSXPCInterface::interfaceWithProtocol(kTestDocument));
    service->setExportedObject(std::make_shared<EchoObject>());
    service->resume();
    EXPECT_EQ(client.callText("things", "(@a(sa{sv}) [('Thing', {'name': <'x'>})],)"),
              "org.freedesktop.DBus.Error.InvalidArgs: things: argument 0 (list), position 0: class \"Thing\" is not "
              "allowed (allowed: none)");
    EXPECT_EQ(client.callText("things", "(@a(sa{sv}) [],)"), "()");
    service->invalidate();
}

TEST(NSXPCConnection, RefusesAContainerThatIsNotAmongTheClasses)
{
    const LogRecorder log;
    const auto [one, other] = socketPair();
    auto accepted = acceptLater(one);
    PlainClient client(other);
    const auto service = accepted.get();
    const auto interface = testInterface();
    interface->setClasses({platform::NSXPCClass::array()}, "data", 0, false);
    interface->setClasses({platform::NSXPCClass::data()}, "things", 0, false);
    service->setExportedInterface(interface);
    service->setExportedObject(std::make_shared<EchoObject>());
    service->resume();
    EXPECT_EQ(client.callText("data", "(b'x',)"),
              "org.freedesktop.DBus.Error.InvalidArgs: data: argument 0 (bytes): class \"NSData\" is not allowed");
    EXPECT_EQ(client.callText("things", "(@a(sa{sv}) [],)"),
              "org.freedesktop.DBus.Error.InvalidArgs: things: argument 0 (list): class \"NSArray\" is not allowed");
    service->invalidate();
}

TEST(NSXPCConnection, QuotesAHostileNameOnlyInPart)
{
    const LogRecorder log;
    const ServedClient served;
    std::string name;
    for (int i = 0; i < 1000; ++i)
        name += "\u00e9";
    const auto answer = served.client->callText("things", ("(@a(sa{sv}) [('" + name + "', {})],)").c_str());
    EXPECT_LT(answer.size(), 300U);
    EXPECT_TRUE(g_utf8_validate(answer.c_str(), -1, nullptr));
}

TEST(NSXPCConnection, AnswersTheToolsOfABus)
{
    // A client that treats the socket as a bus: it says Hello before anything else.
    const ServedClient served(G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    ASSERT_TRUE(served.client->failure.empty()) << served.client->failure;
    EXPECT_TRUE(std::string(served.client->uniqueName()).starts_with(":1."));
    const auto call = [&](const char* path, const char* interface, const char* method, GVariant* arguments) {
        return served.client->call(path, interface, method, arguments, "app.example.Anything");
    };
    EXPECT_EQ(call("/test/Object", "test.Interface", "ping", nullptr), "()");
    EXPECT_EQ(call("/test/Object", "org.freedesktop.DBus.Peer", "Ping", nullptr), "()");
    EXPECT_EQ(call("/test/Object", "org.freedesktop.DBus.Properties", "GetAll", g_variant_new("(s)", "test.Interface")),
              "({},)");
    const auto document = call("/test/Object", "org.freedesktop.DBus.Introspectable", "Introspect", nullptr);
    EXPECT_NE(document.find("<interface name=\"test.Interface\">"), std::string::npos) << document;
    EXPECT_NE(document.find("<arg type=\"a(sa{sv})\" name=\"list\" direction=\"in\">"), std::string::npos) << document;
    const auto root = call("/", "org.freedesktop.DBus.Introspectable", "Introspect", nullptr);
    EXPECT_NE(root.find("<node name=\"test\"/>"), std::string::npos) << root;
    EXPECT_EQ(call("/org/freedesktop/DBus", "org.freedesktop.DBus", "NameHasOwner", g_variant_new("(s)", "a.b")),
              "(true,)");
    EXPECT_EQ(call("/org/freedesktop/DBus", "org.freedesktop.DBus", "GetNameOwner", g_variant_new("(s)", "a.b")),
              "('a.b',)");
    EXPECT_EQ(call("/org/freedesktop/DBus", "org.freedesktop.DBus", "AddMatch", g_variant_new("(s)", "")), "()");
}

TEST(NSXPCConnection, SaysWhyAToolsCallHasNoAnswer)
{
    const ServedClient served;
    const struct {
        const char* path;
        const char* interface;
        const char* method;
        const char* arguments;
        const char* answer;
    } rows[] = {
        {"/test/Object", "org.freedesktop.DBus.Properties", "GetAll", "('a.b',)",
         "org.freedesktop.DBus.Error.InvalidArgs: the object has no interface a.b"},
        {"/test/Object", "org.freedesktop.DBus.Properties", "Get", "('test.Interface', 'x')",
         "org.freedesktop.DBus.Error.InvalidArgs: there is no property x"},
        {"/test/Object", "org.freedesktop.DBus.Properties", "Set", "('test.Interface', 'x', <1>)",
         "org.freedesktop.DBus.Error.InvalidArgs: there is no property x"},
        {"/test/Object", "org.freedesktop.DBus.Properties", "Get", "('x',)",
         "org.freedesktop.DBus.Error.InvalidArgs: Get takes arguments of the types ss"},
        {"/test/Object", "org.freedesktop.DBus.Peer", "Ping", "('x',)",
         "org.freedesktop.DBus.Error.InvalidArgs: Ping takes no arguments"},
        {"/test/Object", "org.freedesktop.DBus", "Hello", "()",
         "org.freedesktop.DBus.Error.UnknownMethod: the object has no interface org.freedesktop.DBus"},
        {"/", "org.freedesktop.DBus.Properties", "GetAll", "('test.Interface',)",
         "org.freedesktop.DBus.Error.UnknownMethod: there is no object at the path /"},
        {"/org/freedesktop/DBus", "org.freedesktop.DBus", "ReloadConfig", "()",
         "org.freedesktop.DBus.Error.UnknownMethod: there is no method ReloadConfig"},
        {"/test", "org.freedesktop.DBus.Introspectable", "Introspect", "()",
         "('<node>\\n  <node name=\"Object\"/>\\n</node>\\n',)"},
        {"/tes", "org.freedesktop.DBus.Introspectable", "Introspect", "()", "('<node>\\n</node>\\n',)"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(served.client->call(row.path, row.interface, row.method, g_variant_new_parsed(row.arguments)),
                  row.answer);
}

TEST(NSXPCConnection, GivesEachConnectionItsOwnUniqueName)
{
    const ServedClient one(G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    const ServedClient other(G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    EXPECT_STRNE(one.client->uniqueName(), other.client->uniqueName());
}

TEST(NSXPCConnection, AnswersUnknownMethodsInterfacesAndObjectsWithErrors)
{
    const ServedClient served;
    EXPECT_TRUE(served.client->callText("nothing", "()").starts_with("org.freedesktop.DBus.Error.UnknownMethod"));
    EXPECT_TRUE(served.client->call("/test/Object", "other.Interface", "ping", nullptr)
                    .starts_with("org.freedesktop.DBus.Error.Unknown"));
    EXPECT_TRUE(served.client->call("/other", "test.Interface", "ping", nullptr)
                    .starts_with("org.freedesktop.DBus.Error.UnknownMethod"));
    EXPECT_EQ(served.client->callText("ping", "()"), "()");
}

TEST(NSXPCConnection, TakesACallWithoutAnInterface)
{
    const ServedClient served;
    GDBusMessage* call = g_dbus_message_new_method_call(nullptr, "/test/Object", nullptr, "ping");
    GDBusMessage* reply = g_dbus_connection_send_message_with_reply_sync(
        served.client->connection(), call, G_DBUS_SEND_MESSAGE_FLAGS_NONE, 30000, nullptr, nullptr, nullptr);
    ASSERT_TRUE(reply);
    EXPECT_EQ(g_dbus_message_get_message_type(reply), G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
    g_object_unref(reply);
    g_object_unref(call);
}

TEST(NSXPCConnection, SendsNoReplyToACallThatWantsNone)
{
    const LogRecorder log;
    const ServedClient served;
    // Not on the stack, where the thread sanitizer would not see that it was made before the library's thread used it.
    static std::atomic<int> replies{0};
    g_dbus_connection_add_filter(
        served.client->connection(),
        [](GDBusConnection*, GDBusMessage* message, gboolean isIncoming, gpointer) {
            if (isIncoming)
                ++replies;
            return message;
        },
        nullptr, nullptr);
    for (const char* method : {"ping", "data"}) {
        GDBusMessage* message = g_dbus_message_new_method_call(nullptr, "/test/Object", "test.Interface", method);
        g_dbus_message_set_flags(message, G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
        g_dbus_connection_send_message(served.client->connection(), message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                       nullptr);
        g_object_unref(message);
    }
    EXPECT_EQ(served.client->callText("ping", "()"), "()");
    EXPECT_EQ(replies, 1);
}

TEST(NSXPCConnection, AnswersACallWhoseReplyWasDroppedWithAnError)
{
    const LogRecorder log;
    const ConnectionPair pair;
    const auto object = std::make_shared<SilentObject>();
    pair.service->setExportedObject(object);
    pair.service->resume();
    pair.client->resume();
    auto asked = ask(pair.client, "ping", {});
    ASSERT_TRUE(object->journal.waitFor(1));
    object->takeReplies().clear();
    const auto answer = get(std::move(asked));
    EXPECT_FALSE(answer.values);
    EXPECT_EQ(answer.error.domain, "org.freedesktop.DBus.Error.Failed");
    EXPECT_EQ(answer.error.localizedDescription, "ping: the call was dropped without a reply");
}

TEST(NSXPCConnection, PassesARefusalToTheCallersReplyBlock)
{
    const LogRecorder log;
    const ConnectionPair pair;
    pair.service->setExportedObject(std::make_shared<EchoObject>());
    pair.service->resume();
    pair.client->resume();
    const auto answer = get(ask(pair.client, "things:", {NSXPCObjects{thingNamed("nothing")}}));
    EXPECT_FALSE(answer.values);
    EXPECT_EQ(answer.error.domain, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(answer.error.localizedDescription, "things: argument 0 (list), position 0: Thing decodes to no object");
}

TEST(NSXPCConnection, TellsItsOwnerOnceWhenThePeerGoesAway)
{
    const ConnectionPair pair;
    Journal journal;
    pair.service->setExportedObject(std::make_shared<EchoObject>());
    pair.service->setInvalidationHandler([&] { journal.add("gone"); });
    pair.service->resume();
    pair.client->resume();
    EXPECT_TRUE(get(ask(pair.client, "ping", {})).values);
    pair.client->invalidate();
    ASSERT_TRUE(journal.waitFor(1));
    EXPECT_FALSE(pair.service->isValid());
    pair.service->invalidate();
    pair.service->invalidate();
    EXPECT_FALSE(journal.waitFor(2, std::chrono::milliseconds(50)));
}

TEST(NSXPCConnection, ReadsNoGreetingWithoutAnEnd)
{
    const auto [one, other] = socketPair();
    std::string reason;
    auto accepted = acceptLater(one, &reason);
    RawClient client(other);
    client.send(std::string_view("\0", 1));
    client.send("AUTH EXTERNAL ");
    client.send(std::string(1 << 20, '3'));
    EXPECT_EQ(accepted.wait_for(kDeadline), std::future_status::ready);
    client.close();
    EXPECT_FALSE(accepted.get());
    EXPECT_NE(reason.find("too long"), std::string::npos) << reason;
}

TEST(NSXPCConnection, NoticesAnEndFromBeforeItWasResumed)
{
    const auto quiet = g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, gpointer) {}, nullptr);
    const std::string rows[] = {"", std::string("l\1\0\1\x10\0\0\0\1\0\0\0\x20", 13),
                                std::string("l\1\0\1\xff\xff\xff\xff\1\0\0\0\xff\xff\xff\xff", 16)};
    // Often enough that the end comes before, while and after the connection is resumed.
    for (size_t i = 0; i < 20 * std::size(rows); ++i) {
        const auto [one, other] = socketPair();
        auto accepted = acceptLater(one);
        RawClient client(other);
        ASSERT_TRUE(client.authenticate());
        client.send(rows[i % std::size(rows)]);
        client.stopSending();
        const auto service = accepted.get();
        std::promise<void> ended;
        service->setInvalidationHandler([&] { ended.set_value(); });
        service->resume();
        ASSERT_EQ(ended.get_future().wait_for(kDeadline), std::future_status::ready);
        EXPECT_TRUE(client.waitForEnd());
    }
    g_log_set_default_handler(quiet, nullptr);
}

TEST(NSXPCConnection, LetsGoOfItsObjectWhenItEnds)
{
    const ConnectionPair pair;
    auto object = std::make_shared<EchoObject>();
    const std::weak_ptr<EchoObject> watch = object;
    pair.service->setExportedObject(std::move(object));
    std::promise<void> ended;
    pair.service->setInvalidationHandler([&] { ended.set_value(); });
    pair.service->resume();
    pair.client->resume();
    pair.client->invalidate();
    ASSERT_EQ(ended.get_future().wait_for(kDeadline), std::future_status::ready);
    EXPECT_EQ(pair.service->exportedObject(), nullptr);
    const auto deadline = std::chrono::steady_clock::now() + kDeadline;
    while (!watch.expired() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    EXPECT_TRUE(watch.expired());
}

TEST(NSXPCConnection, FailsCallsThatWaitForAReplyWhenThePeerGoesAway)
{
    const ConnectionPair pair;
    const auto object = std::make_shared<SilentObject>();
    pair.service->setExportedObject(object);
    pair.service->resume();
    pair.client->resume();
    auto asked = ask(pair.client, "ping", {});
    ASSERT_TRUE(object->journal.waitFor(1));
    pair.service->invalidate();
    const auto answer = get(std::move(asked));
    EXPECT_FALSE(answer.values);
    EXPECT_EQ(answer.error.code, platform::kNSXPCConnectionInvalid);
    EXPECT_EQ(answer.error.localizedDescription, "ping: the connection has ended");
    const LogRecorder log;
    for (auto& reply : object->takeReplies())
        reply({});
}

TEST(NSXPCConnection, SendsNoAnswerAfterItsEndThoughTheSocketIsStillOpen)
{
    // The socket is closed by another thread, which may come later than the answer.
    for (int i = 0; i < 50; ++i) {
        const ConnectionPair pair;
        const auto object = std::make_shared<SilentObject>();
        pair.service->setExportedObject(object);
        pair.service->resume();
        pair.client->resume();
        auto asked = ask(pair.client, "ping", {});
        ASSERT_TRUE(object->journal.waitFor(1));
        auto replies = object->takeReplies();
        pair.service->invalidate();
        for (auto& reply : replies)
            reply(platform::NSXPCValues{});
        EXPECT_FALSE(get(std::move(asked)).values) << i;
    }
}

TEST(NSXPCConnection, FailsACallAfterItsEndAndDropsAMessageSilently)
{
    const LogRecorder log;
    const ConnectionPair pair;
    pair.client->resume();
    pair.client->invalidate();
    const auto answer = get(ask(pair.client, "ping", {}));
    EXPECT_FALSE(answer.values);
    EXPECT_EQ(answer.error.code, platform::kNSXPCConnectionInvalid);
    pair.client->remoteObjectProxy().call("tell:", {std::string("nobody")});
    EXPECT_TRUE(log.lines().empty());
}

TEST(NSXPCConnection, SlowsACallerInsteadOfFillingMemoryWhenThePeerReadsNothing)
{
    const LogRecorder log;
    const auto [one, other] = socketPair();
    auto accepted = acceptLater(one);
    RawClient client(other);
    ASSERT_TRUE(client.authenticate());
    const auto service = accepted.get();
    service->setRemoteObjectInterface(testInterface());
    service->resume();
    std::atomic<int> sent{0};
    Journal journal;
    auto sender = std::async(std::launch::async, [&] {
        const auto proxy = service->remoteObjectProxy();
        const std::string text(100000, 'x');
        while (service->isValid()) {
            proxy.call("tell:", {text});
            journal.add(std::to_string(++sent));
        }
    });
    // A socket holds a few hundred kilobytes; a sender that ran free would send thousands in this time.
    EXPECT_FALSE(journal.waitFor(100, std::chrono::milliseconds(200)));
    client.close();
    EXPECT_EQ(sender.wait_for(kDeadline), std::future_status::ready);
}

TEST(NSXPCConnection, RefusesAPeerThatDoesNotSayWhoItIs)
{
    const struct {
        const char* name;
        std::string words;
    } rows[] = {
        {"anonymous", std::string("\0AUTH ANONYMOUS 6d65\r\n", 22)},
        {"cookie", std::string("\0AUTH DBUS_COOKIE_SHA1 30\r\n", 28)},
        {"another user", std::string("\0AUTH EXTERNAL 3939393939\r\n", 28)},
    };
    for (const auto& row : rows) {
        const auto [one, other] = socketPair();
        std::string message;
        auto accepted = acceptLater(one, &message);
        RawClient client(other);
        client.send(row.words);
        EXPECT_TRUE(client.receiveLine().starts_with("REJECTED")) << row.name;
        client.close();
        EXPECT_EQ(accepted.get(), nullptr) << row.name;
        EXPECT_TRUE(message.starts_with("Connection of a client failed: ")) << message;
    }
}

TEST(NSXPCConnection, RefusesGarbageInsteadOfAnAuthentication)
{
    const auto [one, other] = socketPair();
    auto accepted = acceptLater(one);
    RawClient client(other);
    client.send(std::string(100000, '\x5a'));
    client.close();
    EXPECT_EQ(accepted.get(), nullptr);
}

TEST(NSXPCConnection, GivesUpOnAPeerThatSaysNothing)
{
    const auto [one, other] = socketPair();
    NSError error;
    EXPECT_EQ(NSXPCConnection::acceptedConnectionWithSocket(one, &error, 0.05), nullptr);
    EXPECT_EQ(error.code, ETIMEDOUT);
    close(other);
    const auto [three, four] = socketPair();
    EXPECT_EQ(NSXPCConnection::connectionWithSocket(three, &error, 0.05), nullptr);
    EXPECT_EQ(error.code, ETIMEDOUT);
    close(four);
}

TEST(NSXPCConnection, ReadsNoAnswerWithoutEndInTheAuthentication)
{
    const auto [one, other] = socketPair();
    ASSERT_GT(send(other, std::string(5000, 'O').data(), 5000, MSG_NOSIGNAL), 0);
    NSError error;
    EXPECT_EQ(NSXPCConnection::connectionWithSocket(one, &error), nullptr);
    EXPECT_EQ(error.code, EPROTO);
    close(other);
}

TEST(NSXPCConnection, IsToldToWaitNoLongerForAnAuthentication)
{
    const auto [one, other] = socketPair();
    NSError error;
    int turns = 0;
    EXPECT_EQ(NSXPCConnection::connectionWithSocket(one, &error, 3600, [&] { return ++turns < 3; }), nullptr);
    EXPECT_EQ(turns, 3);
    EXPECT_EQ(error.code, ETIMEDOUT);
    close(other);
}

TEST(NSXPCConnection, RefusesADescriptorThatIsNoSocket)
{
    NSError error;
    EXPECT_EQ(NSXPCConnection::connectionWithSocket(open("/dev/null", O_RDWR | O_CLOEXEC), &error), nullptr);
    EXPECT_FALSE(error.localizedDescription.empty());
}

TEST(NSXPCConnection, EndsOnGarbageAfterTheAuthenticationAndHarmsNoOther)
{
    // The library warns of what it cannot read.
    const auto quiet = g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, gpointer) {}, nullptr);
    const ServedClient neighbour;
    const std::string nothing = methodCall("as", std::string(4, '\0'));
    const struct {
        const char* name;
        std::string bytes;
    } rows[] = {
        {"random bytes", std::string(4096, '\x7e')},
        {"a body of two gigabytes", std::string("l\1\0\1\xff\xff\xff\x7f\1\0\0\0\0\0\0\0", 16)},
        {"a header of two gigabytes", std::string("l\1\0\1\0\0\0\0\1\0\0\0\xff\xff\xff\x7f", 16)},
        {"an unknown byte order", std::string("x\1\0\1\0\0\0\0\1\0\0\0\0\0\0\0", 16)},
        {"a body that does not fit its signature", methodCall("a(sa{sv})", std::string("\xff\0\0\0", 4))},
        {"a serial of 0", nothing.substr(0, 8) + std::string(4, '\0') + nothing.substr(12)},
        {"a path that is text", std::string(nothing).replace(nothing.find("\1o"), 2, "\1s")},
        {"a member that is a path", std::string(nothing).replace(nothing.find("things"), 6, "/thing")},
        // What follows must not be looked at by anybody.
        {"a path that is a number, often",
         [&] {
             const std::string message = std::string(nothing).replace(nothing.find("\1o"), 2, "\1b");
             std::string all;
             for (int i = 0; i < 200; ++i)
                 all += message;
             return all;
         }()},
    };
    for (const auto& row : rows) {
        ServedRawClient served;
        ASSERT_TRUE(served.isAuthenticated);
        RawClient& client = served.client;
        client.send(row.bytes);
        EXPECT_TRUE(client.waitForEnd()) << row.name;
        EXPECT_EQ(neighbour.client->callText("ping", "()"), "()") << row.name;
    }
    g_log_set_default_handler(quiet, nullptr);
}

TEST(NSXPCConnection, EndsWhereAPeerAsksOnAndOnWithoutReading)
{
    const ServedClient neighbour;
    const std::string nothing = methodCall("as", std::string(4, '\0'));
    const struct {
        const char* name;
        std::string message;
    } rows[] = {
        {"calls that are refused", nothing},
        {"calls that GLib answers", std::string(nothing).replace(nothing.find("/test/Object"), 12, "/test/Nobody")},
        {"calls that are answered", methodCall("a(sa{sv})", std::string(8, '\0'))},
    };
    for (const auto& row : rows) {
        ServedRawClient served;
        ASSERT_TRUE(served.isAuthenticated);
        RawClient& client = served.client;
        // Far more than sockets hold; returns when the other end is closed.
        for (int i = 0; i < 100000 && served.service->isValid(); ++i)
            client.send(row.message);
        EXPECT_FALSE(served.service->isValid()) << row.name;
        EXPECT_EQ(neighbour.client->callText("ping", "()"), "()") << row.name;
    }
}

TEST(NSXPCConnection, CountsOnlyAnswersThatAreNotRead)
{
    ServedRawClient served;
    ASSERT_TRUE(served.isAuthenticated);
    RawClient& client = served.client;
    const std::string refused = methodCall("as", std::string(4, '\0'));
    std::string unheard = refused;
    unheard[2] = 1;
    const std::string elsewhere = std::string(unheard).replace(unheard.find("/test/Object"), 12, "/test/Nobody");
    // Twice as many as may lie unread: of the first kind each is read, the others have no answer.
    for (int i = 0; i < 20000; ++i) {
        client.send(refused);
        ASSERT_TRUE(client.receiveMessage()) << i;
    }
    for (int i = 0; i < 20000; ++i) {
        client.send(unheard);
        client.send(elsewhere);
    }
    client.send(refused);
    EXPECT_TRUE(client.receiveMessage());
    EXPECT_TRUE(served.service->isValid());
}

TEST(NSXPCConnection, SurvivesVariantsOfGreatDepth)
{
    const auto quiet = g_log_set_default_handler([](const char*, GLogLevelFlags, const char*, gpointer) {}, nullptr);
    const ServedClient neighbour;
    for (const size_t depth : {60, 1000, 1000000}) {
        ServedRawClient served;
        ASSERT_TRUE(served.isAuthenticated);
        RawClient& client = served.client;
        // Each variant is its signature alone, "v", and then the next; the last holds a byte.
        std::string body;
        for (size_t i = 0; i < depth; ++i)
            body += std::string("\1v\0", 3);
        client.send(methodCall("v", body + std::string("\1y\0\7", 4)));
        EXPECT_EQ(neighbour.client->callText("ping", "()"), "()") << depth;
    }
    g_log_set_default_handler(quiet, nullptr);
}
