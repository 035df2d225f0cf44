#include "platform/connection/StandardCalls.h"

#include "platform/foundation/Handle.h"

#include <gio/gio.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <set>
#include <utility>
#include <vector>

namespace platform {

namespace {

constexpr const char* kInvalidArgs = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char* kUnknownMethod = "org.freedesktop.DBus.Error.UnknownMethod";
constexpr const char* kFailed = "org.freedesktop.DBus.Error.Failed";

constexpr std::string_view kBusPath = "/org/freedesktop/DBus";
constexpr std::string_view kBus = "org.freedesktop.DBus";
constexpr std::string_view kPeer = "org.freedesktop.DBus.Peer";
constexpr std::string_view kIntrospectable = "org.freedesktop.DBus.Introspectable";
constexpr std::string_view kProperties = "org.freedesktop.DBus.Properties";

constexpr std::string_view kStandardInterfaces = R"(  <interface name="org.freedesktop.DBus.Properties">
    <method name="Get">
      <arg type="s" name="interface_name" direction="in"/>
      <arg type="s" name="property_name" direction="in"/>
      <arg type="v" name="value" direction="out"/>
    </method>
    <method name="GetAll">
      <arg type="s" name="interface_name" direction="in"/>
      <arg type="a{sv}" name="properties" direction="out"/>
    </method>
    <method name="Set">
      <arg type="s" name="interface_name" direction="in"/>
      <arg type="s" name="property_name" direction="in"/>
      <arg type="v" name="value" direction="in"/>
    </method>
  </interface>
  <interface name="org.freedesktop.DBus.Introspectable">
    <method name="Introspect">
      <arg type="s" name="xml_data" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.DBus.Peer">
    <method name="Ping"/>
    <method name="GetMachineId">
      <arg type="s" name="machine_uuid" direction="out"/>
    </method>
  </interface>
)";

constexpr std::string_view kBusInterface = R"(  <interface name="org.freedesktop.DBus">
    <method name="Hello">
      <arg type="s" name="name" direction="out"/>
    </method>
    <method name="AddMatch">
      <arg type="s" name="rule" direction="in"/>
    </method>
    <method name="RemoveMatch">
      <arg type="s" name="rule" direction="in"/>
    </method>
    <method name="ListNames">
      <arg type="as" name="names" direction="out"/>
    </method>
    <method name="NameHasOwner">
      <arg type="s" name="name" direction="in"/>
      <arg type="b" name="hasOwner" direction="out"/>
    </method>
    <method name="GetNameOwner">
      <arg type="s" name="name" direction="in"/>
      <arg type="s" name="owner" direction="out"/>
    </method>
  </interface>
)";

std::string newUniqueName()
{
    static std::atomic<uint64_t> last{0};
    return ":1." + std::to_string(++last);
}

/// The document's interface as it is introspected.
std::string interfaceXML(const NSXPCInterface& interface)
{
    const Handle<GDBusNodeInfo, g_dbus_node_info_unref> node(
        g_dbus_node_info_new_for_xml(interface.introspectionXML().c_str(), nullptr));
    auto* info = g_dbus_node_info_lookup_interface(node.get(), interface.name().c_str());
    GString* text = g_string_new(nullptr);
    g_dbus_interface_info_generate_xml(info, 2, text);
    std::string xml(text->str, text->len);
    g_string_free(text, TRUE);
    return xml;
}

/// "a" for "/a/b" below "/"; nothing where `path` is not above `object`.
std::string_view nextName(std::string_view path, std::string_view object)
{
    const size_t start = path.size() == 1 ? 1 : path.size() + 1;
    if (object.size() <= start || !object.starts_with(path) || object[start - 1] != '/')
        return {};
    return object.substr(start, object.find('/', start) - start);
}

} // namespace

/// What is asked, and why there is no answer.
struct StandardCalls::Call {
    std::string_view path;
    /// Of its arguments, which are a tuple; may be null for none.
    GVariant* body;
    mutable const char* errorName = nullptr;
    mutable std::string error = {};

    /// The text of an argument whose type is known to be one.
    std::string_view text(gsize index) const
    {
        const Handle<GVariant, g_variant_unref> child(g_variant_get_child_value(body, index));
        return g_variant_get_string(child.get(), nullptr);
    }
    GVariant* fail(const char* name, std::string reason) const
    {
        errorName = name;
        error = std::move(reason);
        return nullptr;
    }
};

struct StandardCalls::Method {
    std::string_view interface;
    std::string_view name;
    std::string_view arguments;
    GVariant* (*answer)(const StandardCalls&, const Call&);
};

StandardCalls::StandardCalls(std::shared_ptr<const NSXPCInterface> exported, Role role)
    : exported_(std::move(exported)), role_(role), uniqueName_(newUniqueName())
{}

GDBusMessage* StandardCalls::answer(GDBusMessage* call) const
{
    using C = const Call&;
    using S = const StandardCalls&;
    static constexpr auto kNothing = [](S, C) { return g_variant_new_tuple(nullptr, 0); };
    static constexpr std::array<Method, 12> kMethods{{
        {kPeer, "Ping", "", kNothing},
        {kPeer, "GetMachineId", "", [](S self, C asked) { return self.machineID(asked); }},
        {kIntrospectable, "Introspect", "", [](S self, C asked) { return self.introspection(asked); }},
        {kProperties, "Get", "ss", [](S self, C asked) { return self.noProperty(asked); }},
        {kProperties, "Set", "ssv", [](S self, C asked) { return self.noProperty(asked); }},
        {kProperties, "GetAll", "s", [](S self, C asked) { return self.allProperties(asked); }},
        {kBus, "Hello", "", [](S self, C asked) { return self.hello(asked); }},
        {kBus, "AddMatch", "s", kNothing},
        {kBus, "RemoveMatch", "s", kNothing},
        {kBus, "ListNames", "", [](S self, C asked) { return self.names(asked); }},
        // There is nobody at the other end but the service, whatever it is called.
        {kBus, "NameHasOwner", "s", [](S, C) { return g_variant_new("(b)", TRUE); }},
        {kBus, "GetNameOwner", "s",
         [](S, C asked) { return g_variant_new("(s)", std::string(asked.text(0)).c_str()); }},
    }};
    const char* const interface = g_dbus_message_get_interface(call);
    const std::string_view member = g_dbus_message_get_member(call);
    const Call asked{.path = g_dbus_message_get_path(call), .body = g_dbus_message_get_body(call)};
    GVariant* body = nullptr;
    const auto* method = std::ranges::find_if(kMethods, [&](const Method& each) {
        return each.name == member && (!interface || each.interface == interface) &&
               hasInterface(asked.path, each.interface);
    });
    if (method != kMethods.end() && method->arguments == g_dbus_message_get_signature(call))
        body = method->answer(*this, asked);
    else if (method != kMethods.end())
        asked.fail(kInvalidArgs,
                   std::string(member) + (method->arguments.empty()
                                              ? " takes no arguments"
                                              : " takes arguments of the types " + std::string(method->arguments)));
    else if (!hasObject(asked.path))
        asked.fail(kUnknownMethod, "there is no object at the path " + std::string(asked.path));
    else if (interface && !hasInterface(asked.path, interface))
        asked.fail(kUnknownMethod, "the object has no interface " + std::string(interface));
    else
        asked.fail(kUnknownMethod, "there is no method " + std::string(member));
    if (!body)
        return g_dbus_message_new_method_error_literal(call, asked.errorName, asked.error.c_str());
    GDBusMessage* const reply = g_dbus_message_new_method_reply(call);
    g_dbus_message_set_body(reply, body);
    return reply;
}

GVariant* StandardCalls::machineID(const Call& call) const
{
    std::ifstream file("/etc/machine-id");
    std::string identifier;
    if (!std::getline(file, identifier) || identifier.empty())
        return call.fail(kFailed, "this machine has no identifier");
    return g_variant_new("(s)", identifier.c_str());
}

GVariant* StandardCalls::introspection(const Call& call) const
{
    std::string xml = "<node>\n";
    if (hasObject(call.path))
        xml += kStandardInterfaces;
    if (exported_ && call.path == exported_->objectPath())
        xml += interfaceXML(*exported_);
    if (role_ == Role::Bus && call.path == kBusPath)
        xml += kBusInterface;
    std::set<std::string_view> children;
    if (exported_)
        children.insert(nextName(call.path, exported_->objectPath()));
    if (role_ == Role::Bus)
        children.insert(nextName(call.path, kBusPath));
    for (const std::string_view child : children)
        if (!child.empty())
            xml += "  <node name=\"" + std::string(child) + "\"/>\n";
    return g_variant_new("(s)", (xml + "</node>\n").c_str());
}

GVariant* StandardCalls::noProperty(const Call& call) const
{
    if (!hasInterface(call.path, call.text(0)))
        return call.fail(kInvalidArgs, "the object has no interface " + std::string(call.text(0)));
    return call.fail(kInvalidArgs, "there is no property " + std::string(call.text(1)));
}

GVariant* StandardCalls::allProperties(const Call& call) const
{
    if (!hasInterface(call.path, call.text(0)))
        return call.fail(kInvalidArgs, "the object has no interface " + std::string(call.text(0)));
    return g_variant_new("(@a{sv})", g_variant_new_array(G_VARIANT_TYPE("{sv}"), nullptr, 0));
}

GVariant* StandardCalls::hello(const Call&) const
{
    return g_variant_new("(s)", uniqueName_.c_str());
}

GVariant* StandardCalls::names(const Call&) const
{
    const std::array<const char*, 2> all{kBus.data(), uniqueName_.c_str()};
    return g_variant_new("(@as)", g_variant_new_strv(all.data(), all.size()));
}

bool StandardCalls::hasObject(std::string_view path) const
{
    return (exported_ && path == exported_->objectPath()) || (role_ == Role::Bus && path == kBusPath);
}

bool StandardCalls::hasInterface(std::string_view path, std::string_view name) const
{
    // Of any path, so that tools find their way from the root to the objects.
    if (name == kPeer || name == kIntrospectable)
        return true;
    if (name == kProperties)
        return hasObject(path);
    if (name == kBus)
        return role_ == Role::Bus && path == kBusPath;
    return exported_ && path == exported_->objectPath() && name == exported_->name();
}

} // namespace platform
