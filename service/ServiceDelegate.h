#pragma once

#include "platform/connection/NSXPCListener.h"
#include "service/morStilloraVideoCreator.h"

#include <functional>
#include <memory>

/// Gives every connection its two interfaces and a creator of its own, and starts it. Without state: any thread.
class ServiceDelegate final : public platform::NSXPCListenerDelegate {
public:
    using CreatorFactory = std::function<std::shared_ptr<morStilloraVideoCreator>()>;

    explicit ServiceDelegate(CreatorFactory makeCreator = std::make_shared<morStilloraVideoCreator>);

    /// Always true.
    bool listener(platform::NSXPCListener& listener,
                  const platform::NSXPCConnectionPtr& shouldAcceptNewConnection) override;

private:
    const CreatorFactory makeCreator_;
};
