#include "service/ServiceDelegate.h"

#include "items/morStilloraVideoCreatorProtocol.h"

#include <utility>

using platform::NSXPCClass;

ServiceDelegate::ServiceDelegate(CreatorFactory makeCreator) : makeCreator_(std::move(makeCreator)) {}

bool ServiceDelegate::listener(platform::NSXPCListener&, const platform::NSXPCConnectionPtr& shouldAcceptNewConnection)
{
    const auto& connection = shouldAcceptNewConnection;
    const auto exported = morStilloraVideoCreatorProtocol::interface();
    const auto setClasses = [&](std::vector<NSXPCClass> classes, size_t argumentIndex) {
        exported->setClasses(std::move(classes), kCreateStillMotionVideoSelector, argumentIndex, false);
    };
    setClasses({NSXPCClass::array(), morStilloraVideoCreatorProtocol::photoClass()}, 0);
    setClasses({NSXPCClass::array(), morStilloraVideoCreatorProtocol::soundtrackClass()}, 1);
    setClasses({NSXPCClass::data()}, 9);
    setClasses({NSXPCClass::data()}, 10);
    setClasses({NSXPCClass::data()}, 11);
    connection->setExportedInterface(exported);
    connection->setRemoteObjectInterface(morStilloraXPCCreatorUpdateProtocol::interface());

    const auto creator = makeCreator_();
    creator->setXpcConnection(connection);
    connection->setExportedObject(creator);
    // Nobody is left to hear of what still runs.
    connection->setInvalidationHandler([weak = std::weak_ptr(creator)] {
        if (const auto left = weak.lock())
            left->cancelCreation();
    });
    connection->resume();
    return true;
}
