#include "platform/connection/MessageCoding.h"

#include "platform/foundation/Handle.h"

#include <gio/gio.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

namespace platform {

namespace {

/// Signatures in the order of NSXPCValue's kinds.
constexpr const char* kSignatures[] = {"b", "x", "d", "s", "ay", "a(sa{sv})", "a(sxs)"};
static_assert(std::size(kSignatures) == std::variant_size_v<NSXPCValue>);

/// What a peer writes is repeated in messages up to here.
constexpr size_t kQuotedLength = 80;

using VariantPtr = Handle<GVariant, g_variant_unref>;

using TextPtr = Handle<char, g_free>;

std::string inQuotes(std::string_view text)
{
    size_t end = std::min(text.size(), kQuotedLength);
    // Not within a character: its further bytes begin with the bits 10.
    while (end > 0 && end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    std::string result = "\"";
    result += text.substr(0, end);
    result += end < text.size() ? "...\"" : "\"";
    return result;
}

GVariant* textVariant(std::string_view text)
{
    return g_variant_new_take_string(g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())));
}

GVariant* bytesVariant(const NSData& data)
{
    return g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data.data(), data.size(), 1);
}

struct CodedValueVariant {
    GVariant* operator()(const NSData& data) const { return bytesVariant(data); }
    GVariant* operator()(const std::string& text) const { return textVariant(text); }
    GVariant* operator()(const NSNumber& number) const { return std::visit(*this, number); }
    GVariant* operator()(bool number) const { return g_variant_new_boolean(number); }
    GVariant* operator()(int64_t number) const { return g_variant_new_int64(number); }
    GVariant* operator()(uint64_t number) const { return g_variant_new_uint64(number); }
    GVariant* operator()(double number) const { return g_variant_new_double(number); }
    GVariant* operator()(const NSDate& date) const
    {
        return g_variant_new("(sv)", "NSDate", g_variant_new_double(date.timeIntervalSinceReferenceDate));
    }
    GVariant* operator()(const NSColor& color) const
    {
        return g_variant_new("(sv)", "NSColor",
                             g_variant_new("(sdddd)", color.space == NSColor::Space::Device ? "device" : "calibrated",
                                           color.red, color.green, color.blue, color.alpha));
    }
};

GVariant* objectVariant(const NSXPCObjects::value_type::element_type& object)
{
    NSCoder coder;
    object.encodeWithCoder(coder);
    GVariantBuilder item;
    g_variant_builder_init(&item, G_VARIANT_TYPE("(sa{sv})"));
    g_variant_builder_add_value(&item, textVariant(object.className()));
    g_variant_builder_open(&item, G_VARIANT_TYPE("a{sv}"));
    for (const auto& [key, value] : coder.values()) {
        g_variant_builder_open(&item, G_VARIANT_TYPE("{sv}"));
        g_variant_builder_add_value(&item, textVariant(key));
        g_variant_builder_add_value(&item, g_variant_new_variant(std::visit(CodedValueVariant{}, value)));
        g_variant_builder_close(&item);
    }
    g_variant_builder_close(&item);
    GVariant* const variant = g_variant_builder_end(&item);
    // Asked for its bytes, it lets go of the tree that it was made of, which takes many times as much.
    static_cast<void>(g_variant_get_data(variant));
    return variant;
}

struct ValueVariant {
    GVariant* operator()(bool value) const { return g_variant_new_boolean(value); }
    GVariant* operator()(int64_t value) const { return g_variant_new_int64(value); }
    GVariant* operator()(double value) const { return g_variant_new_double(value); }
    GVariant* operator()(const std::string& value) const { return textVariant(value); }
    GVariant* operator()(const NSData& value) const { return bytesVariant(value); }
    GVariant* operator()(const NSXPCObjects& objects) const
    {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE("a(sa{sv})"));
        for (const auto& object : objects)
            g_variant_builder_add_value(&list, objectVariant(*object));
        return g_variant_builder_end(&list);
    }
    GVariant* operator()(const std::optional<NSError>& error) const
    {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE("a(sxs)"));
        if (error) {
            g_variant_builder_open(&list, G_VARIANT_TYPE("(sxs)"));
            g_variant_builder_add_value(&list, textVariant(error->domain));
            g_variant_builder_add_value(&list, g_variant_new_int64(error->code));
            g_variant_builder_add_value(&list, textVariant(error->localizedDescription));
            g_variant_builder_close(&list);
        }
        return g_variant_builder_end(&list);
    }
};

std::string_view text(GVariant* variant)
{
    gsize length = 0;
    const char* characters = g_variant_get_string(variant, &length);
    return {characters, length};
}

NSData bytes(GVariant* variant)
{
    gsize length = 0;
    const auto* data = static_cast<const uint8_t*>(g_variant_get_fixed_array(variant, &length, 1));
    return NSData(data, data + length);
}

VariantPtr child(GVariant* container, size_t index)
{
    return VariantPtr(g_variant_get_child_value(container, index));
}

/// Date and colour: `(sv)` with the class's name.
std::optional<CodedValue> decodeTagged(GVariant* variant, std::string& reason)
{
    const auto tag = child(variant, 0);
    const auto content = VariantPtr(g_variant_get_variant(child(variant, 1).get()));
    const auto name = text(tag.get());
    if (name == "NSDate") {
        if (!g_variant_is_of_type(content.get(), G_VARIANT_TYPE_DOUBLE)) {
            reason = "a date is one number of type \"d\"";
            return std::nullopt;
        }
        const double seconds = g_variant_get_double(content.get());
        if (!std::isfinite(seconds)) {
            reason = "a date must be a finite number of seconds";
            return std::nullopt;
        }
        return NSDate{seconds};
    }
    if (name == "NSColor") {
        if (!g_variant_is_of_type(content.get(), G_VARIANT_TYPE("(sdddd)"))) {
            reason = "a colour is of type \"(sdddd)\"";
            return std::nullopt;
        }
        const char* space = nullptr;
        NSColor color;
        g_variant_get(content.get(), "(&sdddd)", &space, &color.red, &color.green, &color.blue, &color.alpha);
        if (std::string_view(space) == "calibrated") {
            color.space = NSColor::Space::Calibrated;
        } else if (std::string_view(space) != "device") {
            reason = "the colour space " + inQuotes(space) + " is neither \"device\" nor \"calibrated\"";
            return std::nullopt;
        }
        for (const double component : {color.red, color.green, color.blue, color.alpha}) {
            if (!(component >= 0 && component <= 1)) {
                reason = "the components of a colour lie from 0 to 1";
                return std::nullopt;
            }
        }
        return color;
    }
    reason = inQuotes(name) + " is no class of values";
    return std::nullopt;
}

std::optional<CodedValue> decodeCodedValue(GVariant* variant, std::string& reason)
{
    switch (g_variant_classify(variant)) {
    case G_VARIANT_CLASS_BOOLEAN:
        return NSNumber(static_cast<bool>(g_variant_get_boolean(variant)));
    case G_VARIANT_CLASS_INT32:
        return NSNumber(int64_t{g_variant_get_int32(variant)});
    case G_VARIANT_CLASS_UINT32:
        return NSNumber(int64_t{g_variant_get_uint32(variant)});
    case G_VARIANT_CLASS_INT64:
        return NSNumber(int64_t{g_variant_get_int64(variant)});
    case G_VARIANT_CLASS_UINT64:
        return NSNumber(uint64_t{g_variant_get_uint64(variant)});
    case G_VARIANT_CLASS_DOUBLE:
        return NSNumber(g_variant_get_double(variant));
    case G_VARIANT_CLASS_STRING:
        return std::string(text(variant));
    default:
        if (g_variant_is_of_type(variant, G_VARIANT_TYPE_BYTESTRING))
            return bytes(variant);
        if (g_variant_is_of_type(variant, G_VARIANT_TYPE("(sv)")))
            return decodeTagged(variant, reason);
        reason = "type " + inQuotes(g_variant_get_type_string(variant)) + " stands for no class";
        return std::nullopt;
    }
}

bool isNamed(const std::vector<NSXPCClass>& classes, std::string_view name)
{
    return std::ranges::any_of(classes, [&](const auto& allowed) { return allowed.name == name; });
}

std::string names(const std::vector<NSXPCClass>* classes)
{
    std::string result;
    for (const auto& allowed : classes ? *classes : std::vector<NSXPCClass>()) {
        if (allowed.initWithCoder)
            result += (result.empty() ? "" : ", ") + allowed.name;
    }
    return result.empty() ? "none" : result;
}

std::shared_ptr<NSSecureCoding> decodeObject(GVariant* variant, const std::vector<NSXPCClass>* classes,
                                             std::string& reason)
{
    const auto nameVariant = child(variant, 0);
    const auto name = text(nameVariant.get());
    const NSXPCClass* allowed = nullptr;
    for (size_t i = 0; classes && i < classes->size(); ++i) {
        if ((*classes)[i].name == name && (*classes)[i].initWithCoder)
            allowed = &(*classes)[i];
    }
    if (!allowed) {
        reason = "class " + inQuotes(name) + " is not allowed (allowed: " + names(classes) + ")";
        return nullptr;
    }
    NSCoder coder;
    const auto keyedValues = child(variant, 1);
    for (size_t i = 0; i < g_variant_n_children(keyedValues.get()); ++i) {
        const auto entry = child(keyedValues.get(), i);
        const auto keyVariant = child(entry.get(), 0);
        const std::string key(text(keyVariant.get()));
        if (coder.values().contains(key)) {
            reason = "key " + inQuotes(key) + " is there twice";
            return nullptr;
        }
        std::string valueReason;
        const VariantPtr content(g_variant_get_variant(child(entry.get(), 1).get()));
        auto value = decodeCodedValue(content.get(), valueReason);
        if (!value) {
            reason = "key " + inQuotes(key) + ": " + valueReason;
            return nullptr;
        }
        coder.encodeObject(std::move(*value), key);
    }
    NSError error;
    auto object = allowed->initWithCoder(coder, &error);
    if (!object) {
        reason = allowed->name + " decodes to no object";
        if (!error.localizedDescription.empty())
            reason += ": " + error.localizedDescription;
    }
    return object;
}

std::optional<NSXPCValue> decodeValue(GVariant* variant, const std::vector<NSXPCClass>* classes, std::string& reason)
{
    const std::string_view signature = g_variant_get_type_string(variant);
    const auto allows = [&](const NSXPCClass& container) {
        if (!classes || isNamed(*classes, container.name))
            return true;
        reason = ": class " + inQuotes(container.name) + " is not allowed";
        return false;
    };
    if (signature == "b")
        return static_cast<bool>(g_variant_get_boolean(variant));
    if (signature == "x")
        return int64_t{g_variant_get_int64(variant)};
    if (signature == "d")
        return g_variant_get_double(variant);
    if (signature == "s")
        return std::string(text(variant));
    if (signature == "ay") {
        if (!allows(NSXPCClass::data()))
            return std::nullopt;
        return bytes(variant);
    }
    if (signature == "a(sxs)") {
        if (g_variant_n_children(variant) > 1) {
            reason = ": more than one error";
            return std::nullopt;
        }
        if (g_variant_n_children(variant) == 0)
            return std::optional<NSError>();
        const auto error = child(variant, 0);
        return std::optional<NSError>({.domain = std::string(text(child(error.get(), 0).get())),
                                       .code = g_variant_get_int64(child(error.get(), 1).get()),
                                       .localizedDescription = std::string(text(child(error.get(), 2).get()))});
    }
    if (!allows(NSXPCClass::array()))
        return std::nullopt;
    NSXPCObjects objects;
    const size_t count = g_variant_n_children(variant);
    objects.reserve(count);
    for (size_t i = 0; i < count; ++i) {
        std::string objectReason;
        auto object = decodeObject(child(variant, i).get(), classes, objectReason);
        if (!object) {
            reason = ", position " + std::to_string(i) + ": " + objectReason;
            return std::nullopt;
        }
        objects.push_back(std::move(object));
    }
    return objects;
}

std::string describe(const std::vector<NSXPCInterface::Argument>& arguments, size_t index, bool ofReply)
{
    return std::string(ofReply ? "reply value " : "argument ") + std::to_string(index) + " (" + arguments[index].name +
           ")";
}

} // namespace

bool isValueSignature(std::string_view signature)
{
    return std::ranges::find(kSignatures, signature) != std::end(kSignatures);
}

GVariant* encodeValues(const NSXPCValues& values, const std::vector<NSXPCInterface::Argument>& arguments)
{
    if (values.size() != arguments.size())
        return nullptr;
    for (size_t i = 0; i < values.size(); ++i) {
        if (arguments[i].signature != kSignatures[values[i].index()])
            return nullptr;
    }
    GVariantBuilder tuple;
    g_variant_builder_init(&tuple, G_VARIANT_TYPE_TUPLE);
    for (const auto& value : values)
        g_variant_builder_add_value(&tuple, std::visit(ValueVariant{}, value));
    return g_variant_builder_end(&tuple);
}

std::optional<NSXPCValues> decodeValues(GVariant* body, const NSXPCInterface& interface, const std::string& selector,
                                        bool ofReply, NSError* error)
{
    const auto* operation = interface.operation(selector);
    const auto refuse = [&](const std::string& reason) {
        fail(error, kNSCocoaErrorDomain, kNSCoderReadCorruptError, selector + ": " + reason);
        return std::nullopt;
    };
    if (!operation)
        return refuse("no such operation");
    const auto& arguments = ofReply ? operation->reply : operation->arguments;
    const size_t count = body ? g_variant_n_children(body) : 0;
    // The first argument that is wrong tells a caller more than their number.
    for (size_t i = 0; i < std::min(count, arguments.size()); ++i) {
        const auto value = child(body, i);
        if (arguments[i].signature != g_variant_get_type_string(value.get())) {
            return refuse(describe(arguments, i, ofReply) + ": signature " +
                          inQuotes(g_variant_get_type_string(value.get())) + " where \"" + arguments[i].signature +
                          "\" is expected");
        }
    }
    if (count < arguments.size())
        return refuse(describe(arguments, count, ofReply) + " is missing");
    if (count > arguments.size()) {
        return refuse(std::string(ofReply ? "reply value " : "argument ") + std::to_string(arguments.size()) +
                      " is one too many");
    }
    NSXPCValues values;
    for (size_t i = 0; i < count; ++i) {
        std::string reason;
        auto value = decodeValue(child(body, i).get(), interface.classesForSelector(selector, i, ofReply), reason);
        if (!value)
            return refuse(describe(arguments, i, ofReply) + reason);
        values.push_back(std::move(*value));
    }
    return values;
}

} // namespace platform
