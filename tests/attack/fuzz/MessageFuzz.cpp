#include "items/morStilloraVideoCreatorProtocol.h"
#include "platform/connection/MessageCoding.h"

#include <array>
#include <string_view>

#include <gio/gio.h>

using namespace platform;

namespace {

std::shared_ptr<NSXPCInterface> restrictedInterface()
{
    auto interface = morStilloraVideoCreatorProtocol::interface();
    const auto setClasses = [&](std::vector<NSXPCClass> classes, size_t index) {
        interface->setClasses(std::move(classes), kCreateStillMotionVideoSelector, index, false);
    };
    setClasses({NSXPCClass::array(), morStilloraVideoCreatorProtocol::photoClass()}, 0);
    setClasses({NSXPCClass::array(), morStilloraVideoCreatorProtocol::soundtrackClass()}, 1);
    for (const size_t index : {9U, 10U, 11U})
        setClasses({NSXPCClass::data()}, index);
    return interface;
}

struct Body {
    const char* type;
    std::string_view selector;
    bool isReply;
};

constexpr std::array<Body, 5> kBodies = {{
    {"(a(sa{sv})a(sa{sv})ddbdsxbayayay)", kCreateStillMotionVideoSelector, false},
    {"(aya(sxs)b)", kCreateStillMotionVideoSelector, true},
    {"(vv)", kCreateStillMotionVideoSelector, false},
    {"(a(sa{sv}))", kCreateStillMotionVideoSelector, false},
    {"(s)", kCancelCreationSelector, false},
}};

} // namespace

// Bodies of messages, of the right type and of others; the first byte chooses.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t length)
{
    static const auto interface = restrictedInterface();
    if (length == 0)
        return 0;
    const Body& body = kBodies[bytes[0] % kBodies.size()];
    GBytes* const rest = g_bytes_new(bytes + 1, length - 1);
    GVariant* const variant = g_variant_ref_sink(g_variant_new_from_bytes(G_VARIANT_TYPE(body.type), rest, FALSE));
    NSError error;
    (void)decodeValues(variant, *interface, std::string(body.selector), body.isReply, &error);
    g_variant_unref(variant);
    g_bytes_unref(rest);
    return 0;
}
