#include "platform/connection/NSXPCInterface.h"

#include "platform/connection/MessageCoding.h"
#include "platform/foundation/Handle.h"

#include <gio/gio.h>

#include <memory>
#include <utility>

namespace platform {

namespace {

std::string_view firstKeyword(std::string_view selector)
{
    return selector.substr(0, selector.find(':'));
}

bool readArguments(GDBusArgInfo** infos, const std::string& operation, std::vector<NSXPCInterface::Argument>& arguments,
                   NSError* error)
{
    for (; infos && *infos; ++infos) {
        const std::string name = (*infos)->name ? (*infos)->name : "";
        const std::string signature = (*infos)->signature;
        if (!isValueSignature(signature)) {
            return fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError,
                        operation + ": argument \"" + name + "\" has the signature \"" + signature +
                            "\", which stands for no value");
        }
        arguments.push_back({name, signature});
    }
    return true;
}

} // namespace

std::shared_ptr<NSXPCInterface> NSXPCInterface::interfaceWithProtocol(const std::string& introspectionXML,
                                                                      NSError* error)
{
    GError* reason = nullptr;
    const Handle<GDBusNodeInfo, g_dbus_node_info_unref> node(
        g_dbus_node_info_new_for_xml(introspectionXML.c_str(), &reason));
    if (!node) {
        fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError,
             std::string("Introspection document cannot be read: ") + reason->message);
        g_error_free(reason);
        return nullptr;
    }
    if (!node->path || !g_variant_is_object_path(node->path) || !node->interfaces || !node->interfaces[0]) {
        fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError,
             "Introspection document names no object path or no interface");
        return nullptr;
    }
    const GDBusInterfaceInfo& info = *node->interfaces[0];
    // The constructor is private, for an interface without a document makes no sense.
    std::shared_ptr<NSXPCInterface> interface(new NSXPCInterface);
    interface->introspectionXML_ = introspectionXML;
    interface->name_ = info.name;
    interface->objectPath_ = node->path;
    for (auto** method = info.methods; method && *method; ++method) {
        Operation operation;
        const std::string name = (*method)->name;
        if (!readArguments((*method)->in_args, name, operation.arguments, error) ||
            !readArguments((*method)->out_args, name, operation.reply, error))
            return nullptr;
        const char* noReply =
            g_dbus_annotation_info_lookup((*method)->annotations, "org.freedesktop.DBus.Method.NoReply");
        operation.isOneWay = noReply && std::string_view(noReply) == "true";
        interface->operations_.emplace(name, std::move(operation));
    }
    return interface;
}

void NSXPCInterface::setClasses(std::vector<NSXPCClass> classes, std::string_view selector, size_t argumentIndex,
                                bool ofReply)
{
    classes_[{std::string(firstKeyword(selector)), argumentIndex, ofReply}] = std::move(classes);
}

const std::vector<NSXPCClass>* NSXPCInterface::classesForSelector(std::string_view selector, size_t argumentIndex,
                                                                  bool ofReply) const
{
    const auto found = classes_.find({std::string(firstKeyword(selector)), argumentIndex, ofReply});
    return found == classes_.end() ? nullptr : &found->second;
}

const NSXPCInterface::Operation* NSXPCInterface::operation(std::string_view selector) const
{
    const auto found = operations_.find(firstKeyword(selector));
    return found == operations_.end() ? nullptr : &found->second;
}

} // namespace platform
