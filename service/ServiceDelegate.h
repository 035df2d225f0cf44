#pragma once

#include "platform/connection/NSXPCListener.h"
#include "service/VideoCreatorStages.h"

/// Gives every connection its two interfaces and a creator of its own, and starts it. Without state: any thread.
class ServiceDelegate final : public platform::NSXPCListenerDelegate {
public:
    explicit ServiceDelegate(VideoCreatorStages stages = VideoCreatorStages::real());

    /// Always true.
    bool listener(platform::NSXPCListener& listener,
                  const platform::NSXPCConnectionPtr& shouldAcceptNewConnection) override;

private:
    /// What each creator runs.
    const VideoCreatorStages stages_;
};
