#include "platform/connection/NSXPCValue.h"

#include "platform/foundation/NSLog.h"

#include <utility>

namespace platform {

NSXPCReply::NSXPCReply(std::string selector, Send send) : selector_(std::move(selector)), send_(std::move(send)) {}

NSXPCReply::NSXPCReply(NSXPCReply&& other) noexcept
    : selector_(std::move(other.selector_)), send_(std::exchange(other.send_, nullptr))
{}

NSXPCReply::~NSXPCReply()
{
    if (!send_)
        return;
    logFailure(selector_, "call was dropped without a reply");
    send_(std::nullopt, {std::string(kNSCocoaErrorDomain), kNSXPCConnectionReplyInvalid,
                         selector_ + ": the call was dropped without a reply"});
}

void NSXPCReply::operator()(NSXPCValues values)
{
    if (auto send = std::exchange(send_, nullptr))
        send(std::move(values), {});
    else
        logFailure(selector_, "call was answered twice");
}

} // namespace platform
